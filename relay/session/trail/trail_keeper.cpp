// Gives the database the jobs of signing and of removing old rows.
#include "relay/session/trail/trail_keeper.h"

#include <array>
#include <charconv>
#include <memory>
#include <string>

#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kDayMs = 86'400'000;
// Each step removes few rows, so that others do not wait for it: up to 3 million rows a day.
constexpr std::int64_t kShorteningPauseMs = 60'000;

std::int64_t retention_days(Database& database) {
  Statement query(database, "SELECT value FROM settings WHERE key = ?");
  if (!query.bind(kRetentionSetting).step()) return 0;
  const std::string text = query.text(0);
  std::int64_t days = 0;
  std::from_chars(text.data(), text.data() + text.size(), days);
  return days;
}

// Returns the problem that was found, or an empty text.
std::string check_and_sign(Database& database, const TrailKey& key) {
  const TrailVerdict verdict = verify_after_last_head(database);
  if (!verdict.intact) {
    append_trail(database, std::array{trail_entry<TrailKind::TrailBroken>({.actor = kTrailRelay}, verdict.row,
                                                                          verdict.problem)});
  }
  sign_head(database, key);
  return verdict.problem;
}

}  // namespace

TrailKeeper::TrailKeeper(DatabaseThread& database, const TrailKey& key, const Log& log)
    : database_(database), key_(key), log_(log), day_(trail_now() / kDayMs) {
  const std::string problem =
      database_.run_and_wait([&](Store& store) { return check_and_sign(store.database(), key_); });
  if (!problem.empty()) log_.write("", "", "the audit trail was touched: " + problem);
}

void TrailKeeper::tick(std::int64_t now_ms) {
  thread_.check();
  if (now_ms / kDayMs != day_) {
    day_ = now_ms / kDayMs;
    sign();
  }
  if (now_ms >= next_shortening_ms_) shorten(now_ms);
}

void TrailKeeper::sign() {
  database_.post([this](Store& store) { sign_head(store.database(), key_); },
                 [this](const std::string& failure) {
                   if (!failure.empty()) log_.write("", "", "cannot sign the trail: " + failure);
                 });
}

void TrailKeeper::shorten(std::int64_t now_ms) {
  next_shortening_ms_ = now_ms + kShorteningPauseMs;
  const auto work = [this, now_ms](Store& store) {
    const std::int64_t days = retention_days(store.database());
    if (days <= 0) return;
    shorten_trail(store.database(), key_, now_ms - days * kDayMs, kRowsPerStep);
  };
  database_.post(work, [this](const std::string& failure) {
    if (!failure.empty()) log_.write("", "", "cannot remove old rows of the trail: " + failure);
  });
}

}  // namespace vlk::relay
