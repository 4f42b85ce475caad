// Takes jobs for the database's thread, within the bounds of its queue.
#include <future>
#include <memory>
#include <utility>

#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/storage/thread/database_thread.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

std::string message_of(const std::exception_ptr& error) {
  if (!error) return {};
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace

asio::awaitable<void> DatabaseThread::submit(Job work, std::size_t bytes, Access access) {
  if (!has_room(bytes)) throw DatabaseBusy();
  {
    const MutexLock guard(lock_);
    if (out_of_patience()) throw DatabaseLost(kNotReached);
  }
  const auto start = [this, &work, bytes, access](auto handler) {
    const auto resume = std::make_shared<decltype(handler)>(std::move(handler));
    enqueue({std::move(work), [resume](std::exception_ptr error) { std::move (*resume)(std::move(error)); },
             bytes, Entry::Waiter::Loop, access});
  };
  co_await asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr)>(start,
                                                                                         asio::use_awaitable);
}

void DatabaseThread::submit_and_wait(Job work, Access access) {
  std::promise<void> promise;
  std::future<void> result = promise.get_future();
  const auto done = [&promise](const std::exception_ptr& error) {
    if (error) return promise.set_exception(error);
    promise.set_value();
  };
  {
    const MutexLock guard(lock_);
    ++hurrying_;
  }
  enqueue({std::move(work), done, 0, Entry::Waiter::Thread, access});
  result.wait();
  {
    const MutexLock guard(lock_);
    --hurrying_;
  }
  result.get();
}

void DatabaseThread::post(Job work, OnDone done, std::size_t bytes) {
  post_entry({.work = std::move(work), .bytes = bytes}, std::move(done));
}

void DatabaseThread::post_reading(Job work, OnDone done) {
  post_entry({.work = std::move(work), .access = Access::Reads}, std::move(done));
}

void DatabaseThread::post_entry(Entry entry, OnDone done) {
  if (!has_room(entry.bytes)) {
    return asio::post(loop_, [done = std::move(done)] { done(DatabaseBusy().what()); });
  }
  entry.done = [done = std::move(done)](const std::exception_ptr& error) { done(message_of(error)); };
  enqueue(std::move(entry));
}

// Only the loop gives bounded jobs, so the room that it finds does not shrink before it uses it.
bool DatabaseThread::has_room(std::size_t bytes) {
  const MutexLock guard(lock_);
  return held_jobs_ < bounds_.jobs && held_bytes_ + bytes + kJobBytes <= bounds_.bytes;
}

void DatabaseThread::enqueue(Entry entry) {
  const MutexLock guard(lock_);
  ++held_jobs_;
  held_bytes_ += entry.bytes + kJobBytes;
  queue_.push_back(std::move(entry));
  changed_.notify_all();
}

}  // namespace vlk::relay
