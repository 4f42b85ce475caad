// Reads and verifies the updates folder, and serves what was verified.
#include "relay/http/updates/updates.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>
#include <nlohmann/json.hpp>

#include "relay/base/clock.h"
#include "relay/base/file_stamp.h"
#include "relay/base/source/source.h"
#include "relay/http/files.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

constexpr char kVersionFile[] = "version.json";        // agents read it
constexpr char kSignedFile[] = "version.json.signed";  // the relay reads it
constexpr std::string_view kVersionPath = "/version.json";
constexpr std::string_view kDownloads = "/download/";
constexpr std::size_t kMostManifestBytes = 64 * 1024;
constexpr std::size_t kMostFetches = 256;      // addresses that are remembered
constexpr std::size_t kMostRecorded = 10'000;  // addresses with a row, because anybody may fetch
constexpr std::size_t kMostEntries = 1024;     // of the folder that are watched

// Reads a file of at most `limit` bytes. Throws std::runtime_error.
std::string read_file(const std::string& folder, const std::string& name, std::uint64_t limit) {
  const fs::path path = fs::path(folder) / name;
  std::error_code error;
  const auto size = fs::is_regular_file(path, error) ? fs::file_size(path, error) : 0;
  std::ifstream stream(path, std::ios::binary);
  if (error || !stream || !fs::is_regular_file(path, error)) throw std::runtime_error(name + " is missing");
  if (size > limit) throw std::runtime_error(name + " is too large");
  std::string content(static_cast<std::size_t>(size), '\0');
  stream.read(content.data(), static_cast<std::streamsize>(content.size()));
  if (static_cast<std::size_t>(stream.gcount()) != content.size())
    throw std::runtime_error(name + " changes while it is read");
  return content;
}

// A text that changes when a file of the folder is added, removed, replaced or written.
std::string stamp_of(const std::string& folder) {
  std::set<std::string> entries;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::string stamp = file_stamp(entry->path().string());
    if (entries.size() == kMostEntries || stamp.empty()) continue;
    std::string line = entry->path().filename().string() + stamp;
    entries.insert(std::move(line));
  }
  std::string stamp;
  for (const std::string& line : entries)
    stamp += line + '\n';
  return stamp;
}

bool has_file(const std::string& folder, const char* name) {
  std::error_code error;
  return fs::exists(fs::path(folder) / name, error);
}

}  // namespace

bool names_update(std::string_view path) {
  return path == kVersionPath || path.starts_with(kDownloads);
}

Updates::Updates(Settings settings, boost::asio::any_io_executor executor, const Log& log)
    : settings_(std::move(settings)),
      key_(settings_.key.empty() ? std::nullopt : std::make_optional<UpdateKey>(settings_.key)),
      executor_(std::move(executor)),
      log_(log) {
  // The stamp is taken first, so that a change during the look is seen as one.
  std::string stamp = stamp_of(settings_.folder);
  {
    const ThreadChecker::Setup setup;
    apply(look());
  }
  watcher_ = std::thread([this, stamp = std::move(stamp)] { watch(stamp); });
}

Updates::~Updates() {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    end_ = true;
  }
  ended_.notify_all();
  watcher_.join();
}

// Runs on the thread of its own. A changed folder is read when it has stayed the same for one interval, so
// that a release that is being copied is not read in the middle.
void Updates::watch(std::string seen) {
  std::string last = seen;
  for (;;) {
    {
      std::unique_lock<std::mutex> guard(lock_);
      if (ended_.wait_for(guard, settings_.interval, [this] { return end_; })) return;
    }
    std::string stamp = stamp_of(settings_.folder);
    const bool settled = stamp == last;
    last = stamp;
    if (!settled || stamp == seen) continue;
    seen = std::move(stamp);
    boost::asio::post(executor_, [this, found = look()] {
      thread_.check();
      apply(found);
    });
  }
}

Updates::Found Updates::look() const {
  const bool anything = has_file(settings_.folder, kSignedFile) || has_file(settings_.folder, kVersionFile);
  if (!anything) return {};
  if (!key_) return {nullptr, "the relay was started without --update-key"};
  try {
    return {verified(), {}};
  } catch (const std::exception& failure) {
    return {nullptr, failure.what()};
  }
}

std::shared_ptr<const Updates::Offer> Updates::verified() const {
  auto offer = std::make_shared<Offer>();
  offer->manifest = read_manifest(read_file(settings_.folder, kSignedFile, kMostManifestBytes), *key_);
  for (const UpdateFile& file : offer->manifest.files) {
    std::string content = read_file(settings_.folder, file.name, file.bytes);
    if (content.size() != file.bytes || sha256_text(content) != file.sha256)
      throw std::runtime_error(file.name + " is not the file that was signed");
    offer->files[file.name] = std::make_shared<const std::string>(std::move(content));
  }
  const auto version = offer->files.find(kVersionFile);
  if (version == offer->files.end())
    throw std::runtime_error("the signed manifest does not list version.json");
  offer->installer = installer_of(offer->manifest, *version->second);
  return offer;
}

void Updates::apply(Found found) {
  const std::string before = now_.offer ? now_.offer->installer.sha256 : std::string();
  const std::string after = found.offer ? found.offer->installer.sha256 : std::string();
  if (found.offer && before != after) {
    log_.write("", "",
               "the update " + found.offer->manifest.version +
                   " is offered to agents: " + found.offer->installer.name + ", SHA-256 " + after);
    record(trail_entry<TrailKind::UpdateOffered>({.actor = kTrailRelay}, found.offer->manifest.version,
                                                 found.offer->installer.name, after));
  }
  if (!found.problem.empty() && found.problem != now_.problem) {
    log_.write("", "",
               "no update is offered to agents, because " + found.problem + " (updates folder " +
                   settings_.folder + ")");
    record(trail_entry<TrailKind::UpdateRefused>({.actor = kTrailRelay}, settings_.folder, found.problem));
  }
  if (before != after) {
    fetched_.clear();
    recorded_.clear();
    downloads_ = 0;
  }
  now_ = std::move(found);
}

Reply Updates::answer(const Request& request, const std::string& peer) {
  thread_.check();
  const std::string_view path = path_of(request);
  const bool version = path == kVersionPath;
  const std::string_view name = version ? kVersionFile : path.substr(kDownloads.size());
  // Under /download/ is only the installer.
  if (!now_.offer || (!version && name != now_.offer->installer.name))
    return error_reply(request, HttpStatus::not_found, "There is no such update.");
  if (!version && request.method() == boost::beast::http::verb::get) count(peer);
  return file_reply(request, version ? "application/json" : "application/octet-stream",
                    now_.offer->files.find(name)->second);
}

void Updates::count(const std::string& peer) {
  const std::string source = source_in(peer);
  ++downloads_;
  const auto known = std::ranges::find(fetched_, source, &Fetch::source);
  if (known != fetched_.end()) {
    fetched_.splice(fetched_.begin(), fetched_, known);
  } else {
    fetched_.push_front({source});
  }
  fetched_.front().address = address_in(peer);
  fetched_.front().time = wall_seconds();
  ++fetched_.front().count;
  if (recorded_.size() < kMostRecorded && recorded_.insert(source).second) {
    record(trail_entry<TrailKind::UpdateFetched>({.address = fetched_.front().address},
                                                 now_.offer->manifest.version, now_.offer->installer.name));
  }
  if (fetched_.size() > kMostFetches) fetched_.pop_back();
}

void Updates::record(TrailEntry row) const {
  if (settings_.record) settings_.record(std::move(row));
}

nlohmann::json Updates::report() const {
  thread_.check();
  nlohmann::json report = {{"offered", nlohmann::json::array()}, {"problem", nullptr}};
  if (!now_.problem.empty()) report["problem"] = now_.problem;
  if (!now_.offer) return report;
  nlohmann::json fetched = nlohmann::json::array();
  for (const Fetch& fetch : fetched_)
    fetched.push_back({{"address", fetch.address}, {"time", fetch.time}, {"count", fetch.count}});
  const UpdateFile& installer = now_.offer->installer;
  report["offered"].push_back({{"version", now_.offer->manifest.version},
                               {"file", installer.name},
                               {"sha256", installer.sha256},
                               {"bytes", installer.bytes},
                               {"downloads", downloads_},
                               {"fetched", std::move(fetched)}});
  return report;
}

}  // namespace vlk::relay
