#pragma once

#include <cstddef>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kx::places {

/// Input that is not what it has to be: "cities15000.txt:17: there are 18 fields, not 19".
class MalformedInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The lines of a text file, without empty ones and those that begin with "#".
class InputLines {
 public:
  /// `name`: the file, for messages.
  InputLines(std::istream &input, std::string name) : input_(input), name_(std::move(name)) {}

  /// Goes to the next line; false at the end. Throws MalformedInput when the line is not UTF-8, or holds a
  /// control character that is no tab, or the file cannot be read.
  bool next();
  const std::string &line() const { return line_; }

  /// The line, cut at its tabs. Throws MalformedInput when it has not that many fields.
  std::vector<std::string> fields(std::size_t count) const;

  /// Throws MalformedInput for this line.
  [[noreturn]] void fail(const std::string &reason) const;

 private:
  std::istream &input_;
  const std::string name_;
  std::string line_;
  std::size_t number_ = 0;
};

/// Whether `text` is two capital letters.
bool isCountryCode(const std::string &text);

/// Whether `text` is made as time zones' identifiers are: names of letters, digits, "_", "+" and "-", with
/// "/" between them, the first character a letter.
bool isTimeZone(const std::string &text);

}  // namespace kx::places
