// SPDX-License-Identifier: MIT
// Encodes UTF-8 text for the network: septets of the GSM alphabet with its extension table, packed septets, and USSD.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kelo-app-common/src/gsm_alphabet.hpp"
#include "kelo_utils/gsm_encode.h"
#include "kelo_utils/unicode.h"

namespace {

constexpr unsigned kCarriageReturn = 13;
constexpr std::uint8_t kDefaultAlphabetScheme = 0x0F;  // the language is not specified
constexpr std::uint8_t kUcs2Scheme = 0x48;             // not compressed, no message class
constexpr int kNotInAlphabet = -1;

// The characters of the extension table, and the septets after the escape.
struct Extension {
  char16_t character;
  std::uint16_t septet;
};
constexpr std::array<Extension, 10> kExtensions = {{{u'\f', 0x0A},
                                                    {u'^', 0x14},
                                                    {u'{', 0x28},
                                                    {u'}', 0x29},
                                                    {u'\\', 0x2F},
                                                    {u'[', 0x3C},
                                                    {u'~', 0x3D},
                                                    {u']', 0x3E},
                                                    {u'|', 0x40},
                                                    {u'€', 0x65}}};

// Returns the septet of a character of the default alphabet.
int septet_of(char16_t character) {
  if (character >= 0x800) return kNotInAlphabet;
  const unsigned bytes = kelo::gsm::utf8_bytes(character);
  for (unsigned septet = 0; septet < kelo::gsm::kUtf8Bytes.size(); ++septet) {
    if (kelo::gsm::kUtf8Bytes[septet] == bytes && septet != kelo::gsm::kEscape)
      return static_cast<int>(septet);
  }
  return kNotInAlphabet;
}

int extension_of(char16_t character) {
  for (const Extension& extension : kExtensions) {
    if (extension.character == character) return extension.septet;
  }
  return kNotInAlphabet;
}

// Writes septets into the caller's buffer, one per byte or packed.
class SeptetWriter {
 public:
  SeptetWriter(std::uint8_t* out, std::int32_t size, bool packed) : out_(out), size_(size), packed_(packed) {}

  void put(unsigned septet) {
    last_ = septet;
    ++count_;
    waiting_ |= septet << bits_;
    bits_ += 7;
    if (!packed_ || bits_ >= 8) flush();
  }

  // Packs the rest. At the end of a USSD message seven unused bits would be an @, and a receiver drops a carriage return
  // that fills the last octet: a carriage return takes the place of the first and is added to the second.
  std::int32_t finish(bool ussd) {
    if (packed_ && ussd && (count_ % 8 == 7 || (count_ > 0 && count_ % 8 == 0 && last_ == kCarriageReturn)))
      put(kCarriageReturn);
    if (bits_ > 0) flush();
    return length_ <= size_ ? length_ : KELO_GSM_TOO_LONG;
  }

 private:
  void flush() {
    if (length_ < size_) out_[length_] = static_cast<std::uint8_t>(waiting_);
    if (length_ <= size_) ++length_;
    waiting_ = bits_ > 8 ? waiting_ >> 8 : 0;
    bits_ = bits_ > 8 ? bits_ - 8 : 0;
  }

  std::uint8_t* const out_;
  const std::int32_t size_;
  const bool packed_;
  std::int32_t length_ = 0;  // bytes that are written; one more than the size when they do not fit
  std::int32_t count_ = 0;   // septets
  unsigned waiting_ = 0;     // bits that are not yet written
  unsigned bits_ = 0;        // their number
  unsigned last_ = 0;
};

// Reads the characters of UTF-8 text one after the other.
class TextReader {
 public:
  explicit TextReader(const char* text)
      : at_(reinterpret_cast<const std::uint8_t*>(text)), end_(at_ + std::strlen(text)) {}

  [[nodiscard]] bool done() const { return at_ == end_; }

  // Returns the next character, or a negative result: it is ill-formed, or it has no place in 16 bits.
  std::int32_t next() {
    std::uint16_t unit = 0;
    std::uint16_t* target = &unit;
    const int result = kelo_util_ConvertUTF8toUTF16(&at_, end_, &target, &unit + 1, KELO_UNICODE_STRICT);
    if (target != &unit) return unit;
    return result == KELO_UNICODE_TARGET_EXHAUSTED ? KELO_GSM_NOT_ENCODABLE : KELO_GSM_ILL_FORMED;
  }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* const end_;
};

std::int32_t encode(const char* text, SeptetWriter writer, bool ussd) {
  TextReader reader(text);
  while (!reader.done()) {
    const std::int32_t character = reader.next();
    if (character < 0) return character;
    int septet = septet_of(static_cast<char16_t>(character));
    if (septet == kNotInAlphabet) {
      septet = extension_of(static_cast<char16_t>(character));
      if (septet == kNotInAlphabet) return KELO_GSM_NOT_ENCODABLE;
      writer.put(kelo::gsm::kEscape);
    }
    writer.put(static_cast<unsigned>(septet));
  }
  return writer.finish(ussd);
}

// Writes the units with their high byte first. The buffer may begin at an odd address.
std::int32_t encode_ucs2(const char* text, std::uint8_t* out, std::int32_t size) {
  const auto* at = reinterpret_cast<const std::uint8_t*>(text);
  const std::uint8_t* const end = at + std::strlen(text);
  std::int32_t length = 0;
  while (at != end) {
    std::array<std::uint16_t, 2> units;  // as many as one character may have
    std::uint16_t* unit = units.data();
    const int result =
        kelo_util_ConvertUTF8toUTF16(&at, end, &unit, units.data() + units.size(), KELO_UNICODE_STRICT);
    if (result != KELO_UNICODE_COMPLETE && result != KELO_UNICODE_TARGET_EXHAUSTED)
      return KELO_GSM_ILL_FORMED;
    for (const std::uint16_t* next = units.data(); next != unit; ++next) {
      if (size - length < 2) return KELO_GSM_TOO_LONG;
      out[length++] = static_cast<std::uint8_t>(*next >> 8);
      out[length++] = static_cast<std::uint8_t>(*next);
    }
  }
  return length;
}

}  // namespace

std::int32_t kelo_gsm_encode(const char* text, std::uint8_t* septets, std::int32_t size) {
  if (text == nullptr || septets == nullptr || size < 0) return KELO_GSM_BAD_ARGUMENT;
  return encode(text, {septets, size, false}, false);
}

std::int32_t kelo_gsm_pack(const std::uint8_t* septets, std::int32_t count, std::int32_t ussd,
                           std::uint8_t* packed, std::int32_t size) {
  if (septets == nullptr || count < 0 || packed == nullptr || size < 0) return KELO_GSM_BAD_ARGUMENT;
  SeptetWriter writer(packed, size, true);
  for (std::int32_t i = 0; i < count; ++i) {
    if (septets[i] > 127) return KELO_GSM_NOT_ENCODABLE;
    writer.put(septets[i]);
  }
  return writer.finish(ussd != 0);
}

std::int32_t kelo_ussd_encode(const char* text, std::int32_t coding, std::uint8_t* dcs, std::uint8_t* data,
                              std::int32_t size) {
  if (text == nullptr || dcs == nullptr || data == nullptr || size < 0 || coding < KELO_USSD_SEPTETS ||
      coding > KELO_USSD_UCS2)
    return KELO_GSM_BAD_ARGUMENT;
  std::int32_t result = KELO_GSM_NOT_ENCODABLE;
  std::uint8_t scheme = kDefaultAlphabetScheme;
  if (coding != KELO_USSD_UCS2) result = encode(text, {data, size, true}, true);
  if (result == KELO_GSM_NOT_ENCODABLE && coding != KELO_USSD_SEPTETS) {
    result = encode_ucs2(text, data, size);
    scheme = kUcs2Scheme;
  }
  if (result >= 0) *dcs = scheme;
  return result;
}
