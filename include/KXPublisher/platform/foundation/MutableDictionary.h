#pragma once

#include <memory>
#include <utility>

#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// A map that is shared between threads and can be emptied under its readers: whoever still holds it sees it
/// become empty. The contents change as one reference, so a reader copies either every entry or none.
class MutableDictionary {
 public:
  /// An empty map.
  MutableDictionary() : MutableDictionary(Dictionary()) {}
  explicit MutableDictionary(Dictionary contents)
      : contents_(std::make_shared<const Dictionary>(std::move(contents))) {}

  /// All entries as they are now; later changes of this map do not reach the returned one.
  std::shared_ptr<const Dictionary> contents() const { return contents_.get(); }

  /// `removeAllObjects`: empties the map in place.
  void removeAllObjects() { contents_.set(std::make_shared<const Dictionary>()); }

 private:
  AtomicProperty<std::shared_ptr<const Dictionary>> contents_;
};

}  // namespace kx
