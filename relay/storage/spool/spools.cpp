// Gives the sessions room on the disk, and lets the disk's thread write and read their messages.
#include "relay/storage/spool/spools.h"

#include <cassert>
#include <utility>

#include "relay/storage/spool/folder.h"

namespace vlk::relay {
namespace {

// A write under way. The disk's thread uses the message but never holds the last reference to it, because the
// end of a message's life gives its share of the loop's memory budget back.
struct Write {
  std::shared_ptr<const Bytes> message;
  bool good = false;
};

// A read under way.
struct Read {
  std::shared_ptr<const Bytes> message;
};

}  // namespace

Spools::Spools(std::filesystem::path folder, boost::asio::any_io_executor loop, SpoolLimits limits)
    : folder_(prepare_spool_folder(std::move(folder))), limits_(limits), disk_(std::move(loop)) {}

Spools::~Spools() {
  assert(open_ == 0 && "a spool outlives the object that made it");
}

std::unique_ptr<Spool> Spools::open() {
  thread_.check();
  return std::unique_ptr<Spool>(new Spool(*this));
}

bool Spools::has_room(std::uint64_t own, std::uint64_t more) const {
  const std::uint64_t needed = own + more;
  if (needed > limits_.session || used_ + more > limits_.all) return false;
  return needed <= limits_.all - (used_ + more);
}

Spool::Spool(Spools& spools)
    : spools_(spools), file_(std::make_shared<SealedFile>(spools.folder_, spools.limits_.free)) {
  ++spools_.open_;
}

Spool::~Spool() {
  spools_.disk_.drop(this);
  spools_.used_ -= used();
  --spools_.open_;
  // The file is closed on the disk's thread, because its space is freed then. Later messages of other
  // sessions are written after that, so all files together never exceed the limit.
  spools_.disk_.enqueue({nullptr, [file = std::move(file_)] {}, nullptr});
}

std::optional<Spool::Place> Spool::write(std::shared_ptr<const Bytes> message,
                                         std::function<void(bool)> written) {
  thread_.check();
  const std::size_t size = message->size();
  const std::uint64_t slots = StoredMessage::slots(size);
  if (!spools_.has_room(used(), slots * kSlotBytes)) return std::nullopt;
  const Place place = next_place_++;
  const auto stored = std::make_shared<const StoredMessage>(StoredMessage{slots_.take(slots), place, size});
  spools_.used_ += slots * kSlotBytes;
  stored_.emplace(place, stored);
  unwritten_ += size;
  const auto write = std::make_shared<Write>(Write{std::move(message)});
  const auto work = [file = file_, stored, write] { write->good = file->write(*stored, *write->message); };
  const auto callback = [this, write, size, written = std::move(written)] {
    unwritten_ -= size;
    write->message.reset();
    written(write->good);
  };
  enqueue(work, write, callback);
  return place;
}

void Spool::read(Place place, std::function<void(std::shared_ptr<const Bytes>)> done) {
  thread_.check();
  const auto found = stored_.find(place);
  const auto stored = found == stored_.end() ? nullptr : found->second;
  const auto read = std::make_shared<Read>();
  const auto work = [file = file_, stored, read] {
    if (stored) read->message = file->read(*stored);
  };
  const auto callback = [read, done = std::move(done)] { done(std::move(read->message)); };
  enqueue(work, read, callback);
}

void Spool::release(Place place) {
  thread_.check();
  const auto found = stored_.find(place);
  if (found == stored_.end()) return;
  const auto stored = std::move(found->second);
  stored_.erase(found);
  slots_.give_back(stored->runs);
  spools_.used_ -= StoredMessage::slots(stored->size) * kSlotBytes;
  // What is under way for these slots comes before, what uses them again comes after.
  const auto work = [file = file_, stored, end = slots_.end()] { file->free(*stored, end); };
  spools_.disk_.enqueue({this, work, nullptr});
}

// Runs `work` on the disk's thread, then `callback` on the loop. `held` lives until then.
void Spool::enqueue(std::function<void()> work, std::shared_ptr<void> held, std::function<void()> callback) {
  callbacks_.push_back(std::move(callback));
  const auto finish = [weak = std::weak_ptr<Spool*>(self_), held = std::move(held)] {
    if (const auto self = weak.lock()) (*self)->finish_next();
  };
  spools_.disk_.enqueue({this, std::move(work), finish});
}

// The callback may destroy this object.
void Spool::finish_next() {
  thread_.check();
  const std::function<void()> callback = std::move(callbacks_.front());
  callbacks_.pop_front();
  callback();
}

}  // namespace vlk::relay
