// Recognises and verifies backups.
#include "relay/program/backup/backup_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "relay/storage/schema.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/key.h"

namespace vlk::relay {
namespace {

// The header of an SQLite file: its beginning, and the place of the mark as four bytes, big-endian.
constexpr std::string_view kMagic{"SQLite format 3\0", 16};
constexpr std::size_t kHeaderSize = 100;
constexpr std::size_t kMarkAt = 68;

// The first version whose tables have the audit trail's chain.
constexpr std::int64_t kOldestVersion = 2;

std::int64_t number_of(Database& database, const char* query) {
  Statement statement(database, query);
  return statement.step() ? statement.number(0) : 0;
}

void check_version(Database& database) {
  const std::int64_t version = schema_version(database);
  if (version > kSchemaVersion)
    throw std::runtime_error("it was written by a newer version of the relay; use that version");
  if (version < kOldestVersion)
    throw std::runtime_error("it has no tables of this relay, or those of a version that is too old");
}

void check_pages(Database& database) {
  Statement check(database, "PRAGMA integrity_check(1)");
  if (!check.step() || check.text(0) != "ok")
    throw std::runtime_error("its pages are damaged: " + check.text(0));
}

// The public key of the trail, from the private one beside it; nothing if there is none.
std::optional<Bytes> trail_key_in(Database& database) {
  Statement file(database, "SELECT content FROM backup_files WHERE name = ?");
  if (!file.bind(kTrailPublicFile).step()) return std::nullopt;
  const Bytes content = file.bytes(0);
  return parse_trail_public_key({content.begin(), content.end()}, kTrailPublicFile);
}

std::string counted(std::int64_t count, const char* one, const char* many) {
  return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

}  // namespace

std::string text_of(const BackupCounts& counts) {
  return counted(counts.machines, "machine", "machines") + ", " + counted(counts.people, "person", "people") +
         ", " + counted(counts.rows, "row", "rows") + " of the trail";
}

bool is_backup(const std::string& file) {
  if (!std::filesystem::is_regular_file(file)) throw std::runtime_error(file + " is not a file");
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
  std::string header(kHeaderSize, '\0');
  in.read(header.data(), static_cast<std::streamsize>(header.size()));
  if (in.gcount() != static_cast<std::streamsize>(kHeaderSize) || !header.starts_with(kMagic)) return false;
  std::int64_t mark = 0;
  for (std::size_t i = 0; i < 4; ++i)
    mark = mark * 256 + static_cast<unsigned char>(header[kMarkAt + i]);
  return mark == kBackupMark;
}

BackupCounts verify_backup(const std::string& file) {
  BackupCounts counts;
  std::optional<Bytes> key;
  {
    Database database = Database::read_only(file);
    check_version(database);
    check_pages(database);
    key = trail_key_in(database);
    counts.machines = number_of(database, "SELECT count(*) FROM machines");
    counts.people = number_of(database, "SELECT count(*) FROM people");
    counts.rows = number_of(database, "SELECT count(*) FROM trail");
    counts.last_ms = number_of(database, "SELECT time FROM trail ORDER BY id DESC LIMIT 1");
  }
  const TrailVerdict verdict = verify_database(file, key);
  if (!verdict.intact) throw std::runtime_error("its audit trail was touched: " + verdict.problem);
  return counts;
}

}  // namespace vlk::relay
