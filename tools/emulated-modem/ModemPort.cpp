#include "tools/emulated-modem/ModemPort.h"

#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>

namespace kx::modem {

namespace {

int listeningOn(const std::string &name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path + 1, sizeof address.sun_path - 1);  // the zero before it makes it abstract
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0 || bind(descriptor, reinterpret_cast<const sockaddr *>(&address), size) != 0 ||
      listen(descriptor, 1) != 0) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  return descriptor;
}

}  // namespace

ModemPort::ModemPort(Handler handler)
    : handler_(std::move(handler)),
      name_("abstract:kx-emulated-modem-" + std::to_string(getpid())),
      listening_(listeningOn(name_)),
      listeningSource_(g_unix_fd_add(listening_, G_IO_IN, &whenOpened, this)) {}

ModemPort::~ModemPort() {
  for (const auto &[descriptor, opened] : opened_) {
    g_source_remove(opened.source);
    close(descriptor);
  }
  g_source_remove(listeningSource_);
  close(listening_);
}

void ModemPort::report(const std::vector<std::string> &lines) {
  for (const auto &[descriptor, opened] : opened_) send(descriptor, lines);
}

void ModemPort::send(int descriptor, const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines) text += "\r\n" + line + "\r\n";
  // So little always fits; who does not read has no modem.
  [[maybe_unused]] const ssize_t sent =
      ::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

gboolean ModemPort::whenOpened(gint descriptor, GIOCondition /*condition*/, gpointer data) {
  auto &port = *static_cast<ModemPort *>(data);
  const int connection = accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (connection >= 0) {
    const auto conditions = static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR);
    port.opened_[connection] = {g_unix_fd_add(connection, conditions, &whenReceived, data), ""};
  }
  return G_SOURCE_CONTINUE;
}

gboolean ModemPort::whenReceived(gint descriptor, GIOCondition /*condition*/, gpointer data) {
  auto &port = *static_cast<ModemPort *>(data);
  if (port.receive(descriptor)) return G_SOURCE_CONTINUE;
  port.opened_.erase(descriptor);
  close(descriptor);
  return G_SOURCE_REMOVE;
}

bool ModemPort::receive(int descriptor) {
  std::array<char, 1024> chunk;
  const ssize_t size = recv(descriptor, chunk.data(), chunk.size(), 0);
  if (size <= 0) return size < 0 && (errno == EAGAIN || errno == EINTR);
  std::string &received = opened_.at(descriptor).received;
  received.append(chunk.data(), static_cast<std::size_t>(size));
  for (auto end = received.find('\r'); end != std::string::npos; end = received.find('\r')) {
    std::string command = received.substr(0, end);
    received.erase(0, end + 1);
    command.erase(0, command.find_first_not_of("\n "));
    if (!command.empty()) send(descriptor, handler_(command));
  }
  return true;
}

}  // namespace kx::modem
