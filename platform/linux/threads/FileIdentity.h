#pragma once

#include <sys/stat.h>

namespace kx {

/// Which open file a descriptor's number stands for. When a file is closed its number is another's, and only
/// this tells the two apart.
class FileIdentity {
 public:
  /// Of no file; equal to no other's.
  FileIdentity() = default;
  /// May be used in a signal handler.
  explicit FileIdentity(int descriptor) noexcept {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    isOpen_ = true;
  }

  /// Whether the number stands for that file now.
  bool isOf(int descriptor) const noexcept {
    const FileIdentity now(descriptor);
    return isOpen_ && now.isOpen_ && now.device_ == device_ && now.inode_ == inode_;
  }

 private:
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool isOpen_ = false;
};

}  // namespace kx
