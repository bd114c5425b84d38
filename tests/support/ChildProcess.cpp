#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace kx {

namespace {

/// A pipe whose ends only a process that is told so inherits.
std::array<int, 2> newPipe() {
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
  return ends;
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> environmentWith(const std::vector<std::string> &added) {
  std::vector<std::string> environment = added;
  for (char **variable = environ; *variable != nullptr; ++variable) environment.emplace_back(*variable);
  return environment;
}

}  // namespace

bool eventually(const std::function<bool()> &condition, std::chrono::seconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

TemporaryDirectory::TemporaryDirectory()
    : path_((std::filesystem::temp_directory_path() / "kx-test-XXXXXX").string()) {
  if (mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path_);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ChildProcess::ChildProcess(const std::vector<std::string> &commandLine,
                           const std::vector<std::string> &environment) {
  const auto input = newPipe();
  const auto output = newPipe();
  const auto errors = newPipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  std::vector<std::string> arguments = commandLine;
  std::vector<std::string> variables = environmentWith(environment);
  const int result = posix_spawn(&pid_, arguments.front().c_str(), &actions, nullptr,
                                 pointersTo(arguments).data(), pointersTo(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  for (const int end : {input[0], output[1], errors[1]}) close(end);
  input_ = input[1];
  outputReader_ = std::thread([this, descriptor = output[0]] { gather(descriptor, output_); });
  errorReader_ = std::thread([this, descriptor = errors[0]] { gather(descriptor, errors_); });
  // A program that cannot be started has printed nothing and ended like a shell says so.
  if (result != 0) exitCode_ = 127;
}

ChildProcess::~ChildProcess() {
  closeInput();
  if (isRunning()) {
    sendSignal(SIGKILL);
    reap(0);
  }
  joinReaders();
}

void ChildProcess::write(const std::string &text) {
  // One that has ended takes nothing more; that must not end the test.
  std::signal(SIGPIPE, SIG_IGN);
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = ::write(input_, text.data() + written, text.size() - written);
    if (result < 0 && errno != EINTR) return;
    if (result > 0) written += static_cast<std::size_t>(result);
  }
}

void ChildProcess::closeInput() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

void ChildProcess::sendSignal(int signal) const {
  if (!exitCode_) kill(pid_, signal);
}

std::string ChildProcess::output() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return output_;
}

std::string ChildProcess::errors() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return errors_;
}

std::optional<int> ChildProcess::exitCode(std::chrono::seconds patience) {
  if (!eventually([this] { return !isRunning(); }, patience)) return std::nullopt;
  joinReaders();
  return exitCode_;
}

bool ChildProcess::isRunning() {
  return !exitCode_ && !reap(WNOHANG);
}

void ChildProcess::joinReaders() {
  if (outputReader_.joinable()) outputReader_.join();
  if (errorReader_.joinable()) errorReader_.join();
}

void ChildProcess::gather(int descriptor, std::string &text) {
  std::array<char, 4096> chunk;
  ssize_t size = 0;
  while ((size = read(descriptor, chunk.data(), chunk.size())) > 0 || (size < 0 && errno == EINTR)) {
    if (size < 0) continue;
    const std::lock_guard<std::mutex> lock(mutex_);
    text.append(chunk.data(), static_cast<std::size_t>(size));
  }
  close(descriptor);
}

bool ChildProcess::reap(int options) {
  int status = 0;
  if (waitpid(pid_, &status, options) != pid_) return false;
  exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return true;
}

}  // namespace kx
