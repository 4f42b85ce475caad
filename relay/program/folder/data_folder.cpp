// Makes the data folder and takes its locks.
#include "relay/program/folder/data_folder.h"

#include <unistd.h>

#include <charconv>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "relay/net/private_files.h"
#include "relay/program/folder/exchange.h"

namespace vlk::relay {
namespace {

std::optional<pid_t> process_in(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  pid_t process = 0;
  const auto [stop, error] = std::from_chars(line.data(), line.data() + line.size(), process);
  if (error != std::errc() || process <= 0) return std::nullopt;
  return process;
}

void make_folder(const std::string& folder) {
  std::error_code error;
  const bool made = std::filesystem::create_directories(folder, error);
  if (error) throw std::runtime_error("cannot create the data folder " + folder + ": " + error.message());
  if (made) std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  require_private(folder, "the data folder");
}

}  // namespace

DataFolder::DataFolder(const std::string& folder, FileLock::Mode mode) : folder_(folder) {
  make_folder(folder);
  if (mode == FileLock::Mode::Exclusive || exchange_is_cut_off(folder)) {
    lock_ = FileLock::take(folder, FileLock::Mode::Exclusive);
    if (!lock_) {
      throw std::runtime_error(
          "the data folder " + folder +
          " is in use by a relay or another command; stop the relay, or try again later");
    }
    complete_exchange(folder);
  }
  if (mode == FileLock::Mode::Exclusive) return;
  lock_.reset();
  lock_ = FileLock::take(folder, FileLock::Mode::Shared);
  if (!lock_) {
    throw std::runtime_error("a backup is being restored into the data folder " + folder +
                             "; try again when that is done");
  }
}

FileLock claim_for_relay(const std::string& folder) {
  const std::string file = folder + '/' + kRelayLockFile;
  auto lock = FileLock::take_or_make(file, FileLock::Mode::Exclusive);
  if (!lock) {
    const auto process = process_in(file);
    throw std::runtime_error("a relay uses the data folder " + folder + " already" +
                             (process ? " (process " + std::to_string(*process) + ")" : "") +
                             "; stop it, or name another folder with --data");
  }
  const std::string line = std::to_string(::getpid()) + '\n';
  // The number only serves messages, so a full disk does not matter.
  if (::ftruncate(lock->descriptor(), 0) == 0)
    static_cast<void>(::pwrite(lock->descriptor(), line.data(), line.size(), 0) == 0);
  return std::move(*lock);
}

std::optional<pid_t> relay_of(const std::string& folder) {
  const std::string file = folder + '/' + kRelayLockFile;
  // Another user may not look.
  if (::access(file.c_str(), R_OK) != 0) return std::nullopt;
  if (FileLock::take(file, FileLock::Mode::Shared)) return std::nullopt;
  return process_in(file);
}

std::string time_for_name() {
  const std::time_t now = std::time(nullptr);
  std::tm time{};
  ::gmtime_r(&now, &time);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &time);
  return text;
}

}  // namespace vlk::relay
