// SPDX-License-Identifier: MIT
// The commands that convert texts: GSM 7 bit, UCS-2, UTF-8, USSD and hexadecimal digits.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>

#include "kelo_utils/app_common.h"
#include "tools/keloctl/command.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

// A byte of the source becomes at most this many bytes of text.
constexpr std::size_t kGrowth = 4;

int print_text(const Bytes& text, Output& out) {
  if (out.human()) {
    out.say_text(text.view());
  } else {
    out.text("text", text.view());
    out.hex("hex", text.view());
  }
  return kDone;
}

int print_hex(std::string_view bytes, Output& out) {
  if (out.human())
    out.say_text(shown_value(0, bytes).view());
  else
    out.hex("hex", bytes);
  return kDone;
}

int refuse(const char* text, const char* what, Output& out) {
  out.error("%s is not %s", text, what);
  return kUsage;
}

const std::uint8_t* octets(const Bytes& bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes.c_str());
}

// UCS-2 is in the byte order of the machine inside the library, and has the high byte first in messages.
void swap_units(Bytes& text) {
  if constexpr (std::endian::native == std::endian::big) return;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) std::swap(text.data()[i], text.data()[i + 1]);
}

// Cuts a converted text to its length. A conversion that gives no text has failed, as the source is not empty.
int print_converted(Bytes& text, int length, const char* source, const char* what, Output& out) {
  if (length <= 0) return refuse(source, what, out);
  text.cut(static_cast<std::size_t>(length));
  return print_text(text, out);
}

int text_gsm(const Words& words, Output& out) {
  const Bytes packed = from_hex(words.at(0));
  constexpr std::size_t kMostOctets = 223;  // 255 septets
  if (!packed || packed.size() == 0 || packed.size() > kMostOctets)
    return refuse(words.at(0), "packed septets in hexadecimal digits", out);
  Bytes text = Bytes::of_size(512);
  if (!text) return kStorage;
  const int length = kelo_util_convert_gsm_def_alpha_string_to_utf8(
      octets(packed), static_cast<int>(packed.size()), text.data(), text.size());
  return print_converted(text, length, words.at(0), "packed septets", out);
}

int text_ucs2(const Words& words, Output& out) {
  Bytes source = from_hex(words.at(0));
  if (!source || source.size() == 0 || source.size() % 2 != 0)
    return refuse(words.at(0), "UCS-2 in hexadecimal digits", out);
  swap_units(source);
  Bytes text = Bytes::of_size(kGrowth * source.size());
  if (!text) return kStorage;
  const int length = kelo_util_convert_ucs2_to_utf8(octets(source), source.size(), text.data(), text.size());
  return print_converted(text, length, words.at(0), "UCS-2", out);
}

int text_utf8(const Words& words, Output& out) {
  const std::size_t length = std::strlen(words.at(0));
  for (std::size_t i = 0; i < length;) {
    const std::size_t character = utf8_length({words.at(0), length}, i);
    if (character == 0) return refuse(words.at(0), "UTF-8", out);
    i += character;
  }
  Bytes units = Bytes::of_size(kGrowth * length + kGrowth);
  if (!units) return kStorage;
  const int size = kelo_util_convert_utf8_to_ucs2(
      words.at(0), length, reinterpret_cast<std::uint8_t*>(units.data()), units.size());
  units.cut(static_cast<std::size_t>(std::max(size, 0)));
  swap_units(units);
  return print_hex(units.view(), out);
}

int text_hex(const Words& words, Output& out) { return print_hex(words.at(0), out); }

int text_unhex(const Words& words, Output& out) {
  const Bytes bytes = from_hex(words.at(0));
  if (!bytes) return refuse(words.at(0), "an even number of hexadecimal digits", out);
  return print_text(bytes, out);
}

int ussd_decode(const Words& words, Output& out) {
  const char* const scheme = words.option("dcs");
  const Bytes dcs = scheme != nullptr ? from_number(scheme, 1) : Bytes();
  const Bytes data = from_hex(words.at(0));
  constexpr std::size_t kMostOctets = 255;  // longer texts of GSM 7 bit are cut
  if (!dcs) {
    out.error("--dcs must give the data coding scheme, a number of one byte");
    return kUsage;
  }
  if (!data || data.size() == 0 || data.size() > kMostOctets)
    return refuse(words.at(0), "at most 255 bytes in hexadecimal digits", out);
  Bytes text = Bytes::of_size(kGrowth * data.size() + 512);
  if (!text) return kStorage;
  const int length = kelo_util_convert_ussd_string_to_utf8(
      *octets(dcs), octets(data), static_cast<int>(data.size()), text.data(), text.size());
  return print_converted(text, length, words.at(0), "a text of this data coding scheme", out);
}

constexpr Command kCommands[] = {
    {"text", "gsm", "HEX", "packed GSM septets as text", "", 1, 1, text_gsm},
    {"text", "ucs2", "HEX", "UCS-2, high byte first, as text", "", 1, 1, text_ucs2},
    {"text", "utf8", "TEXT", "text as UCS-2, high byte first", "", 1, 1, text_utf8},
    {"text", "hex", "TEXT", "text as hexadecimal digits", "", 1, 1, text_hex},
    {"text", "unhex", "HEX", "hexadecimal digits as text", "", 1, 1, text_unhex},
    {"ussd", "decode", "--dcs N HEX", "the text of a USSD message", "dcs=", 1, 1, ussd_decode},
};

}  // namespace

std::span<const Command> text_commands() { return kCommands; }

}  // namespace kelo::ctl
