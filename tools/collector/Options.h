#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/collector/CollectionService.h"
#include "tools/collector/NATSStream.h"
#include "tools/collector/Store.h"

namespace kx::collector {

/// A certificate of one's own, and its private key: PEM files.
struct CertificateFiles {
  std::filesystem::path certificate;
  std::filesystem::path key;
};

/// What the collector was started with.
struct Options {
  std::string address = "127.0.0.1";
  std::uint16_t port = 8443;                       ///< 0 for any free one
  std::optional<std::filesystem::path> directory;  ///< absent for the default one
  std::optional<CertificateFiles> certificate;     ///< absent for one of the collector's own authority
  bool newAuthority = false;                       ///< in the place of the one that is kept
  std::string pageAddress = "127.0.0.1";
  /// Where the page's password is; absent for a new one, which a page on loopback does without.
  std::optional<std::filesystem::path> pagePasswordFile;
  /// Where the keys of signed tokens are; absent for tokens that this collector alone knows.
  std::optional<std::filesystem::path> tokenKeys;
  CollectionServiceSettings service;
  bool page = true;
  std::optional<std::uint16_t> pagePort;  ///< absent for 8080 or the next free one; 0 for any free one
  std::optional<std::filesystem::path> database;  ///< absent to keep requests in memory
  std::size_t keep = Store::defaultKeep;          ///< how many requests are kept
  /// Where accepted messages are published; absent to keep them here.
  std::optional<NATSStreamSettings> stream;
  std::string operationsAddress = "127.0.0.1";
  std::optional<std::uint16_t> operationsPort;  ///< absent for none; 0 for any free one
  std::optional<std::size_t> maximumConnections;
  bool json = false;
  bool quiet = false;
  bool help = false;
  bool version = false;
};

/// Arguments that make no sense; says which and why.
class BadArguments : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads the command line. Throws BadArguments.
Options optionsFrom(int count, const char *const *arguments);

/// The version of the project that the collector belongs to.
extern const char *const version;

/// What `--help` prints.
void printHelp(std::ostream &output);

}  // namespace kx::collector
