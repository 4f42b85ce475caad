// Chooses the next password to be hashed.
#include "relay/http/api/password_work.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace asio = boost::asio;

namespace vlk::relay {

PasswordWork::~PasswordWork() {
  *alive_ = false;
  pool_.stop();
  pool_.join();
}

bool PasswordWork::comes_before(const Entry& a, const Entry& b) {
  return std::tuple(!a.asker.known, a.asker.failures, b.number) <
         std::tuple(!b.asker.known, b.asker.failures, a.number);
}

// A full queue drops its last entry for one that comes before it.
bool PasswordWork::make_room(const Entry& entry) {
  const auto of_source = std::ranges::count_if(
      queue_, [&](const auto& other) { return other->asker.source == entry.asker.source; });
  if (static_cast<std::size_t>(of_source) >= bounds_.of_one_source) return false;
  if (queue_.size() < bounds_.waiting) return true;
  const auto last =
      std::ranges::max_element(queue_, [](const auto& a, const auto& b) { return comes_before(*a, *b); });
  if (!comes_before(entry, **last)) return false;
  (*last)->state = State::Dropped;
  (*last)->wake->cancel();
  queue_.erase(last);
  return true;
}

asio::awaitable<bool> PasswordWork::run(Asker asker, std::function<void()> work) {
  thread_.check();
  const auto loop = co_await asio::this_coro::executor;
  const auto entry = std::make_shared<Entry>();
  entry->asker = std::move(asker);
  entry->work = std::move(work);
  entry->number = ++last_number_;
  entry->wake = std::make_shared<asio::steady_timer>(loop, Clock::time_point::max());
  if (!make_room(*entry)) co_return false;
  queue_.push_back(entry);
  pump(loop);
  while (entry->state == State::Waiting)
    co_await entry->wake->async_wait(asio::as_tuple(asio::use_awaitable));
  co_return entry->state == State::Done;
}

// The entry that comes first and whose account may be tried now. If there is none, `later` becomes the time
// at which one may.
PasswordWork::Entries::iterator PasswordWork::next(Clock::time_point now, Clock::time_point& later) {
  auto best = queue_.end();
  for (auto entry = queue_.begin(); entry != queue_.end(); ++entry) {
    const Asker& asker = (*entry)->asker;
    const auto turn = next_turn_.find(asker.account);
    if (!asker.known && asker.slowed && turn != next_turn_.end() && turn->second > now) {
      later = std::min(later, turn->second);
      continue;
    }
    if (best == queue_.end() || comes_before(**entry, **best)) best = entry;
  }
  return best;
}

void PasswordWork::pump(const asio::any_io_executor& loop) {
  if (running_ || queue_.empty()) return;
  const auto now = Clock::now();
  std::erase_if(next_turn_, [&](const auto& turn) { return turn.second <= now; });
  Clock::time_point later = Clock::time_point::max();
  const auto found = next(now, later);
  if (found == queue_.end()) {
    pause_ = std::make_unique<asio::steady_timer>(loop, later);
    pause_->async_wait([this, loop, alive = alive_](const boost::system::error_code& error) {
      if (!error && *alive) pump(loop);
    });
    return;
  }
  const std::shared_ptr<Entry> entry = *found;
  queue_.erase(found);
  if (entry->asker.slowed && !entry->asker.known) next_turn_[entry->asker.account] = now + bounds_.pace;
  start(entry, loop);
}

void PasswordWork::start(std::shared_ptr<Entry> entry, const asio::any_io_executor& loop) {
  running_ = true;
  asio::post(pool_, [this, entry = std::move(entry), loop, alive = alive_] {
    entry->work();
    asio::post(loop, [this, entry, loop, alive] {
      entry->state = State::Done;
      entry->wake->cancel();
      if (!*alive) return;
      running_ = false;
      pump(loop);
    });
  });
}

}  // namespace vlk::relay
