// The journal and the script of the fakes.
#include "fakes/fakes.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace vantelink_fakes {
namespace {

std::mutex lock;
std::condition_variable noted;
std::vector<std::string> lines;
Script current;
std::function<void(const std::string&)> watching;

std::size_t count_locked(std::string_view line) {
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

}  // namespace

void reset() {
  const std::lock_guard<std::mutex> guard(lock);
  lines.clear();
  current = Script();
  watching = nullptr;
}

void clear_journal() {
  const std::lock_guard<std::mutex> guard(lock);
  lines.clear();
}

Script& script() {
  return current;
}

void note(const std::string& line) {
  const std::function<void(const std::string&)> watcher = [] {
    const std::lock_guard<std::mutex> guard(lock);
    return watching;
  }();
  if (watcher) watcher(line);
  const std::lock_guard<std::mutex> guard(lock);
  lines.push_back(line);
  noted.notify_all();
}

void watch(std::function<void(const std::string&)> watcher) {
  const std::lock_guard<std::mutex> guard(lock);
  watching = std::move(watcher);
}

std::vector<std::string> journal() {
  const std::lock_guard<std::mutex> guard(lock);
  return lines;
}

std::size_t count(std::string_view line) {
  const std::lock_guard<std::mutex> guard(lock);
  return count_locked(line);
}

bool wait_for(std::string_view line, std::size_t times, std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> guard(lock);
  return noted.wait_for(guard, patience, [&] { return count_locked(line) >= times; });
}

}  // namespace vantelink_fakes
