/* SPDX-License-Identifier: MIT */
/**
 * @file result.hpp
 * @brief The C++ face: a value or the code of a failure.
 */
#ifndef KELO_UTILS_KELO_RESULT_HPP
#define KELO_UTILS_KELO_RESULT_HPP

#include <cstdint>
#include <utility>

/** The C++ face of the library. The library itself uses none of the names in it. */
namespace kelo {

/** @cond */
template <class T>
class Item;
/** @endcond */

/**
 * What a call has given: a value, or the code of its failure.
 *
 * The code is that of the C function that the call uses. 0 is success, and every other code is a failure. The
 * value of a failure is the empty or zero one, unless the call says what else it is.
 *
 *     if (const auto channel = item.get()) use(channel.value());
 *     else report(channel.code());
 *
 * @tparam T  type of the value. It has a default constructor.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Different threads may use different results. It is not for signal handlers.
 */
template <class T>
class [[nodiscard]] Result {
 public:
  /** A success whose value is the empty or zero one. */
  Result() = default;
  /**
   * A success.
   * @param value  the value.
   */
  Result(T value) : value_(std::move(value)) {}

  /**
   * Makes a result of a failure.
   * @param code   its code, not 0.
   * @param value  what is known in spite of the failure.
   * @return the result.
   */
  static Result failed(std::int32_t code, T value = T()) {
    Result result(std::move(value));
    result.code_ = code;
    return result;
  }

  /**
   * Makes a result of a code and a value.
   * @param code   0 for a success, and any other code for a failure.
   * @param value  the value, or what is known in spite of the failure.
   * @return the result.
   */
  static Result of(std::int32_t code, T value) { return failed(code, std::move(value)); }

  /**
   * Makes a result of a call that writes its value itself.
   * @tparam Fill  type of `fill`.
   * @param fill   is called once with the value, a `T&`, and returns the code.
   * @return the result.
   */
  template <class Fill>
  static Result filled_by(Fill&& fill) {
    Result result;
    result.code_ = std::forward<Fill>(fill)(result.value_);
    return result;
  }

  /** @return true for a success. */
  [[nodiscard]] bool ok() const noexcept { return code_ == 0; }
  /** @return true for a success. */
  explicit operator bool() const noexcept { return ok(); }
  /** @return the code; 0 for a success. */
  [[nodiscard]] std::int32_t code() const noexcept { return code_; }

  /** @return the value. */
  [[nodiscard]] const T& value() const& noexcept { return value_; }
  /** @return the value. */
  [[nodiscard]] T& value() & noexcept { return value_; }
  /** @return the value, to be moved from. */
  [[nodiscard]] T&& value() && noexcept { return std::move(value_); }
  /**
   * Gives the value, or another one after a failure.
   * @param other  the value of a failure.
   * @return the value of a success, else `other`.
   */
  [[nodiscard]] T value_or(T other) const& {
    if (ok()) other = value_;
    return other;
  }
  /**
   * Gives the value, or another one after a failure.
   * @param other  the value of a failure.
   * @return the value of a success, else `other`.
   */
  [[nodiscard]] T value_or(T other) && {
    if (ok()) other = std::move(value_);
    return other;
  }

 private:
  friend class Item<T>;

  T value_{};
  std::int32_t code_ = 0;
};

/**
 * What a call without a value has given: success, or the code of its failure.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Different threads may use different results. It is not for signal handlers.
 */
template <>
class [[nodiscard]] Result<void> {
 public:
  /** A success. */
  Result() = default;

  /**
   * Makes a result of a code.
   * @param code  0 for a success, and any other code for a failure.
   * @return the result.
   */
  static Result of(std::int32_t code) noexcept {
    Result result;
    result.code_ = code;
    return result;
  }

  /** @return true for a success. */
  [[nodiscard]] bool ok() const noexcept { return code_ == 0; }
  /** @return true for a success. */
  explicit operator bool() const noexcept { return ok(); }
  /** @return the code; 0 for a success. */
  [[nodiscard]] std::int32_t code() const noexcept { return code_; }

 private:
  std::int32_t code_ = 0;
};

}  // namespace kelo

#endif /* KELO_UTILS_KELO_RESULT_HPP */
