#pragma once

#include <unistd.h>

namespace kx {

/// Owns an open file; a negative number stands for none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number) : number_(number) {}
  ~FileDescriptor() {
    if (isOpen()) close(number_);
  }
  FileDescriptor(const FileDescriptor &) = delete;
  FileDescriptor &operator=(const FileDescriptor &) = delete;

  bool isOpen() const { return number_ >= 0; }
  int number() const { return number_; }

 private:
  const int number_;
};

}  // namespace kx
