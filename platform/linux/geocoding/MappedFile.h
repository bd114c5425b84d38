#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kx {

/// A file's contents, mapped into memory to be read: they cost memory only where they are looked at, and that
/// memory is the kernel's to take back.
///
/// A file that is replaced, which means that another one takes its name, stays as it was for whoever has it
/// mapped. One that is cut short in place takes its end away, and whoever looks there is ended by SIGBUS:
/// this is for files that are installed with the library, whose own code is mapped in the same way and has to
/// be treated with the same care.
class MappedFile {
 public:
  /// Maps what the file holds now. A null pointer when there is no such regular file, it is empty, or it
  /// cannot be read.
  static std::unique_ptr<MappedFile> open(const std::string &path);
  ~MappedFile();
  MappedFile(const MappedFile &) = delete;
  MappedFile &operator=(const MappedFile &) = delete;

  const std::uint8_t *bytes() const { return static_cast<const std::uint8_t *>(address_); }
  std::size_t size() const { return size_; }

 private:
  MappedFile(void *address, std::size_t size) : address_(address), size_(size) {}

  void *const address_;
  const std::size_t size_;
};

}  // namespace kx
