#include "bindings/objective-c/ObjectiveCFace.h"

#include <map>
#include <mutex>

namespace kx {

namespace {

/// Faces by the objects that they are in front of. A face that is there keeps its object alive, so an address
/// is never that of another one; an entry without a face is stale.
struct Faces {
  std::mutex mutex;
  struct Entry {
    __weak id face = nil;
  };
  std::map<const Object *, Entry> all;
};

Faces &faces() {
  static auto &faces = *new Faces;
  return faces;
}

}  // namespace

id knownFaceOf(const Object *object) {
  id face = nil;  // released without the lock
  const std::lock_guard<std::mutex> lock(faces().mutex);
  const auto found = faces().all.find(object);
  if (found != faces().all.end()) face = found->second.face;
  return face;
}

id becomeFaceOf(const Object *object, id face) {
  id known = nil;
  const std::lock_guard<std::mutex> lock(faces().mutex);
  Faces::Entry &entry = faces().all[object];
  known = entry.face;
  if (known == nil) entry.face = known = face;
  return known;
}

void forgetFaceOf(const Object *object) noexcept {
  id successor = nil;  // released without the lock
  const std::lock_guard<std::mutex> lock(faces().mutex);
  const auto found = faces().all.find(object);
  if (found == faces().all.end()) return;
  successor = found->second.face;
  if (successor == nil) faces().all.erase(found);
}

}  // namespace kx
