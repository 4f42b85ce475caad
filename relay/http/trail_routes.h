// Answers requests for the audit trail: pages of rows, and exports. The caller has checked that the person
// may read the trail.
#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>

#include "relay/http/replies.h"
#include "relay/session/machines.h"
#include "relay/storage/thread/database_thread.h"
#include "relay/storage/trail/reader.h"

namespace vlk::relay {

// Used on the relay's one thread.
class TrailRoutes {
 public:
  // The arguments outlive this object.
  TrailRoutes(TrailReader& reader, DatabaseThread& database, const Machines& machines)
      : reader_(reader), database_(database), machines_(machines) {}

  // GET /api/trail?person=&machine=&kind=&from=&to=&text=&before=&limit=. Each row also has the name that its
  // machine has now, for the reader; it is not part of the trail.
  [[nodiscard]] boost::asio::awaitable<Reply> page(const Request& request);
  // GET /api/trail/export?format=csv|jsonl and the filter of a page. The export is a row of the trail itself.
  [[nodiscard]] boost::asio::awaitable<Reply> begin_export(const Request& request, const std::string& person,
                                                           const std::string& address);

 private:
  TrailReader& reader_;
  DatabaseThread& database_;
  const Machines& machines_;
};

// A query of the trail, read from a request's target.
struct TrailQuery {
  TrailFilter filter{};
  std::int64_t before = 0;
  std::size_t limit = 100;
  std::string format{};
  std::string fault{};  // a sentence, if the query is wrong
};
[[nodiscard]] TrailQuery read_trail_query(std::string_view target);

}  // namespace vlk::relay
