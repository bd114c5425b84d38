#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/collector/JSONValue.h"

namespace kx::collector {

/// What a message has under the keys of the message reference: without a copy of each, and found at once.
class MessageValues {
 public:
  /// The values of a plain text that keeps all rules of messages, in less time than a document takes; absent
  /// for every other text, which may be a message all the same: one with a key that is not in the reference,
  /// or with characters beyond ASCII.
  static std::optional<MessageValues> read(std::string_view json);

  /// Of any object, which has to outlive it.
  explicit MessageValues(const Document &message);

  MessageValues(MessageValues &&) = default;
  MessageValues &operator=(MessageValues &&) = default;

  /// An absent one when the message does not have it.
  const JSONValue &operator[](std::string_view key) const;

 private:
  class Reader;

  MessageValues();

  std::vector<char> text_;         // of values
  std::vector<JSONValue> values_;  // by the numbers of their rules
  ArrayElements elements_;
};

}  // namespace kx::collector
