// Computes a run's figures.
#include "figures.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace vantelink_bench {
namespace {

constexpr std::chrono::milliseconds kSample{50};

double milliseconds_between(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

// The value below which this share of the values lies; -1 if there are none.
double quantile(std::vector<double> values, double share) {
  if (values.empty()) return -1;
  std::ranges::sort(values);
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

}  // namespace

void Figures::picture_made() {
  const std::lock_guard guard(lock_);
  ++made_;
}

void Figures::picture_shown(Clock::time_point made) {
  const std::lock_guard guard(lock_);
  shown_.push_back({Clock::now(), made});
}

std::size_t Figures::key_pressed(Clock::time_point due) {
  const std::lock_guard guard(lock_);
  keys_.push_back({due, next_key_ % kKeyNumbers});
  return next_key_++ % kKeyNumbers;
}

void Figures::key_arrived(std::size_t number) {
  const std::lock_guard guard(lock_);
  while (!keys_.empty()) {
    const Key key = keys_.front();
    keys_.pop_front();
    if (key.number == number) {
      key_times_.push_back(milliseconds_between(key.due, Clock::now()));
      return;
    }
    ++keys_lost_;
  }
}

void Figures::downloaded(std::size_t bytes) {
  const std::lock_guard guard(lock_);
  bytes_ += bytes;
}

void Figures::session_ended(const std::string& reason) {
  const std::lock_guard guard(lock_);
  ++ends_[reason];
  keys_lost_ += keys_.size();
  keys_.clear();
}

bool Figures::start(std::chrono::seconds patience) {
  for (const auto end = Clock::now() + patience; Clock::now() < end; std::this_thread::sleep_for(kSample)) {
    const std::lock_guard guard(lock_);
    if (shown_.empty()) continue;
    begin_ = Clock::now();
    shown_.erase(shown_.begin(), shown_.end() - 1);
    key_times_.clear();
    made_ = keys_lost_ = bytes_ = 0;
    ends_.clear();
    return true;
  }
  return false;
}

// The ages of the picture on the screen, at regular times. A picture gets older until the next is shown.
std::vector<double> Figures::ages(Clock::time_point end) const {
  std::vector<double> ages;
  auto next = shown_.begin();
  for (auto at = begin_; at < end; at += kSample) {
    while (next + 1 != shown_.end() && (next + 1)->at <= at)
      ++next;
    ages.push_back(milliseconds_between(next->made, at));
  }
  return ages;
}

std::string Figures::header() {
  return "| Age of the shown picture, p50 / p99 / max | Key to agent, p50 / p99 | Pictures a second, made / "
         "shown | "
         "Keys lost | Download | Ends of the session |";
}

std::string Figures::row() const {
  const std::lock_guard guard(lock_);
  const auto end = Clock::now();
  const double seconds = milliseconds_between(begin_, end) / 1000;
  const std::vector<double> all = ages(end);
  std::string ends;
  for (const auto& [reason, count] : ends_)
    ends += (ends.empty() ? "" : ", ") + reason + (count > 1 ? " x" + std::to_string(count) : "");
  char text[256];
  std::snprintf(text, sizeof text,
                "| %.2f / %.2f / %.1f s | %.2f / %.2f s of %zu | %.1f / %.1f | %zu | %.1f KiB/s | %s |",
                quantile(all, 0.5) / 1000, quantile(all, 0.99) / 1000, quantile(all, 1) / 1000,
                quantile(key_times_, 0.5) / 1000, quantile(key_times_, 0.99) / 1000, key_times_.size(),
                static_cast<double>(made_) / seconds, static_cast<double>(shown_.size()) / seconds,
                keys_lost_ + keys_.size(), static_cast<double>(bytes_) / 1024 / seconds,
                ends.empty() ? "none" : ends.c_str());
  return text;
}

}  // namespace vantelink_bench
