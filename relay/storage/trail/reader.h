// Reads the trail on a thread and a connection of its own, so that a search delays neither the relay's loop
// nor the writing of rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/storage/trail/query.h"
#include "relay/storage/trail/text/export.h"

namespace vlk::relay {

// More is being read than the reader can do in time. The sender can try again later.
struct TrailBusy : DatabaseError {
  TrailBusy() : DatabaseError("The trail is being searched by others; try again later.") {}
};

// Used on the relay's one thread, except where noted.
class TrailReader {
 public:
  // `file` is the database; it exists and has its tables. Throws DatabaseError.
  TrailReader(const std::string& file, const TrailKey& key) : database_(file), key_(key) {
    database_.engine().forbid_changes();
  }
  // Waits for the search that is being made.
  ~TrailReader() { pool_.join(); }
  TrailReader(const TrailReader&) = delete;
  TrailReader& operator=(const TrailReader&) = delete;

  // The newest rows that fit. Throws TrailBusy or DatabaseError.
  [[nodiscard]] boost::asio::awaitable<TrailPage> page(TrailFilter filter, std::int64_t before,
                                                       std::size_t limit) {
    return search([this, filter = std::move(filter), before, limit] {
      return find_rows(database_, filter, before, limit);
    });
  }

  // Begins an export; at most kExports exist at a time. It must end before the reader. Throws TrailBusy.
  [[nodiscard]] boost::asio::awaitable<std::shared_ptr<TrailExport>> begin_export(TrailFormat format,
                                                                                  TrailFilter filter) {
    if (exports_.use_count() > static_cast<long>(kExports)) throw TrailBusy();
    const auto make = [this, format, filter = std::move(filter)] {
      return std::make_shared<TrailExport>(database_, key_, format, filter);
    };
    const auto made = co_await search(make);
    // The pointer that is returned also counts the exports.
    auto counted =
        std::make_shared<std::pair<std::shared_ptr<TrailExport>, std::shared_ptr<int>>>(made, exports_);
    co_return std::shared_ptr<TrailExport>(counted, made.get());
  }
  // The next piece of an export; empty after its end. Throws TrailBusy or DatabaseError.
  [[nodiscard]] boost::asio::awaitable<std::string> next_piece(std::shared_ptr<TrailExport> trail_export) {
    for (;;) {
      const auto next = [trail_export] { return trail_export->next(); };
      auto piece = co_await search(next);
      if (!piece.empty() || trail_export->ended()) co_return piece;
    }
  }

  static constexpr std::size_t kWaiting = 32;  // searches and pieces that wait or are being made
  static constexpr std::size_t kExports = 2;

 private:
  // Calls the function on the reader's thread and returns its result on the caller's.
  template <class Work>
  boost::asio::awaitable<std::invoke_result_t<Work&>> search(Work work) {
    const std::shared_ptr<int> place = waiting_;
    if (place.use_count() > static_cast<long>(kWaiting) + 1) throw TrailBusy();
    auto on_thread = [work =
                          std::move(work)]() mutable -> boost::asio::awaitable<std::invoke_result_t<Work&>> {
      co_return work();
    };
    co_return co_await boost::asio::co_spawn(pool_, on_thread, boost::asio::use_awaitable);
  }

  Database database_;  // used on the pool's thread only
  const TrailKey& key_;
  // Each copy stands for one search or export.
  const std::shared_ptr<int> waiting_ = std::make_shared<int>();
  const std::shared_ptr<int> exports_ = std::make_shared<int>();
  boost::asio::thread_pool pool_{1};
};

}  // namespace vlk::relay
