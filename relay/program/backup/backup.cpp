// Copies the database and the small files into a draft, which becomes the backup.
#include "relay/program/backup/backup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "relay/net/private_files.h"
#include "relay/program/folder/exchange.h"
#include "relay/storage/schema.h"
#include "relay/storage/trail/chain.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

// How long the copying leaves the disk to the relay after each step of a megabyte.
constexpr std::chrono::milliseconds kPause{2};

// The file beside the backup. It is locked, so that two backups to one file do not write into each other.
class Draft {
 public:
  explicit Draft(const std::string& file) : path_(file + ".new"), lock_(lock(path_)) {
    // A name in a folder that others can write to may be a link to a file of theirs.
    struct stat status {};
    if (::fstat(lock_.descriptor(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink != 1 ||
        status.st_uid != ::geteuid())
      throw std::runtime_error(path_ + " belongs to somebody else; remove it, or choose another folder");
    if (::fchmod(lock_.descriptor(), 0600) != 0 || ::ftruncate(lock_.descriptor(), 0) != 0)
      throw std::runtime_error("cannot write " + path_ + ": " + std::strerror(errno));
  }
  ~Draft() {
    if (kept_) return;
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
      ::unlink((path_ + suffix).c_str());
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  void sync() const {
    if (::fsync(lock_.descriptor()) != 0)
      throw std::runtime_error("cannot write " + path_ + ": " + std::strerror(errno));
  }
  void become(const std::string& file) {
    rename_durably(path_, file);
    kept_ = true;
  }

 private:
  static FileLock lock(const std::string& path) {
    auto lock = FileLock::take_or_make(path, FileLock::Mode::Exclusive);
    if (!lock) throw std::runtime_error("another backup is being written to " + path);
    return std::move(*lock);
  }

  const std::string path_;
  const FileLock lock_;
  bool kept_ = false;
};

void require_replaceable(const std::string& file) {
  if (fs::exists(fs::symlink_status(file)) && !is_backup(file))
    throw std::runtime_error(file + " exists and is not a backup; choose another name");
}

void add_files(Database& copy, const std::string& data) {
  copy.execute("CREATE TABLE backup_files(name TEXT PRIMARY KEY, content BLOB NOT NULL)");
  for (const SmallFile& small : kSmallFiles) {
    const std::string file = data + '/' + small.name;
    if (!fs::exists(file)) continue;
    std::ifstream in(file, std::ios::binary);
    const Bytes content{std::istreambuf_iterator<char>(in), {}};
    if (!in || content.empty()) throw std::runtime_error("cannot read " + file);
    Statement(copy, "INSERT INTO backup_files(name, content) VALUES(?, ?)")
        .bind(small.name)
        .bind(content)
        .run();
  }
}

void write_copy(Database& source, const std::string& data, const std::string& draft) {
  Database copy = Database::draft(draft);
  source.copy_to(copy, [] { std::this_thread::sleep_for(kPause); });
  // The backup is one file: without this, opening it would make a write-ahead log beside it.
  copy.execute("PRAGMA journal_mode=DELETE; PRAGMA journal_mode=MEMORY");
  add_files(copy, data);
  copy.execute(("PRAGMA application_id=" + std::to_string(kBackupMark)).c_str());
}

// A database of an older version gets its row when it has been migrated: this program must not change the
// tables under an older relay that runs.
void record(Database& source, const std::string& file, const BackupCounts& counts) {
  if (schema_version(source) != kSchemaVersion) return;
  Transaction transaction(source);
  append_trail(source, std::array{trail_entry<TrailKind::BackupMade>({.actor = kTrailCommandLine}, file,
                                                                     counts.rows)});
  transaction.commit();
}

}  // namespace

BackupMade make_backup(const DataFolder& data, const std::string& file) {
  if (!fs::exists(data.database()))
    throw std::runtime_error("there is no database in " + data.path() + "; name the data folder with --data");
  require_replaceable(file);
  Draft draft(file);
  BackupMade made;
  try {
    Database source(data.database());
    write_copy(source, data.path(), draft.path());
    made.counts = verify_backup(draft.path());
    draft.sync();
    record(source, fs::absolute(file), made.counts);
  } catch (const std::exception& failure) {
    throw std::runtime_error("the backup could not be made, " + file + " is as it was: " + failure.what());
  }
  made.bytes = fs::file_size(draft.path());
  draft.become(file);
  return made;
}

}  // namespace vlk::relay
