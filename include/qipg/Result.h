/// @file
/// qipg::Result<T>: a value or the qipg::Error that explains its absence.
#pragma once

#include <utility>
#include <variant>

#include "qipg/Error.h"

namespace qipg {

/// Holds either a `T` or an Error, never both. A plain value: copyable when `T` is; like any
/// value it is not guarded, so hand it to another thread only after you stop changing it.
///
/// `value()` on an error and `error()` on a value throw std::bad_variant_access: test with
/// ok() (or the bool conversion) first.
template <class T>
class [[nodiscard]] Result {
 public:
  /// A result holding `value`.
  Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit
  /// A result holding `error`.
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}  // NOLINT: implicit

  /// True when a value is held.
  bool ok() const noexcept { return content_.index() == 0; }
  /// The same as ok().
  explicit operator bool() const noexcept { return ok(); }

  /// The value held; throws std::bad_variant_access when an error is held.
  T& value() & { return std::get<0>(content_); }
  /// @copydoc value()
  const T& value() const& { return std::get<0>(content_); }
  /// The value held, moved out; throws std::bad_variant_access when an error is held.
  T&& value() && { return std::get<0>(std::move(content_)); }

  /// The error held; throws std::bad_variant_access when a value is held.
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<T, Error> content_;
};

}  // namespace qipg
