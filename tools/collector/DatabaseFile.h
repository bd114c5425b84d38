#pragma once

#include <filesystem>
#include <memory>

#include "tools/collector/Database.h"

namespace kx::collector {

/// A file of requests that no other collector has open meanwhile.
class DatabaseFile {
 public:
  /// Makes the file if there is none, or an empty one. Throws DatabaseError for one of something else, of
  /// another version, damaged, or in use; it is left as it is then.
  explicit DatabaseFile(const std::filesystem::path &file);
  ~DatabaseFile();
  DatabaseFile(const DatabaseFile &) = delete;
  DatabaseFile &operator=(const DatabaseFile &) = delete;

  /// Another connection to it, with a log that is written ahead. It must not outlive this object.
  std::unique_ptr<Database> connect() const;

 private:
  void lock();
  void check() const;
  [[noreturn]] void refuse(const std::string &reason) const;

  const std::filesystem::path file_;
  int descriptor_ = -1;
};

}  // namespace kx::collector
