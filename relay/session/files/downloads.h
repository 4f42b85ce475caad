// The downloads of all sessions: keeps what a machine has sent until the browser has confirmed it, and sends
// it to the browser.
//
// The machine is read whatever a browser does. A message of a download is sealed into the spool of its
// session on the disk, and sent to the browser at once if that is up to date. A browser that is behind, or
// that comes back, gets its messages from the spool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "relay/base/bytes.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/net/channel.h"
#include "relay/storage/spool/spools.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Downloads {
 public:
  struct Listener {
    // A download has ended because the relay cannot keep it. `code` is one of those below.
    std::function<void(std::uint32_t session, std::uint32_t download, const char* code)> failed;
    // The disk has caught up with the session's machine, see busy().
    std::function<void(std::uint32_t session)> written;
  };
  static constexpr const char* kSpoolFull = "spool-full";      // there is no room on the disk
  static constexpr const char* kSpoolFailed = "spool-failed";  // the disk failed
  static constexpr const char* kNotKept = "not-kept";          // the bytes are not there

  // The argument outlives this object.
  explicit Downloads(Spools& spools) : spools_(spools) {}
  void listen(Listener listener) { listener_ = std::move(listener); }

  // A download that the browser with this channel has requested.
  void begin(std::uint32_t session, std::uint32_t download, const std::shared_ptr<Channel>& browser);
  // Keep a chunk, and the machine's end message, of a download that has begun, and send it if possible.
  void add_chunk(std::uint32_t session, std::uint32_t download, std::shared_ptr<const Bytes> message);
  void add_end(std::uint32_t session, std::uint32_t download, std::shared_ptr<const Bytes> message);
  // True while so much waits for the disk that the machine is not to be read.
  [[nodiscard]] bool busy(std::uint32_t session) const;

  // The browser has stored the first `bytes` bytes of the file, which are then forgotten.
  void stored(std::uint32_t session, std::uint32_t download, std::uint64_t bytes);
  // The browser has stored the whole file and knows its end. Returns false, without an effect, if it cannot.
  [[nodiscard]] bool finish(std::uint32_t session, std::uint32_t download);
  // Sends what is kept, as far as the queue to this browser has room.
  void send_more(const Channel& browser);

  // The session's browser has gone. Nothing is sent until a browser continues the downloads.
  void leave(std::uint32_t session);
  struct Start {
    std::uint64_t bytes = 0;
    std::uint32_t chunk = 0;  // the index of the first chunk
  };
  // Where a download can go on after `bytes` bytes, which must be the end of a chunk that is not forgotten.
  [[nodiscard]] std::optional<Start> start_after(std::uint32_t session, std::uint32_t download,
                                                 std::uint64_t bytes) const;
  // Sends a download to this browser, from a place that start_after() has returned.
  void go_on(std::uint32_t session, std::uint32_t download, const std::shared_ptr<Channel>& browser,
             const Start& from);
  // The bytes of the file that the browser has confirmed.
  [[nodiscard]] std::uint64_t confirmed(std::uint32_t session, std::uint32_t download) const;

  // Forgets a download, which the browser does not want, or cannot get. If the machine has ended it, the
  // browser gets the machine's end message, and so learns that nothing more is sent.
  void drop(std::uint32_t session, std::uint32_t download);
  // Forgets all downloads of a session.
  void end(std::uint32_t session);

  // Bytes of a file that may be on their way to the browser's disk. The console stores parts of 4 MiB, and
  // while it stores one, the next is under way.
  static constexpr std::uint64_t kWindow = std::uint64_t{16} << 20;
  // Bytes of a session that wait for the disk before its machine is no longer read.
  static constexpr std::size_t kUnwritten = std::size_t{4} << 20;
  // Bytes of a chunk with its header. An agent's chunks have a quarter of it.
  static constexpr std::size_t kLargestChunk = std::size_t{1} << 20;

 private:
  struct Chunk {
    Spool::Place place = 0;
    std::uint64_t end = 0;  // the bytes of the file up to its end
    std::uint32_t index = 0;
    std::shared_ptr<const Bytes> bytes{};  // until it was written to the disk
  };
  struct Download {
    std::deque<Chunk> chunks{};  // those that the browser has not confirmed
    std::size_t next = 0;        // of `chunks`, to be sent
    std::uint64_t arrived = 0;   // bytes of the file
    std::uint32_t count = 0;     // of the chunks that have arrived
    std::uint64_t confirmed = 0;
    std::shared_ptr<const Bytes> end{};  // the machine's end message
    bool live = false;                   // the browser takes it
    bool end_sent = false;
    bool reads = false;  // a chunk is being read from the disk
  };
  struct OfSession {
    std::unique_ptr<Spool> spool;
    std::shared_ptr<Channel> browser;
    std::map<std::uint32_t, Download> downloads;
    std::uint32_t last = 0;  // the download that was sent from last
    bool was_busy = false;
  };

  [[nodiscard]] Download* find(std::uint32_t session, std::uint32_t download);
  void written(std::uint32_t session, std::uint32_t download, Spool::Place place, bool good);
  void fail(std::uint32_t session, std::uint32_t download, const char* code);
  static void release(OfSession& of, Download& download);
  // Whether something of the download can be sent now.
  [[nodiscard]] static bool sendable(const Download& download);
  // Sends one message, or begins to read it from the disk. Returns false if no download has something to
  // send.
  bool send_one(std::uint32_t session, OfSession& of);
  void send_all(std::uint32_t session);
  void read(std::uint32_t session, std::uint32_t number, OfSession& of, Download& download);

  const ThreadChecker thread_;
  Spools& spools_;
  Listener listener_;
  std::map<std::uint32_t, OfSession> sessions_;  // by session number
};

}  // namespace vlk::relay
