// A host application in one file: a GLib application that reports its context to a collection service. What
// it does with KXPublisher stands in `startReporting` and `runCommand`; the rest is any GLib application's.

#include <KXPublisher/platform/linux/LinuxHost.h>
#include <gio/gio.h>
#include <gio/gunixinputstream.h>
#include <glib-unix.h>
#include <unistd.h>

#include <KXPublisher/KXPublisher.hpp>
#include <cmath>
#include <iostream>
#include <memory>

#include "examples/host/Arguments.h"

namespace {

constexpr int badArguments = 2;  // exit code

struct Host {
  Arguments arguments;
  GApplication *application = nullptr;
  std::shared_ptr<kx::KXPublisher> publisher;
  GDataInputStream *input = nullptr;
  bool failed = false;
};

// ---- KXPublisher

// On the main thread, and nothing of the library has been called before.
bool startReporting(Host &host) {
  if (!kx::LinuxHost::setOptions(host.arguments.options)) return false;
  host.publisher =
      kx::KXPublisher::sharedInstanceWithApiToken(host.arguments.apiToken, host.arguments.hostname);
  if (host.publisher == nullptr) return false;
  if (host.arguments.debug) host.publisher->enableDebugging();
  return true;
}

void explain() {
  std::cout << kx::KXPublisher::diagnosis().text() << std::endl;
}

void runCommand(Host &host, char command) {
  switch (command) {
    case 'b':
      kx::LinuxHost::didEnterBackground();
      break;
    case 'f':
      kx::LinuxHost::willEnterForeground();
      break;
    case 'd':
      host.publisher->enableDebugging();
      break;
    case 'D':
      host.publisher->disableDebugging();
      break;
    case 'e':
      explain();
      break;
    case 'p':
      std::cout << host.publisher->description() << std::endl;
      break;
    case 'q':
      g_application_quit(host.application);
      break;
    default:
      if (g_ascii_isspace(command)) break;
      std::cerr << "kx-host: unknown command";
      if (g_ascii_isprint(command)) std::cerr << " '" << command << "'";
      std::cerr << "; there are: " << commandHelp << std::endl;
  }
}

// ---- Standard input

void lineRead(GObject *source, GAsyncResult *result, void *data);

void readLine(Host &host) {
  g_data_input_stream_read_line_async(host.input, G_PRIORITY_DEFAULT, nullptr, lineRead, &host);
}

void lineRead(GObject * /*source*/, GAsyncResult *result, void *data) {
  Host &host = *static_cast<Host *>(data);
  g_autofree char *line = g_data_input_stream_read_line_finish(host.input, result, nullptr, nullptr);
  // The end of the input is not the end of the application.
  if (line == nullptr) return;
  for (const char *command = line; *command != '\0'; ++command) runCommand(host, *command);
  readLine(host);
}

// ---- The application

void activate(GApplication *application, void *data) {
  Host &host = *static_cast<Host *>(data);
  // There is no window that would keep it running.
  g_application_hold(application);
  if (!startReporting(host)) {
    std::cerr << "kx-host: not enough memory" << std::endl;
    host.failed = true;
    g_application_quit(application);
    return;
  }
  const auto quit = [](void *quitting) -> gboolean {
    g_application_quit(static_cast<GApplication *>(quitting));
    return G_SOURCE_REMOVE;
  };
  if (host.arguments.explain) {
    // Ended from outside, too, it has something to say.
    for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, quit, application);
  }
  if (host.arguments.exitAfter) {
    g_timeout_add(static_cast<guint>(std::ceil(*host.arguments.exitAfter * 1000)), quit, application);
  }
  if (isatty(STDIN_FILENO) == 1) std::cout << commandHelp << std::endl;
  readLine(host);
}

int run(const Arguments &arguments) {
  g_autoptr(GInputStream) standardInput = g_unix_input_stream_new(STDIN_FILENO, /*close_fd=*/FALSE);
  g_autoptr(GDataInputStream) input = g_data_input_stream_new(standardInput);
  g_autoptr(GApplication) application =
      g_application_new(arguments.applicationID.c_str(), G_APPLICATION_NON_UNIQUE);
  Host host{arguments, application, nullptr, input};
  g_signal_connect(application, "activate", G_CALLBACK(activate), &host);
  const int exitCode = g_application_run(application, 0, nullptr);
  if (host.arguments.explain) explain();
  return host.failed ? 1 : exitCode;
}

}  // namespace

int main(int count, char **values) {
  const auto arguments = argumentsFrom(count, values);
  return arguments ? run(*arguments) : badArguments;
}
