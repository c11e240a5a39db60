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

#include <cstdint>
#include <type_traits>
#include <utility>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/kelo/item_values.hpp"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/kelo/subscription.hpp"
#include "kelo_utils/settings.h"

namespace kelo {

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
