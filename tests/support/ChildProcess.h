#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kx {

/// Waits until `condition` holds, for as long as a busy machine may need; false when it never did.
bool eventually(const std::function<bool()> &condition,
                std::chrono::seconds patience = std::chrono::seconds(30));

/// A directory for one test, which goes away with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

/// A program that a test runs. What it prints is gathered while it runs; it ends with the test at the latest.
class ChildProcess {
 public:
  /// The program's file and its arguments; `environment` is added to the test's own, "NAME=value" each.
  explicit ChildProcess(const std::vector<std::string> &commandLine,
                        const std::vector<std::string> &environment = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;

  /// Writes to its standard input.
  void write(const std::string &text);
  void closeInput();
  void sendSignal(int signal) const;
  /// Its number while it runs.
  pid_t process() const { return pid_; }

  /// What it has printed so far.
  std::string output() const;
  std::string errors() const;

  /// Waits for its end, and for all it has printed. The exit code, or minus the signal that has ended it;
  /// absent when it is still running after all that patience.
  std::optional<int> exitCode(std::chrono::seconds patience = std::chrono::seconds(30));
  bool isRunning();

 private:
  void gather(int descriptor, std::string &text);
  bool reap(int options);
  void joinReaders();

  pid_t pid_ = -1;
  int input_ = -1;
  std::optional<int> exitCode_;
  mutable std::mutex mutex_;
  std::string output_;
  std::string errors_;
  std::thread outputReader_;
  std::thread errorReader_;
};

}  // namespace kx
