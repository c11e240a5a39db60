/* SPDX-License-Identifier: MIT */
/**
 * @file item_values.hpp
 * @brief The C++ face: the codes of items, and how values of a type are stored. store.hpp includes it.
 */
#ifndef KELO_UTILS_KELO_ITEM_VALUES_HPP
#define KELO_UTILS_KELO_ITEM_VALUES_HPP

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/settings.h"

namespace kelo {

/** Codes of items. They are those of ::kelo_dm_value_result, which a library without the additions lacks. */
struct ItemCode {
  static constexpr std::int32_t ok = 0;        /**< the value was read, or is stored */
  static constexpr std::int32_t none = -1;     /**< get: no value and no default; set: it was not stored */
  static constexpr std::int32_t too_long = -2; /**< the value is longer than a value can be */
  static constexpr std::int32_t bad_argument = -3; /**< unknown id, or an item of no store */
  static constexpr std::int32_t damaged = -4;      /**< get: the stored value is damaged */
  static constexpr std::int32_t not_readable = -5; /**< get: the value cannot be known now */
  static constexpr std::int32_t wrong_type = -6;   /**< the item was registered with another type */
  static constexpr std::int32_t wrong_length = -7; /**< the value has another length than its type */
};

/** @cond */
namespace face_detail {

inline constexpr std::int32_t kFirstSize = 256;
inline constexpr std::int32_t kLargestSize = 16 * 1024 * 1024;

inline std::int32_t get_bytes(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size,
                              std::int32_t* len) {
#ifndef KELO_NO_ADDITIONS
  return kelo_dm_get_bytes(handle, id, buf, size, len);
#else
  return kelo_dm_get(handle, id, buf, size, len);
#endif
}

// A text ends at its first NUL.
inline std::int32_t text_length(const void* text, std::int32_t len) {
  const void* const end = std::memchr(text, '\0', static_cast<std::size_t>(len));
  return end == nullptr
             ? len
             : static_cast<std::int32_t>(static_cast<const char*>(end) - static_cast<const char*>(text));
}

inline std::int32_t get_text(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size,
                             std::int32_t* len) {
#ifndef KELO_NO_ADDITIONS
  const std::int32_t code = kelo_dm_get_text(handle, id, static_cast<char*>(buf), size);
  if (code == ItemCode::too_long) {
    char byte = 0;
    const std::int32_t length_code = kelo_dm_get(handle, id, &byte, 1, len);
    if (length_code != ItemCode::too_long && length_code != ItemCode::ok) return length_code;
  }
  if (code == ItemCode::ok) *len = text_length(buf, size);
#else
  const std::int32_t code = kelo_dm_get(handle, id, buf, size, len);
  if (code == ItemCode::ok) *len = text_length(buf, *len);
#endif
  return code;
}

// Reads into a larger buffer until the value fits, since another process may write a longer one at any time.
template <class Container, class Get>
std::int32_t get_whole(Get get, kelo_dm_handle* handle, std::int32_t id, Container& value) {
  for (std::int32_t size = kFirstSize;;) {
    value.resize(static_cast<std::size_t>(size));
    std::int32_t len = 0;
    const std::int32_t code = get(handle, id, &value[0], size, &len);
    if (code != ItemCode::too_long || size > kLargestSize || len > kLargestSize) {
      value.resize(code == ItemCode::ok ? static_cast<std::size_t>(len) : 0);
      return code;
    }
    size = (len > size ? len : size) + 1;
  }
}

inline bool is_scalar(std::int32_t type) {
  return type >= KELO_DM_TYPE_SCALAR1 && type <= KELO_DM_TYPE_SCALAR4;
}

// How values of a type are stored.
template <class T>
struct Codec {
  static_assert(std::is_trivially_copyable_v<T> && std::is_default_constructible_v<T>,
                "An item holds a trivially copyable type, std::string or std::vector<unsigned char>.");
  static constexpr auto kSize = static_cast<std::int32_t>(sizeof(T));

  static bool has_kind(std::int32_t type) { return is_scalar(type) || type == KELO_DM_TYPE_BUFFER; }

  static std::int32_t get(kelo_dm_handle* handle, std::int32_t id, T& value) {
    std::int32_t len = 0;
    const std::int32_t code = kelo_dm_get(handle, id, &value, kSize, &len);
    if (code == ItemCode::too_long) return ItemCode::wrong_length;
    if (code != ItemCode::ok || len == kSize) return code;
    value = T{};
    return ItemCode::wrong_length;
  }

  static std::int32_t set(kelo_dm_handle* handle, std::int32_t id, const T& value) {
    return kelo_dm_write_verified(handle, id, &value, kSize);
  }

  static std::int32_t decode(const void* data, std::int32_t len, T& value) {
    if (len != kSize) return ItemCode::wrong_length;
    std::memcpy(&value, data, sizeof value);
    return ItemCode::ok;
  }
};

#ifndef KELO_NO_ADDITIONS
template <>
inline bool Codec<std::int32_t>::has_kind(std::int32_t type) {
  return is_scalar(type);
}
template <>
inline std::int32_t Codec<std::int32_t>::get(kelo_dm_handle* handle, std::int32_t id, std::int32_t& value) {
  return kelo_dm_get_int32(handle, id, &value);
}
template <>
inline std::int32_t Codec<std::int32_t>::set(kelo_dm_handle* handle, std::int32_t id,
                                             const std::int32_t& value) {
  return kelo_dm_set_int32(handle, id, value);
}

template <>
inline bool Codec<std::uint32_t>::has_kind(std::int32_t type) {
  return is_scalar(type);
}
template <>
inline std::int32_t Codec<std::uint32_t>::get(kelo_dm_handle* handle, std::int32_t id, std::uint32_t& value) {
  return kelo_dm_get_uint32(handle, id, &value);
}
template <>
inline std::int32_t Codec<std::uint32_t>::set(kelo_dm_handle* handle, std::int32_t id,
                                              const std::uint32_t& value) {
  return kelo_dm_set_uint32(handle, id, value);
}
#endif

// A truth value has one byte or four, of which any bit counts.
template <>
struct Codec<bool> {
  static bool has_kind(std::int32_t type) { return is_scalar(type); }

  static std::int32_t get(kelo_dm_handle* handle, std::int32_t id, bool& value) {
#ifndef KELO_NO_ADDITIONS
    std::int32_t stored = 0;
    const std::int32_t code = kelo_dm_get_bool(handle, id, &stored);
    value = stored != 0;
    return code;
#else
    std::uint32_t stored = 0;
    std::int32_t len = 0;
    const std::int32_t code = kelo_dm_get(handle, id, &stored, 4, &len);
    if (code == ItemCode::too_long) return ItemCode::wrong_length;
    return code == ItemCode::ok ? decode(&stored, len, value) : code;
#endif
  }

  static std::int32_t set(kelo_dm_handle* handle, std::int32_t id, bool value) {
#ifndef KELO_NO_ADDITIONS
    return kelo_dm_set_bool(handle, id, value ? 1 : 0);
#else
    const unsigned char byte = value ? 1 : 0;
    return kelo_dm_write_verified(handle, id, &byte, 1);
#endif
  }

  static std::int32_t decode(const void* data, std::int32_t len, bool& value) {
    if (len != 1 && len != 4) return ItemCode::wrong_length;
    std::uint32_t stored = 0;
    std::memcpy(&stored, data, static_cast<std::size_t>(len));
    value = stored != 0;
    return ItemCode::ok;
  }
};

template <>
struct Codec<std::string> {
  static bool has_kind(std::int32_t type) { return type == KELO_DM_TYPE_STRING; }

  static std::int32_t get(kelo_dm_handle* handle, std::int32_t id, std::string& value) {
    return get_whole(get_text, handle, id, value);
  }

  // A text with a NUL would be read back shorter.
  static std::int32_t set(kelo_dm_handle* handle, std::int32_t id, const std::string& value) {
    const std::size_t length = std::strlen(value.c_str());
    if (length == 0 || length != value.size() || length > INT32_MAX) return ItemCode::wrong_length;
#ifndef KELO_NO_ADDITIONS
    return kelo_dm_set_text(handle, id, value.c_str());
#else
    return kelo_dm_write_verified(handle, id, value.data(), static_cast<std::int32_t>(length));
#endif
  }

  static std::int32_t decode(const void* data, std::int32_t len, std::string& value) {
    value.assign(static_cast<const char*>(data), static_cast<std::size_t>(text_length(data, len)));
    return ItemCode::ok;
  }
};

template <>
struct Codec<std::vector<unsigned char>> {
  static bool has_kind(std::int32_t type) { return type == KELO_DM_TYPE_BUFFER; }

  static std::int32_t get(kelo_dm_handle* handle, std::int32_t id, std::vector<unsigned char>& value) {
    return get_whole(get_bytes, handle, id, value);
  }

  static std::int32_t set(kelo_dm_handle* handle, std::int32_t id, const std::vector<unsigned char>& value) {
    if (value.empty() || value.size() > INT32_MAX) return ItemCode::wrong_length;
    const auto len = static_cast<std::int32_t>(value.size());
#ifndef KELO_NO_ADDITIONS
    return kelo_dm_set_bytes(handle, id, value.data(), len);
#else
    return kelo_dm_write_verified(handle, id, value.data(), len);
#endif
  }

  static std::int32_t decode(const void* data, std::int32_t len, std::vector<unsigned char>& value) {
    const auto* const bytes = static_cast<const unsigned char*>(data);
    value.assign(bytes, bytes + len);
    return ItemCode::ok;
  }
};

#ifndef KELO_NO_ADDITIONS
struct DefaultSearch {
  std::int32_t id;
  const kelo_dm_item_desc* found;

  static std::int32_t look(std::int32_t id, const kelo_dm_item_desc* item, void* user) {
    auto* const search = static_cast<DefaultSearch*>(user);
    if (id != search->id) return 0;
    search->found = item;
    return 1;
  }
};

inline const void* bytes_of_default(const kelo_dm_item_desc& item, std::int32_t& len) {
  len = item.len;
  if (is_scalar(item.def_type)) {
    const bool fits = len >= 1 && len <= static_cast<std::int32_t>(sizeof item.def_value);
    return fits ? &item.def_value : nullptr;
  }
  const auto* const text = reinterpret_cast<const char*>(item.def_value);
  if (text != nullptr && item.def_type == KELO_DM_TYPE_STRING)
    len = static_cast<std::int32_t>(std::strlen(text));
  return len >= 0 ? text : nullptr;
}

template <class T>
std::int32_t get_default(std::int32_t id, T& value) {
  DefaultSearch search = {id, nullptr};
  if (kelo_dm_for_each_item(&DefaultSearch::look, &search) == 0) return ItemCode::bad_argument;
  if (!Codec<T>::has_kind(search.found->def_type)) return ItemCode::wrong_type;
  std::int32_t len = 0;
  const void* const bytes = bytes_of_default(*search.found, len);
  return bytes != nullptr ? Codec<T>::decode(bytes, len, value) : ItemCode::none;
}
#endif

}  // namespace face_detail
/** @endcond */

}  // namespace kelo

#endif /* KELO_UTILS_KELO_ITEM_VALUES_HPP */
