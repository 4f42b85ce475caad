// The spool: messages that wait on the relay's disk, encrypted, because a browser has not confirmed them yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>

#include <boost/asio/any_io_executor.hpp>

#include "relay/base/bytes.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/storage/spool/disk_thread.h"
#include "relay/storage/spool/sealed_file.h"
#include "relay/storage/spool/slots.h"

namespace vlk::relay {

// In bytes. Room is counted in slots of 68 KiB: a message takes as many as its bytes and the 16 of its seal
// need.
struct SpoolLimits {
  std::uint64_t session = std::uint64_t{2} << 30;  // bytes on disk of one session
  std::uint64_t all = std::uint64_t{8} << 30;      // of all sessions together
  // What stays free on the file system, also for the relay's database. A write that would take of it fails.
  std::uint64_t free = std::uint64_t{1} << 30;
};

class Spool;

// The spools of all sessions, in one folder. Used on the loop's thread. Owns one thread, on which all work
// with the disk and all encryption is done, so that the loop never waits for the disk; only the constructor
// does.
class Spools {
 public:
  // `folder` is made if it is missing (mode 0700); what an earlier run has left in it is removed. Throws
  // std::runtime_error with a sentence for the operator if the folder cannot be used. Callbacks run on
  // `loop`, whose context outlives this object. start_sodium() has been called.
  Spools(std::filesystem::path folder, boost::asio::any_io_executor loop, SpoolLimits limits);
  // Waits for the job that runs, drops the others and stops the thread. No callback is called afterwards.
  ~Spools();
  Spools(const Spools&) = delete;
  Spools& operator=(const Spools&) = delete;

  // The spool must not outlive this object. There is no file before its first write.
  [[nodiscard]] std::unique_ptr<Spool> open();
  [[nodiscard]] std::uint64_t used() const { return used_; }  // bytes on disk that are taken, all sessions
  // Waits until the disk has done what it was given; the callbacks are then called by the loop. For tests.
  void drain() { disk_.drain(); }

 private:
  friend class Spool;
  // Whether a session that uses `own` bytes may take `more` bytes.
  [[nodiscard]] bool has_room(std::uint64_t own, std::uint64_t more) const;

  const ThreadChecker thread_;
  const std::filesystem::path folder_;
  const SpoolLimits limits_;
  std::uint64_t used_ = 0;
  std::size_t open_ = 0;  // spools
  DiskThread disk_;
};

// The spool of one session. Used on the loop's thread.
//
// The index of the stored messages is in memory and takes about 200 bytes for each, i.e. up to 7 MiB for a
// session with 2 GiB of messages that have one slot each. Nothing limits the messages that wait for the disk:
// the caller looks at unwritten() and reads no more from their sender while that is too much.
class Spool {
 public:
  using Place = std::uint64_t;  // names a stored message; unique in the spool

  // Gives all room back and removes the file. Callbacks that are not called yet are never called.
  ~Spool();
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  // Takes room and stores the message in the background; `written` is called on the loop: true, or false if
  // the disk failed (the place must still be released). A release does not keep `written` from being called.
  // Nothing is returned, and nothing is called, if there is no room: if the session would use more than
  // limits.session, or more than what is then still free of limits.all. So one session gets at most half of a
  // spool that nobody else uses, and another one always finds room. The bytes are shared until `written` is
  // called and must not change; the last reference to them is given up on the loop.
  [[nodiscard]] std::optional<Place> write(std::shared_ptr<const Bytes> message,
                                           std::function<void(bool)> written);
  // Calls `done` on the loop with the message's bytes, or null if the disk failed, the file was changed, or
  // the place is not taken. A read that follows its write gets the bytes, whether the write is finished or
  // not. Reads and writes run in their order.
  void read(Place place, std::function<void(std::shared_ptr<const Bytes>)> done);
  // Gives the room back. A read of the place that is under way still gets its result or null. A place that is
  // not taken is ignored.
  void release(Place place);
  // Bytes that were given to write() and whose `written` is not called yet, i.e. what the spool holds in
  // memory.
  [[nodiscard]] std::size_t unwritten() const { return unwritten_; }
  [[nodiscard]] std::uint64_t used() const { return slots_.taken() * kSlotBytes; }  // bytes of room

 private:
  friend class Spools;
  explicit Spool(Spools& spools);
  void enqueue(std::function<void()> work, std::shared_ptr<void> held, std::function<void()> callback);
  void finish_next();

  const ThreadChecker thread_;
  Spools& spools_;
  // What the thread has finished looks here whether this object still exists.
  const std::shared_ptr<Spool*> self_ = std::make_shared<Spool*>(this);
  std::shared_ptr<SealedFile> file_;  // used on the disk's thread
  Slots slots_;
  std::unordered_map<Place, std::shared_ptr<const StoredMessage>> stored_;
  Place next_place_ = 0;  // counts the messages, each of which is sealed under its number
  std::size_t unwritten_ = 0;
  std::deque<std::function<void()>> callbacks_;  // of the reads and writes under way, in their order
};

}  // namespace vlk::relay
