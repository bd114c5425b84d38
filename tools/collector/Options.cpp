#include "tools/collector/Options.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/program_options.hpp>
#include <cmath>
#include <ostream>

#include "tools/collector/CertificateStore.h"
#include "tools/collector/Document.h"

namespace kx::collector {

namespace po = boost::program_options;

namespace {

constexpr double maximumSeconds = 86400.0;
constexpr long maximumBodySize = 1L << 30;
constexpr long maximumKeep = 100000000;
constexpr long maximumReplicas = 5;  // as JetStream has it
constexpr long maximumConnections = 1000000;
constexpr std::size_t maximumBodyForStream = 65536;

/// False for what is not a number, too.
bool isDuration(double seconds) {
  return seconds > 0 && seconds <= maximumSeconds;
}

/// An option that takes a value, as text; what it has to be is checked below.
po::value_semantic *value(const char *name) {
  return po::value<std::string>()->value_name(name);
}

po::options_description descriptions() {
  po::options_description described("Options");
  auto add = described.add_options();
  add("address", value("ADDRESS"), "listen on this address (127.0.0.1)");
  add("port", value("PORT"), "listen on this port (8443); 0 for any free one");
  add("directory", value("DIR"),
      "where the certificate authority is kept ($XDG_STATE_HOME/kx-collector or "
      "~/.local/state/kx-collector); it "
      "is made on the first start");
  add("new-ca", "make a new certificate authority first, in the place of the one that is kept");
  add("certificate", value("PEM"), "use this certificate, not one of the own authority");
  add("key", value("PEM"), "the private key of that certificate");
  add("login-status", value("N[:COUNT]"), "answer COUNT good logins (all) with status N instead");
  add("message-status", value("N[:COUNT]"), "answer COUNT good messages (all) with status N instead");
  add("login-delay", value("SECONDS"), "hold back the answer to every login");
  add("message-delay", value("SECONDS"), "hold back the answer to every message");
  add("login-drop", "close the connection instead of answering a login");
  add("message-drop", "close the connection instead of answering a message");
  add("expire-tokens", value("SECONDS"), "refuse an access token, with 403, when it is that old");
  add("token-keys", value("FILE"),
      "sign access tokens with the key in this file, and check them with it and a second one, so that "
      "collectors with the same keys take each other's tokens; they expire after a day, or --expire-tokens; "
      "SIGHUP has the file read anew");
  add("max-body", value("BYTES"), "refuse longer bodies, packed or unpacked (1048576; 65536 with --stream)");
  add("page-port", value("PORT"),
      "show the page on this port (8080 or the next free one); 0 for any free one");
  add("no-page", "show no page");
  add("database", value("FILE"), "keep the requests in this file, over restarts (in memory)");
  add("keep", value("N"),
      "keep the newest N requests (100000); in memory, fewer where they come to more than 512 MiB");
  add("page-address", value("ADDRESS"),
      "show the page on this address (127.0.0.1); on any but loopback it asks for a password");
  add("page-password-file", value("FILE"),
      "the page's password is the first line of this file; without it, one is made and printed");
  add("stream", value("URL[,URL]..."),
      "publish accepted messages to NATS JetStream there, and answer each when it is acknowledged; keep "
      "none, show no page, and log JSON Lines");
  add("stream-file", value("FILE"), "the same, with the URLs in the lines of this file");
  add("stream-credentials", value("FILE"), "the stream's user, as NATS's tools write it");
  add("stream-ca", value("PEM"), "trust these authorities for the stream");
  add("stream-name", value("NAME"), "the stream's name (KX-MESSAGES); it is made where it does not exist");
  add("stream-subject", value("SUBJECT"), "what its subjects begin with (kx.messages)");
  add("stream-replicas", value("N"), "how many servers keep each message, of a stream that is made (1)");
  add("stream-timeout", value("SECONDS"), "how long the stream may take (5)");
  add("operations-port", value("PORT"),
      "serve /metrics, /healthz and /readyz on this port; 0 for any free one");
  add("operations-address", value("ADDRESS"), "on this address (127.0.0.1)");
  add("max-connections", value("N"),
      "have so many clients at the same time (256, 192 of one address; with --stream 4096 of any)");
  add("json", "print one line of JSON for each event, for scripts");
  add("quiet", "print only the first line, refusals and failures");
  add("version", "print the version and exit");
  add("help,h", "print this and exit");
  return described;
}

/// The options that were given.
class Given {
 public:
  explicit Given(po::variables_map values) : values_(std::move(values)) {}

  bool has(const char *name) const { return values_.count(name) != 0; }

  std::optional<std::string> text(const char *name) const {
    if (!has(name)) return std::nullopt;
    return values_[name].as<std::string>();
  }

  std::optional<long> number(const char *name, long minimum, long maximum) const {
    const auto given = text(name);
    if (!given) return std::nullopt;
    long number = 0;
    if (!boost::conversion::try_lexical_convert(*given, number) || number < minimum || number > maximum) {
      refuse(name, "must be a number from " + std::to_string(minimum) + " to " + std::to_string(maximum));
    }
    return number;
  }

  std::optional<std::chrono::milliseconds> seconds(const char *name) const {
    const auto given = text(name);
    if (!given) return std::nullopt;
    double seconds = 0;
    if (!boost::conversion::try_lexical_convert(*given, seconds) || !isDuration(seconds)) {
      refuse(name, "must be a number of seconds, more than 0 and at most 86400");
    }
    return std::chrono::milliseconds(static_cast<long>(std::ceil(seconds * 1000)));
  }

  EndpointFaults faults(const std::string &endpoint) const {
    EndpointFaults faults;
    readStatus((endpoint + "-status").c_str(), faults);
    faults.delay = seconds((endpoint + "-delay").c_str()).value_or(faults.delay);
    faults.drop = has((endpoint + "-drop").c_str());
    return faults;
  }

  /// An IPv4 or IPv6 address.
  std::optional<std::string> address(const char *name) const {
    auto given = text(name);
    boost::system::error_code error;
    if (given) boost::asio::ip::make_address(*given, error);
    if (error) refuse(name, "must be an IPv4 or IPv6 address");
    return given;
  }

  [[noreturn]] void refuse(const std::string &name, const std::string &rule) const {
    throw BadArguments("--" + name + " " + rule + ", not " + quote(text(name.c_str()).value_or("")));
  }

 private:
  void readStatus(const char *name, EndpointFaults &faults) const {
    const auto given = text(name);
    if (!given) return;
    const auto colon = given->find(':');
    unsigned short status = 0;
    if (!boost::conversion::try_lexical_convert(given->substr(0, colon), status) || status < 200 ||
        status > 599) {
      refuse(name, "must be a status from 200 to 599, and may end in a colon and a count");
    }
    faults.status = status;
    if (colon == std::string::npos) return;
    unsigned short count = 0;
    const std::string countText = given->substr(colon + 1);
    const bool isNumber = countText.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || !boost::conversion::try_lexical_convert(countText, count) || count == 0) {
      refuse(name, "must have a count from 1 to 65535 after the colon");
    }
    faults.statusCount = count;
  }

  const po::variables_map values_;
};

/// Not what a message of the stream could be taken for, nor a wildcard.
bool isSubject(const std::string &subject) {
  const std::string framed = "." + subject + ".";
  return subject.find_first_of(" \t\r\n*>$") == std::string::npos && framed.find("..") == std::string::npos;
}

/// The texts between commas and ends of lines that are not empty.
std::vector<std::string> listed(const std::string &text) {
  std::vector<std::string> items;
  std::size_t begin = 0;
  while ((begin = text.find_first_not_of(" \t\r\n,", begin)) != std::string::npos) {
    const std::size_t end = text.find_first_of(" \t\r\n,", begin);
    items.push_back(text.substr(begin, end - begin));
    begin = std::min(end, text.size());
  }
  return items;
}

std::vector<std::string> serversFrom(const Given &given) {
  if (const auto urls = given.text("stream")) return listed(*urls);
  try {
    const std::filesystem::path file = given.text("stream-file").value_or("");
    refuseToShare(file);
    return listed(contentOf(file));
  } catch (const std::exception &error) {
    throw BadArguments(std::string("--stream-file cannot be used: ") + error.what());
  }
}

void refuseWithoutStream(const Given &given) {
  for (const char *const name : {"stream-credentials", "stream-ca", "stream-name", "stream-subject",
                                 "stream-replicas", "stream-timeout"}) {
    if (given.has(name)) throw BadArguments(std::string("--") + name + " needs --stream");
  }
}

void refuseBesideStream(const Given &given) {
  if (given.has("stream") && given.has("stream-file")) {
    throw BadArguments("--stream and --stream-file exclude each other");
  }
  for (const char *const name : {"database", "keep", "page-port", "page-address", "page-password-file"}) {
    if (given.has(name)) {
      throw BadArguments(std::string("--stream and --") + name +
                         " exclude each other: what the stream has is not kept here");
    }
  }
}

NATSStreamSettings streamFrom(const Given &given) {
  NATSStreamSettings stream;
  stream.servers = serversFrom(given);
  if (stream.servers.empty()) throw BadArguments("there is no URL of a stream");
  for (const std::string &server : stream.servers) {
    if (server.rfind("nats://", 0) == 0 || server.rfind("tls://", 0) == 0) continue;
    throw BadArguments("the URL of a stream must begin with nats:// or tls://");  // it may have a password
  }
  stream.credentials = given.text("stream-credentials");
  stream.authority = given.text("stream-ca");
  stream.name = given.text("stream-name").value_or(stream.name);
  if (stream.name.empty() || stream.name.find_first_of(" \t\r\n.*>/\\") != std::string::npos) {
    given.refuse("stream-name", "must be a name without blanks, dots, slashes and wildcards");
  }
  stream.subject = given.text("stream-subject").value_or(stream.subject);
  if (!isSubject(stream.subject)) given.refuse("stream-subject", "must be words with dots between them");
  stream.replicas = static_cast<unsigned>(
      given.number("stream-replicas", 1, maximumReplicas).value_or(static_cast<long>(stream.replicas)));
  stream.timeout = given.seconds("stream-timeout").value_or(stream.timeout);
  stream.attemptTimeout = std::min(stream.attemptTimeout, stream.timeout);
  stream.patience = std::min(stream.patience, stream.timeout);
  return stream;
}

void readStream(const Given &given, Options &options) {
  if (!given.has("stream") && !given.has("stream-file")) return refuseWithoutStream(given);
  refuseBesideStream(given);
  options.stream = streamFrom(given);
  options.service.maximumBodySize = std::min(options.service.maximumBodySize, maximumBodyForStream);
}

void readOperations(const Given &given, Options &options) {
  options.operationsAddress = given.address("operations-address").value_or(options.operationsAddress);
  if (const auto port = given.number("operations-port", 0, 65535)) {
    options.operationsPort = static_cast<std::uint16_t>(*port);
  } else if (given.has("operations-address")) {
    throw BadArguments("--operations-address needs --operations-port");
  }
}

void readPage(const Given &given, Options &options) {
  options.page = !given.has("no-page") && !options.stream;
  options.pageAddress = given.address("page-address").value_or(options.pageAddress);
  options.pagePasswordFile = given.text("page-password-file");
  if (const auto port = given.number("page-port", 0, 65535)) {
    if (!options.page) throw BadArguments("--no-page and --page-port exclude each other");
    options.pagePort = static_cast<std::uint16_t>(*port);
  }
}

void readCertificate(const Given &given, Options &options) {
  const auto certificate = given.text("certificate");
  const auto key = given.text("key");
  if (certificate.has_value() != key.has_value())
    throw BadArguments("--certificate and --key need each other");
  options.newAuthority = given.has("new-ca");
  if (certificate && options.newAuthority) {
    throw BadArguments("--new-ca makes an authority, which --certificate does without");
  }
  if (certificate && key) options.certificate = CertificateFiles{*certificate, *key};
}

void readLimits(const Given &given, Options &options) {
  if (const auto size = given.number("max-body", 1, maximumBodySize)) {
    options.service.maximumBodySize = static_cast<std::size_t>(*size);
  }
  if (const auto number = given.number("max-connections", 1, maximumConnections)) {
    options.maximumConnections = static_cast<std::size_t>(*number);
  }
  if (const auto keep = given.number("keep", 1, maximumKeep)) options.keep = static_cast<std::size_t>(*keep);
}

Given givenIn(int count, const char *const *arguments) {
  using Style = po::command_line_style::style_t;
  const int style = Style::unix_style & ~Style::allow_guessing;
  po::variables_map values;
  try {
    po::store(po::command_line_parser(count, arguments)
                  .options(descriptions())
                  .positional(po::positional_options_description())
                  .style(style)
                  .run(),
              values);
  } catch (const po::error &error) {
    throw BadArguments(error.what());
  }
  return Given(std::move(values));
}

}  // namespace

Options optionsFrom(int count, const char *const *arguments) {
  const Given given = givenIn(count, arguments);
  Options options;
  options.help = given.has("help");
  options.json = given.has("json");
  options.version = given.has("version");
  options.quiet = given.has("quiet");
  options.address = given.address("address").value_or(options.address);
  options.port = static_cast<std::uint16_t>(given.number("port", 0, 65535).value_or(options.port));

  options.directory = given.text("directory");
  options.database = given.text("database");
  readCertificate(given, options);
  options.service.login = given.faults("login");
  options.service.message = given.faults("message");
  options.service.tokenLifetime = given.seconds("expire-tokens");
  options.tokenKeys = given.text("token-keys");
  readStream(given, options);
  readLimits(given, options);
  readOperations(given, options);
  readPage(given, options);
  return options;
}

const char *const version = KX_COLLECTOR_VERSION;

void printHelp(std::ostream &output) {
  output << "kx-collector, a collection service for development: takes the logins and the messages of\n"
            "KXPublisher over HTTPS, holds them against the wire protocol and prints them.\n\n"
            "Usage: kx-collector [options]\n\n"
         << descriptions()
         << "\nIts first line says where it listens and which CA file a client has to trust; the next ones\n"
            "what to do with both. SIGINT and SIGTERM end it. NO_COLOR in the environment keeps it from\n"
            "colouring what it prints on a terminal.\n";
}

}  // namespace kx::collector
