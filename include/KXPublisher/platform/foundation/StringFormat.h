#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "KXPublisher/platform/foundation/Export.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// One argument of a format, with its type kept, so that a placeholder of the wrong kind can do no harm.
/// An absent text or object prints as "(null)".
class KX_EXPORT FormatArgument {
 public:
  template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
  FormatArgument(Integer integer)
      : kind_(std::is_signed_v<Integer> ? Kind::signedInteger : Kind::unsignedInteger),
        integer_(static_cast<std::uint64_t>(integer)) {}
  FormatArgument(double number) : kind_(Kind::number), number_(number) {}
  FormatArgument(const char *text) : text_(text == nullptr ? "(null)" : text) {}
  FormatArgument(std::string text) : text_(std::move(text)) {}
  FormatArgument(std::string_view text) : text_(text) {}
  FormatArgument(const std::optional<std::string> &text) : text_(text ? *text : "(null)") {}
  FormatArgument(const Value &value) : text_(value.description()) {}
  FormatArgument(const Dictionary &dictionary) : text_(dictionary.description()) {}
  /// The object is asked for its `description` when the text is made.
  FormatArgument(const Object *object) : kind_(Kind::object), object_(object) {}
  FormatArgument(const FormatArgument &) = default;
  FormatArgument(FormatArgument &&) = default;
  FormatArgument &operator=(const FormatArgument &) = default;
  FormatArgument &operator=(FormatArgument &&) = default;
  ~FormatArgument() = default;

 private:
  friend std::string stringWithFormat(std::string_view, std::initializer_list<FormatArgument>);
  enum class Kind { text, object, signedInteger, unsignedInteger, number };

  /// Appends this argument as the conversion `specification` ("%@", "%-8lu" ...) asks, or as it is if that
  /// conversion is for another kind.
  void append(std::string_view specification, std::string &to) const;

  Kind kind_ = Kind::text;
  std::uint64_t integer_ = 0;
  double number_ = 0;
  const Object *object_ = nullptr;
  std::string text_{};
};

/// `stringWithFormat:`: fills a format with printf-style placeholders and the object placeholder "%@". A
/// placeholder without an argument stays as it is, and an argument without a placeholder is left out.
KX_EXPORT std::string stringWithFormat(std::string_view format,
                                       std::initializer_list<FormatArgument> arguments);

}  // namespace kx
