#include "platform/linux/geocoding/MappedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

namespace kx {

std::unique_ptr<MappedFile> MappedFile::open(const std::string &path) {
  // Should it be a pipe, nobody waits for its other end.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return nullptr;
  struct stat status {};
  std::size_t size = 0;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0 &&
      status.st_size <= std::numeric_limits<std::int32_t>::max()) {
    size = static_cast<std::size_t>(status.st_size);
  }
  void *const address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);  // fails for size 0
  close(descriptor);
  if (address == MAP_FAILED) return nullptr;
  return std::unique_ptr<MappedFile>(new MappedFile(address, size));
}

MappedFile::~MappedFile() {
  munmap(address_, size_);
}

}  // namespace kx
