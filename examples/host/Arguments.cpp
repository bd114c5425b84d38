#include "examples/host/Arguments.h"

#include <gio/gio.h>
#include <unistd.h>

#include <cmath>
#include <iostream>

namespace {

constexpr double maximumExitAfter = 4000000;  // seconds, what GLib's timer can count

/// A name or an address, and maybe a port: what can stand between "https://" and the path of a URL.
bool isHostname(const std::string &text) {
  g_autoptr(GUri) uri = g_uri_parse(("https://" + text).c_str(), G_URI_FLAGS_NONE, nullptr);
  if (uri == nullptr || text.find_first_of(" \t\r\n") != std::string::npos) return false;
  const char *host = g_uri_get_host(uri);
  const bool isMore = g_uri_get_userinfo(uri) != nullptr || *g_uri_get_path(uri) != '\0' ||
                      g_uri_get_query(uri) != nullptr || g_uri_get_fragment(uri) != nullptr;
  return host != nullptr && *host != '\0' && g_uri_get_port(uri) != 0 && !isMore;
}

/// False for what is not a number, too.
bool isTimeToExit(double seconds) {
  return seconds > 0 && seconds <= maximumExitAfter;
}

/// What is wrong with the arguments; empty when nothing is.
std::string problemWith(const Arguments &arguments) {
  const auto &options = arguments.options;
  if (arguments.apiToken.empty()) return "--api-token is missing";
  if (arguments.hostname.empty()) return "--hostname is missing";
  if (!isHostname(arguments.hostname)) {
    return "--hostname must be a host name, and may end in a colon and a port";
  }
  if (options.certificateAuthorityFile && access(options.certificateAuthorityFile->c_str(), R_OK) != 0) {
    return "--ca-file cannot be read: " + *options.certificateAuthorityFile;
  }
  if (options.advertisingIdentifier && !g_uuid_string_is_valid(options.advertisingIdentifier->c_str())) {
    return "--ifa must be a UUID, like 6D92078A-8246-4BA4-AE5B-76104861E7DC";
  }
  if (!g_application_id_is_valid(arguments.applicationID.c_str())) {
    return "--application-id must be one, like com.example.KXHost";
  }
  if (arguments.exitAfter && !isTimeToExit(*arguments.exitAfter)) {
    return "--exit-after must be a number of seconds, more than 0 and at most 4000000";
  }
  return "";
}

std::string taken(char *text) {
  std::string value = text == nullptr ? "" : text;
  g_free(text);
  return value;
}

std::optional<std::string> takenIfGiven(char *text) {
  return text == nullptr ? std::nullopt : std::optional<std::string>(taken(text));
}

/// A number in the notation of the C locale; NaN when the text is none.
double numberFrom(const std::string &text) {
  char *end = nullptr;
  const double number = g_ascii_strtod(text.c_str(), &end);
  return end == text.c_str() || *end != '\0' ? std::nan("") : number;
}

}  // namespace

std::optional<Arguments> argumentsFrom(int count, char **values) {
  char *apiToken = nullptr;
  char *hostname = nullptr;
  char *certificateAuthorityFile = nullptr;
  char *advertisingIdentifier = nullptr;
  char *applicationID = nullptr;
  char *exitAfter = nullptr;
  gboolean trackingLimited = FALSE;
  gboolean noBackgroundRefresh = FALSE;
  gboolean debug = FALSE;
  gboolean explain = FALSE;
  const GOptionEntry entries[] = {
      {"api-token", 0, 0, G_OPTION_ARG_STRING, &apiToken, "The API token for the service (required)", "T"},
      {"hostname", 0, 0, G_OPTION_ARG_STRING, &hostname, "The service (required)", "HOST[:PORT]"},
      {"ca-file", 0, 0, G_OPTION_ARG_FILENAME, &certificateAuthorityFile,
       "Trust these certificate authorities too", "PEM"},
      {"ifa", 0, 0, G_OPTION_ARG_STRING, &advertisingIdentifier,
       "The advertising identifier; without one no message is sent", "UUID"},
      {"tracking-limited", 0, 0, G_OPTION_ARG_NONE, &trackingLimited, "The user asked not to be tracked",
       nullptr},
      {"application-id", 0, 0, G_OPTION_ARG_STRING, &applicationID,
       "Run as this application (com.example.KXHost)", "ID"},
      {"no-background-refresh", 0, 0, G_OPTION_ARG_NONE, &noBackgroundRefresh,
       "Do not work in the background", nullptr},
      {"debug", 0, 0, G_OPTION_ARG_NONE, &debug, "Print the whole log of the library", nullptr},
      {"explain", 0, 0, G_OPTION_ARG_NONE, &explain,
       "Tell before the end why messages arrived, or did not, and what to do", nullptr},
      {"exit-after", 0, 0, G_OPTION_ARG_STRING, &exitAfter, "Quit by itself", "SECONDS"},
      {}};
  g_autoptr(GOptionContext) context = g_option_context_new("- reports its context to a collection service");
  const std::string description =
      std::string("Each character on standard input is a command:\n  ") + commandHelp + "\n";
  g_option_context_set_description(context, description.c_str());
  g_option_context_add_main_entries(context, entries, nullptr);
  g_autoptr(GError) error = nullptr;
  const bool parsed = g_option_context_parse(context, &count, &values, &error);

  Arguments arguments;
  arguments.apiToken = taken(apiToken);
  arguments.hostname = taken(hostname);
  arguments.options.certificateAuthorityFile = takenIfGiven(certificateAuthorityFile);
  arguments.options.advertisingIdentifier = takenIfGiven(advertisingIdentifier);
  arguments.applicationID = takenIfGiven(applicationID).value_or(arguments.applicationID);
  arguments.options.advertisingTrackingEnabled = !trackingLimited;
  if (noBackgroundRefresh) arguments.options.backgroundRefreshStatus = kx::BackgroundRefreshStatus::denied;
  arguments.debug = debug;
  arguments.explain = explain;
  if (const auto seconds = takenIfGiven(exitAfter)) arguments.exitAfter = numberFrom(*seconds);

  std::string problem;
  if (!parsed) {
    problem = error->message;
  } else if (count > 1) {
    problem = std::string("unexpected argument ") + values[1];
  } else {
    problem = problemWith(arguments);
  }
  if (problem.empty()) return arguments;
  std::cerr << "kx-host: " << problem << "\nSee kx-host --help." << std::endl;
  return std::nullopt;
}
