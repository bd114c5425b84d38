#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "KXPublisher/platform/foundation/Export.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// One argument of a format, with its type kept, so that a placeholder of the wrong kind can do no harm.
/// An absent text or object prints as "(null)".
///
/// It refers to what it is made of, which has to live until the text is made: write arguments in the call.
class KX_EXPORT FormatArgument {
 public:
  template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
  FormatArgument(Integer integer)
      : argument_(static_cast<std::conditional_t<std::is_signed_v<Integer>, std::int64_t, std::uint64_t>>(
            integer)) {}
  FormatArgument(double number) : argument_(number) {}
  FormatArgument(const char *text) : argument_(std::string_view(text == nullptr ? "(null)" : text)) {}
  FormatArgument(const std::string &text) : argument_(std::string_view(text)) {}
  FormatArgument(std::string_view text) : argument_(text) {}
  FormatArgument(const std::optional<std::string> &text)
      : argument_(text ? std::string_view(*text) : std::string_view("(null)")) {}
  FormatArgument(const Value &value) : argument_(&value) {}
  FormatArgument(const Dictionary &dictionary) : argument_(&dictionary) {}
  /// The object is asked for its `description` when the text is made.
  FormatArgument(const Object *object) : argument_(object) {}

 private:
  friend std::string stringWithFormat(std::string_view, std::initializer_list<FormatArgument>);

  /// Appends this argument as the conversion `specification` ("%@", "%-8lu" ...) asks, or as it is if that
  /// conversion is for another kind.
  KX_HIDDEN void append(std::string_view specification, std::string &to) const;

  std::variant<std::string_view, std::int64_t, std::uint64_t, double, const Value *, const Dictionary *,
               const Object *>
      argument_;
};

/// `stringWithFormat:`: fills a format with printf-style placeholders and the object placeholder "%@". A
/// placeholder without an argument stays as it is, and an argument without a placeholder is left out.
KX_EXPORT std::string stringWithFormat(std::string_view format,
                                       std::initializer_list<FormatArgument> arguments);

}  // namespace kx
