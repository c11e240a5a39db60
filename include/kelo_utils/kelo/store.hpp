/* SPDX-License-Identifier: MIT */
/**
 * @file store.hpp
 * @brief The C++ face: the store, its items as values of a type, and subscriptions to their changes.
 *
 *     kelo::StoreOptions options;
 *     options.items = items;
 *     auto store = kelo::Store::open(options);
 *     if (!store) return store.code();
 *
 *     const auto channel = store.value().item<std::int32_t>(1203);
 *     const auto ssid = store.value().item<std::string>(1204);
 *     channel.set(11);
 *     join(ssid.get().value_or("home"));
 *
 * The functions of data_manager.h and settings.h do the work, and log what they log.
 */
#ifndef KELO_UTILS_KELO_STORE_HPP
#define KELO_UTILS_KELO_STORE_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/kelo/closure.hpp"
#include "kelo_utils/kelo/result.hpp"
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

#ifndef KELO_NO_ADDITIONS

/** A change of an item, as the function of a Subscription receives it. */
struct Change {
  std::int32_t id;  /**< id of the item */
  const void* data; /**< the bytes that were stored, valid during the call and not null */
  std::int32_t len; /**< number of bytes; 0 when the item was emptied */
};

/** @cond */
namespace face_detail {

// Where the callable of a subscription is. A subscription that ends within a callback does not wait for calls in other
// threads, of which some have yet to enter hear(). A call therefore carries the number of the place and of its use, and
// no pointer. The word holds the use, whether the subscription lasts, and the number of its users.
struct ChangePlace {
  std::atomic<std::uint32_t> word{0};
  Closure* closure = nullptr;
};

inline constexpr std::uint32_t kPlaces =
    32;  // the library has 16 subscriptions at a time; others may be ending
inline constexpr std::uint32_t kUsersMask = 0xFFF;
inline constexpr std::uint32_t kLasts = 0x1000;
inline constexpr std::uint32_t kOneUse = 0x2000;
inline constexpr std::uint32_t kStateMask = kUsersMask | kLasts;

inline ChangePlace change_places[kPlaces];

inline void leave(ChangePlace& place) {
  Closure* const closure = place.closure;
  if ((place.word.fetch_sub(1, std::memory_order_acq_rel) & kUsersMask) == 1) destroy(closure);
}

inline void hear(std::int32_t id, const void* data, std::int32_t len, void* user) noexcept {
  const auto ticket = reinterpret_cast<std::uintptr_t>(user);
  ChangePlace& place = change_places[ticket % kPlaces];
  const auto use = static_cast<std::uint32_t>(ticket / kPlaces) * kOneUse;
  std::uint32_t word = place.word.load(std::memory_order_acquire);
  do {
    if ((word & ~kUsersMask) != (use | kLasts) || (word & kUsersMask) == kUsersMask) return;
  } while (!place.word.compare_exchange_weak(word, word + 1, std::memory_order_acq_rel));
  const Change change = {id, data, len};
  place.closure->act(place.closure, &change);
  leave(place);
}

// Takes over the closure, which is destroyed when there is no place. The number of the subscription, or the code.
inline std::int32_t subscribe(Closure* closure, ChangePlace*& taken) {
  for (ChangePlace& place : change_places) {
    std::uint32_t word = place.word.load(std::memory_order_relaxed);
    if ((word & kStateMask) != 0) continue;
    const std::uint32_t use = word + kOneUse;
    if (!place.word.compare_exchange_strong(word, use | 1, std::memory_order_acq_rel)) continue;
    place.closure = closure;
    place.word.store(use | kLasts | 1, std::memory_order_release);
    const std::uintptr_t ticket =
        std::uintptr_t{use / kOneUse} * kPlaces + static_cast<std::uintptr_t>(&place - &change_places[0]);
    const std::int32_t number = kelo_dm_subscribe(&hear, reinterpret_cast<void*>(ticket));
    if (number > 0) {
      taken = &place;
    } else {
      place.word.fetch_and(~kLasts, std::memory_order_acq_rel);
      leave(place);
    }
    return number;
  }
  destroy(closure);
  return ItemCode::none;
}

inline void unsubscribe(std::int32_t number, ChangePlace& place) {
  kelo_dm_unsubscribe(number);
  place.word.fetch_and(~kLasts, std::memory_order_acq_rel);
  leave(place);
}

}  // namespace face_detail
/** @endcond */

/**
 * A subscription to changes of items. It ends when the object is destroyed.
 *
 * The function runs in the thread that writes, after the storage has accepted the value. It may use the store,
 * subscribe, and end any subscription, its own included. It must not throw.
 *
 * @par Blocking
 * The end of a subscription blocks while another thread is in its function, unless it is in the function of
 * another subscription or its own: then it does not wait, and the function is destroyed after its last call.
 * The thread that ends it must not hold a lock for which the function may wait.
 * @par Threads
 * Any thread may subscribe and end a subscription, but one thread at a time uses an object. It is not for
 * signal handlers.
 */
class [[nodiscard]] Subscription {
 public:
  /** A subscription to nothing. */
  Subscription() noexcept = default;
  /**
   * Takes a subscription over.
   * @param other  it is a subscription to nothing after this.
   */
  Subscription(Subscription&& other) noexcept
      : place_(other.place_), number_(std::exchange(other.number_, 0)) {}
  /**
   * Ends this subscription and takes another one over.
   * @param other  it is a subscription to nothing after this.
   * @return this object.
   */
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      end();
      place_ = other.place_;
      number_ = std::exchange(other.number_, 0);
    }
    return *this;
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() { end(); }

  /**
   * Subscribes to the changes of all items.
   * @tparam Function  type of `function`.
   * @param function   is copied or moved to the heap, and called with a Change.
   * @return the subscription; the code -1 when a process has all its subscriptions
   *         (`KELO_DM_MOST_SUBSCRIPTIONS`) or memory runs out.
   */
  template <class Function>
  static Result<Subscription> to_all(Function&& function) {
    face_detail::Closure* const closure = face_detail::make_closure<Change>(std::forward<Function>(function));
    if (closure == nullptr) return Result<Subscription>::failed(ItemCode::none);
    return started(closure);
  }

  /** Ends the subscription. Nothing is done when it has ended already. */
  void end() noexcept {
    if (number_ != 0) face_detail::unsubscribe(std::exchange(number_, 0), *place_);
  }

  /** @return whether the subscription lasts. */
  explicit operator bool() const noexcept { return number_ != 0; }

 private:
  static Result<Subscription> started(face_detail::Closure* closure) {
    Subscription subscription;
    const std::int32_t number = face_detail::subscribe(closure, subscription.place_);
    if (number < 1) return Result<Subscription>::failed(number);
    subscription.number_ = number;
    return Result<Subscription>(std::move(subscription));
  }

  face_detail::ChangePlace* place_ = nullptr;
  std::int32_t number_ = 0;
};

#endif /* KELO_NO_ADDITIONS */

// The calls of an item become calls of C functions in the place of the call. A compiler that saves memory would make
// functions of them, and calls of these take more.
/**
 * An item of the store as a value of a type. It is small, may be copied, and must not be used after its Store
 * has ended.
 *
 * @tparam T  `std::string` for items of type 5, `std::vector<unsigned char>` for items of type 6, `bool` for a
 *            scalar of one byte or four, or any trivially copyable type whose bytes are the value. The type of
 *            the item is compared with `T`, except that it may be both scalar and buffer for trivially copyable
 *            types other than `std::int32_t`, `std::uint32_t` and `bool`. A library without the additions
 *            compares no types.
 * @par Blocking
 * The functions block for the access to the storage.
 * @par Threads
 * Any thread may call them at any time. They are not for signal handlers.
 */
template <class T>
class Item {
 public:
  /**
   * Names an item of a handle that was made with the C functions. Store::item() is the usual way.
   * @param handle  from kelo_dm_reg(); it stays valid for as long as the item is used. With null every call
   *                gives the code -3.
   * @param id      id of the item.
   */
  Item(kelo_dm_handle* handle, std::int32_t id) noexcept : handle_(handle), id_(id) {}

  /** @return id of the item. */
  [[nodiscard]] std::int32_t id() const noexcept { return id_; }

  /**
   * Gets the stored value, or else the default.
   * @return the value; after a failure a code of ItemCode: -1, -3, -4, -5, -6 or -7.
   */
  [[gnu::always_inline]] Result<T> get() const {
    if constexpr (std::is_trivially_copyable_v<T>) {
      T value{};  // apart from the code, which is then in a register
      const std::int32_t code = face_detail::Codec<T>::get(handle_, id_, value);
      return Result<T>::of(code, value);
    } else {
      Result<T> result;
      result.code_ = face_detail::Codec<T>::get(handle_, id_, result.value_);
      return result;
    }
  }

  /**
   * Stores a value, reads it back, and announces the change.
   * @param value  the value. An empty text, a text with a NUL in it and empty bytes are refused: reset()
   *               removes the value.
   * @return success when the value is stored; after a failure a code of ItemCode: -1, -3, -6 or -7.
   */
  [[gnu::always_inline]] Result<void> set(const T& value) const {
    return outcome(face_detail::Codec<T>::set(handle_, id_, value));
  }

  /**
   * Removes the stored value, so that the item has its default again, and announces an empty value.
   * @return success; the code -3 for an unknown id; any other code is that of the storage.
   */
  Result<void> reset() const { return outcome(kelo_dm_empty(handle_, id_)); }

#ifndef KELO_NO_ADDITIONS
  /**
   * Gives the default with which the item was registered, whatever is stored.
   * @return the default; after a failure a code of ItemCode: -1 for an item without one, -3 for an unknown id,
   *         -6 or -7.
   */
  Result<T> default_value() const {
    return Result<T>::filled_by([this](T& value) { return face_detail::get_default(id_, value); });
  }

  /**
   * Calls a function for each change of the item from now on.
   * @tparam Function  type of `function`.
   * @param function   is copied or moved to the heap, and called with a `const Result<T>&`: the new value, or
   *                   the code -1 when the item was emptied, or -7 when the value has another length than `T`.
   * @return the subscription; the code -1 as for Subscription::to_all().
   */
  template <class Function>
  Result<Subscription> on_change(Function&& function) const {
    return Subscription::to_all([id = id_, call = std::decay_t<Function>(std::forward<Function>(function))](
                                    const Change& change) mutable {
      if (change.id != id) return;
      const auto value = Result<T>::filled_by([&change](T& decoded) {
        if (change.len == 0) return ItemCode::none;
        return face_detail::Codec<T>::decode(change.data, change.len, decoded);
      });
      call(value);
    });
  }
#endif

 private:
  [[gnu::always_inline]] static Result<void> outcome(std::int32_t code) { return Result<void>::of(code); }

  kelo_dm_handle* handle_;
  std::int32_t id_;
};

/** How Store::open() opens a store. */
struct StoreOptions {
  /** Table of items, which ends with ::KELO_DM_END and stays valid until the process ends; null for none. */
  kelo_dm_item* items = nullptr;
#ifndef KELO_NO_ADDITIONS
  /** Whether the hooks of the library use the SQLite back-end, as kelo_dm_use_sqlite() says. A program that
   * links `kelo::utils_sqlite` or has hooks of its own leaves it false. */
  bool use_sqlite = false;
#endif
  /** Directory of the primary files, ending in "/"; null for the usual one. */
  const char* primary_dir = nullptr;
  /** Directory of the backup, ending in "/"; null for the usual one. */
  const char* backup_dir = nullptr;
  /** Number of the handle. It has no meaning for the library. */
  std::int32_t number = 0;
};

/**
 * The store: a handle of the data manager that ends with the object.
 * @par Blocking
 * Each function says for what it waits.
 * @par Threads
 * One thread opens a store at start-up, and one thread ends it when no other thread uses it or an item of it.
 * Other threads may use it and its items at any time. It is not for signal handlers.
 */
class [[nodiscard]] Store {
 public:
  /** No store. Its items give the code -3. */
  Store() noexcept = default;
  /**
   * Takes a store over. Its items stay valid.
   * @param other  it is no store after this.
   */
  Store(Store&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  /**
   * Ends this store and takes another one over.
   * @param other  it is no store after this.
   * @return this object.
   */
  Store& operator=(Store&& other) noexcept {
    if (this != &other) {
      close();
      handle_ = std::exchange(other.handle_, nullptr);
    }
    return *this;
  }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ~Store() {
    if (handle_ != nullptr) kelo_dm_unreg(handle_);
  }

  /**
   * Chooses the back-end and its place, registers the items, and makes a handle. Memory that runs out for the
   * handle or the items ends the process.
   *
   * It blocks as kelo_dm_reg() does.
   *
   * @param options  how to open it.
   * @return the store; the code of kelo_dm_reg_store_area() or of kelo_dm_reg_def_items() when one of them
   *         fails.
   */
  static Result<Store> open(const StoreOptions& options) {
    return Result<Store>::filled_by([&options](Store& store) {
#ifndef KELO_NO_ADDITIONS
      if (options.use_sqlite) kelo_dm_use_sqlite();
#endif
      std::int32_t code = 0;
      if (options.primary_dir != nullptr || options.backup_dir != nullptr)
        code = kelo_dm_reg_store_area(options.primary_dir, options.backup_dir);
      if (code == 0 && options.items != nullptr) code = kelo_dm_reg_def_items(options.items);
      if (code == 0) store.handle_ = kelo_dm_reg(options.number);
      return code;
    });
  }

  /** Ends the store. Nothing is done when there is none. It does not block. */
  void close() noexcept {
    if (handle_ != nullptr) kelo_dm_unreg(std::exchange(handle_, nullptr));
  }

  /** @return the handle for the functions of data_manager.h and settings.h; null for no store. */
  [[nodiscard]] kelo_dm_handle* handle() const noexcept { return handle_; }
  /** @return whether there is a store. */
  explicit operator bool() const noexcept { return handle_ != nullptr; }

  /**
   * Names an item of the store. It is not looked up before it is used. It does not block.
   * @tparam T  type of its values, as for Item.
   * @param id  id of the item.
   * @return the item.
   */
  template <class T>
  [[nodiscard]] Item<T> item(std::int32_t id) const noexcept {
    return Item<T>(handle_, id);
  }

  /**
   * Stores the default of every registered item, as kelo_dm_construct_def_database() does. It blocks for the
   * access to the storage. A storage back-end that stores no defaults ends the process.
   * @return success; the code -1 when nothing is registered, and -3 for no store.
   */
  Result<void> store_defaults() const {
    return Result<void>::of(handle_ != nullptr ? kelo_dm_construct_def_database(handle_->id)
                                               : ItemCode::bad_argument);
  }

  /**
   * Empties the storage, as kelo_dm_clean() does. It blocks for the access to the storage.
   * @param keep_copy  whether the SQLite back-end keeps a dated copy first.
   * @return success; any other code is that of the storage, and -3 for no store.
   */
  Result<void> clean(bool keep_copy = false) const {
    return Result<void>::of(handle_ != nullptr ? kelo_dm_clean(handle_, keep_copy ? "" : nullptr)
                                               : ItemCode::bad_argument);
  }

 private:
  kelo_dm_handle* handle_ = nullptr;
};

}  // namespace kelo

#endif /* KELO_UTILS_KELO_STORE_HPP */
