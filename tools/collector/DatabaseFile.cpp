#include "tools/collector/DatabaseFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

namespace kx::collector {

namespace {

// What SQLite keeps for applications in the header of a file: whose it is, and in which version.
constexpr std::uint32_t applicationId = 0x6B786331;  // "kxc1"
constexpr std::uint32_t schemaVersion = 1;

constexpr std::string_view magic("SQLite format 3\0", 16);
constexpr std::size_t headerSize = 100;
constexpr std::size_t versionOffset = 60;
constexpr std::size_t applicationOffset = 68;

constexpr const char *tables = R"(
  CREATE TABLE request(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    time INTEGER NOT NULL,
    kind TEXT NOT NULL,
    accepted INTEGER NOT NULL,
    status INTEGER NOT NULL,
    reason TEXT NOT NULL,
    device TEXT,
    bundle TEXT,
    packedSize INTEGER NOT NULL,
    unpackedSize INTEGER NOT NULL,
    warnings TEXT,
    fault TEXT,
    eventId TEXT,
    eventTime INTEGER,
    latitude REAL,
    longitude REAL,
    horizontalAccuracy REAL,
    receive INTEGER NOT NULL,
    work INTEGER NOT NULL,
    send INTEGER NOT NULL);
  CREATE INDEX device ON request(device, bundle, kind, id, time, accepted) WHERE device IS NOT NULL;
  CREATE TABLE content(
    id INTEGER PRIMARY KEY,
    method BLOB NOT NULL,
    target BLOB NOT NULL,
    remoteAddress TEXT NOT NULL,
    headerFields BLOB NOT NULL,
    body BLOB NOT NULL,
    text BLOB,
    offendingOffset INTEGER,
    offendingBytes BLOB,
    answerFields BLOB NOT NULL);
)";

std::uint32_t bigEndian(const unsigned char *bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 |
         std::uint32_t{bytes[3]};
}

/// Empty for a file that can be read through.
std::string damageIn(const std::string &file) {
  try {
    Database database(file, SQLITE_OPEN_READONLY);
    Statement statement(database, "PRAGMA quick_check(1)");
    const std::string result = statement.step() ? statement.text(0) : "it cannot be checked";
    return result == "ok" ? "" : result;
  } catch (const DatabaseError &error) {
    return error.what();
  }
}

/// In a database that is empty.
void createTables(Database &database) {
  // In one step, so that no file is left that is half ours.
  Transaction transaction(database);
  database.execute(tables);
  database.execute(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
  database.execute(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
  transaction.commit();
}

}  // namespace

DatabaseFile::DatabaseFile(const std::filesystem::path &file) : file_(file) {
  descriptor_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor_ < 0) refuse(std::generic_category().message(errno));
  try {
    lock();
    check();
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

DatabaseFile::~DatabaseFile() {
  close(descriptor_);
}

void DatabaseFile::lock() {
  // SQLite's own locks are of another kind, and these two do not see each other.
  if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
  refuse(errno == EWOULDBLOCK ? std::string("another collector has it open")
                              : std::generic_category().message(errno));
}

void DatabaseFile::check() const {
  // Read without SQLite, which would finish what a program has left half done in a file of its own.
  std::array<unsigned char, headerSize> header{};
  const ssize_t size = pread(descriptor_, header.data(), header.size(), 0);
  if (size < 0) refuse(std::generic_category().message(errno));
  if (size == 0) {
    Database database(file_.string(), SQLITE_OPEN_READWRITE);
    createTables(database);
    return;
  }
  if (static_cast<std::size_t>(size) < headerSize ||
      std::memcmp(header.data(), magic.data(), magic.size()) != 0 ||
      bigEndian(header.data() + applicationOffset) != applicationId) {
    refuse("it is not a database of kx-collector");
  }
  const std::uint32_t version = bigEndian(header.data() + versionOffset);
  if (version != schemaVersion) {
    refuse("it has version " + std::to_string(version) + ", and this program reads version " +
           std::to_string(schemaVersion));
  }
  const std::string damage = damageIn(file_.string());
  if (!damage.empty()) refuse("it is damaged: " + damage);
}

std::unique_ptr<Database> DatabaseFile::connect() const {
  auto database = std::make_unique<Database>(file_.string(), SQLITE_OPEN_READWRITE);
  database->execute("PRAGMA journal_mode = WAL");
  // A commit is in the system's hands, so that it outlives this process; the disk gets it at checkpoints.
  database->execute("PRAGMA synchronous = NORMAL");
  // Checkpoints wait for the disk. They have a thread of their own.
  database->execute("PRAGMA wal_autocheckpoint = 0");
  return database;
}

void DatabaseFile::refuse(const std::string &reason) const {
  throw DatabaseError("the database " + file_.string() + " cannot be used: " + reason);
}

}  // namespace kx::collector
