#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstring>

#include "KXPublisher/platform/foundation/JSONSerialization.h"
#include "tests/fuzz/Fuzzing.h"

// Any value becomes JSON text that says the same, or none at all.

namespace kx {
namespace {

using nlohmann::ordered_json;

/// A value, and beside it what another library makes of the same.
struct Twins {
  Value ours;
  ordered_json theirs;
  bool isJSON = true;
};

std::string textOf(FuzzedDataProvider &input, bool &isJSON) {
  std::string text = input.ConsumeRandomLengthString(40);
  isJSON = isJSON && isUTF8(text);
  return text;
}

Twins twins(FuzzedDataProvider &input, int depth) {
  bool isJSON = true;
  switch (input.ConsumeIntegralInRange(0, depth > 12 ? 3 : 5)) {
    case 0: {
      const bool boolean = input.ConsumeBool();
      return {boolean, boolean};
    }
    case 1: {
      const auto integer = input.ConsumeIntegral<std::int64_t>();
      return {integer, integer};
    }
    case 2: {
      const auto bits = input.ConsumeIntegral<std::uint64_t>();
      double number = 0;
      std::memcpy(&number, &bits, sizeof number);
      return {number, number, std::isfinite(number)};
    }
    case 3: {
      const std::string text = textOf(input, isJSON);
      return {text, text, isJSON};
    }
    case 4: {
      Array ours;
      ordered_json theirs = ordered_json::array();
      for (int count = input.ConsumeIntegralInRange(0, 5); count > 0; --count) {
        Twins element = twins(input, depth + 1);
        ours.push_back(std::move(element.ours));
        theirs.push_back(std::move(element.theirs));
        isJSON = isJSON && element.isJSON;
      }
      return {ours, theirs, isJSON};
    }
    default: {
      Dictionary ours;
      ordered_json theirs = ordered_json::object();
      for (int count = input.ConsumeIntegralInRange(0, 5); count > 0; --count) {
        const std::string key = textOf(input, isJSON);
        if (theirs.contains(key)) continue;
        Twins member = twins(input, depth + 1);
        ours.set(key, std::move(member.ours));
        theirs[key] = std::move(member.theirs);
        isJSON = isJSON && member.isJSON;
      }
      return {ours, theirs, isJSON};
    }
  }
}

}  // namespace
}  // namespace kx

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  using kx::require;
  FuzzedDataProvider input(bytes, size);
  const kx::Twins value = kx::twins(input, 0);
  const auto text = kx::JSONSerialization::dataWithJSONObject(value.ours);
  const bool hasTopLevel = value.ours.array() != nullptr || value.ours.dictionary() != nullptr;
  require(text.has_value() == (hasTopLevel && value.isJSON), "there is a text exactly where there is JSON");
  if (text) {
    require(text->find("\\/") == std::string::npos || text->find("\\\\/") != std::string::npos,
            "a slash is plain");
    require(nlohmann::ordered_json::parse(*text) == value.theirs, "the text says what the value is");
  }
  const std::string description = kx::JSONSerialization::descriptionOf(value.ours);
  require(!value.isJSON || nlohmann::ordered_json::parse(description) == value.theirs,
          "a description says the same");
  return 0;
}
