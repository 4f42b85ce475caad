// Keeps downloads on the disk until the browser has them.
#include "relay/session/files/downloads.h"

#include <algorithm>
#include <utility>

#include "relay/session/files/transfers.h"

namespace vlk::relay {

Downloads::Download* Downloads::find(std::uint32_t session, std::uint32_t download) {
  const auto of = sessions_.find(session);
  if (of == sessions_.end()) return nullptr;
  const auto found = of->second.downloads.find(download);
  return found == of->second.downloads.end() ? nullptr : &found->second;
}

void Downloads::begin(std::uint32_t session, std::uint32_t download,
                      const std::shared_ptr<Channel>& browser) {
  thread_.check();
  OfSession& of = sessions_[session];
  if (!of.spool) of.spool = spools_.open();
  of.browser = browser;
  of.downloads[download].live = true;
}

void Downloads::add_chunk(std::uint32_t session, std::uint32_t download,
                          std::shared_ptr<const Bytes> message) {
  thread_.check();
  Download* found = find(session, download);
  if (!found) return;
  if (message->size() > kLargestChunk) return fail(session, download, kNotKept);
  OfSession& of = sessions_.at(session);
  found->arrived += chunk_bytes(*message);
  // The place is known only after the call.
  const auto place = std::make_shared<Spool::Place>(0);
  const auto taken = of.spool->write(
      message, [this, session, download, place](bool good) { written(session, download, *place, good); });
  if (!taken) return fail(session, download, kSpoolFull);
  *place = *taken;
  found->chunks.push_back({*taken, found->arrived, found->count++, std::move(message)});
  of.was_busy = of.was_busy || busy(session);
  send_all(session);
}

void Downloads::add_end(std::uint32_t session, std::uint32_t download, std::shared_ptr<const Bytes> message) {
  Download* found = find(session, download);
  if (!found) return;
  found->end = std::move(message);
  send_all(session);
}

bool Downloads::busy(std::uint32_t session) const {
  const auto of = sessions_.find(session);
  return of != sessions_.end() && of->second.spool->unwritten() > kUnwritten;
}

void Downloads::written(std::uint32_t session, std::uint32_t download, Spool::Place place, bool good) {
  if (Download* found = find(session, download)) {
    if (!good) return fail(session, download, kSpoolFailed);
    const auto chunk = std::ranges::find(found->chunks, place, &Chunk::place);
    if (chunk != found->chunks.end()) chunk->bytes.reset();
  }
  const auto of = sessions_.find(session);
  if (of == sessions_.end() || busy(session) || !std::exchange(of->second.was_busy, false)) return;
  if (listener_.written) listener_.written(session);
}

void Downloads::fail(std::uint32_t session, std::uint32_t download, const char* code) {
  // The browser learns the reason before the machine's end, which it could take for the download's own.
  if (listener_.failed) listener_.failed(session, download, code);
  drop(session, download);
  if (listener_.written) listener_.written(session);
}

void Downloads::stored(std::uint32_t session, std::uint32_t download, std::uint64_t bytes) {
  thread_.check();
  Download* found = find(session, download);
  if (!found) return;
  OfSession& of = sessions_.at(session);
  auto& chunks = found->chunks;
  // A browser that confirms more than it was sent loses only its own file.
  while (!chunks.empty() && chunks.front().end <= bytes) {
    of.spool->release(chunks.front().place);
    found->confirmed = chunks.front().end;
    chunks.pop_front();
    if (found->next > 0) --found->next;
  }
  send_all(session);
}

bool Downloads::finish(std::uint32_t session, std::uint32_t download) {
  const Download* found = find(session, download);
  if (!found || !found->end || !found->chunks.empty()) return false;
  drop(session, download);
  return true;
}

void Downloads::leave(std::uint32_t session) {
  thread_.check();
  const auto of = sessions_.find(session);
  if (of == sessions_.end()) return;
  of->second.browser.reset();
  for (auto& [number, download] : of->second.downloads) {
    download.live = download.end_sent = false;
    download.next = 0;
  }
}

std::optional<Downloads::Start> Downloads::start_after(std::uint32_t session, std::uint32_t download,
                                                       std::uint64_t bytes) const {
  const auto of = sessions_.find(session);
  if (of == sessions_.end()) return std::nullopt;
  const auto found = of->second.downloads.find(download);
  if (found == of->second.downloads.end()) return std::nullopt;
  const Download& one = found->second;
  const auto first = one.count - static_cast<std::uint32_t>(one.chunks.size());
  if (bytes == one.confirmed) return Start{bytes, first};
  const auto chunk = std::ranges::find(one.chunks, bytes, &Chunk::end);
  if (chunk == one.chunks.end()) return std::nullopt;
  return Start{bytes, chunk->index + 1};
}

void Downloads::go_on(std::uint32_t session, std::uint32_t download, const std::shared_ptr<Channel>& browser,
                      const Start& from) {
  thread_.check();
  Download* found = find(session, download);
  if (!found) return;
  sessions_.at(session).browser = browser;
  found->live = true;
  found->end_sent = false;
  found->next = from.chunk - (found->count - static_cast<std::uint32_t>(found->chunks.size()));
  send_all(session);
}

std::uint64_t Downloads::confirmed(std::uint32_t session, std::uint32_t download) const {
  const auto of = sessions_.find(session);
  if (of == sessions_.end()) return 0;
  const auto found = of->second.downloads.find(download);
  return found == of->second.downloads.end() ? 0 : found->second.confirmed;
}

void Downloads::release(OfSession& of, Download& download) {
  for (const Chunk& chunk : download.chunks)
    of.spool->release(chunk.place);
  download.chunks.clear();
}

void Downloads::drop(std::uint32_t session, std::uint32_t download) {
  thread_.check();
  const auto of = sessions_.find(session);
  if (of == sessions_.end()) return;
  const auto found = of->second.downloads.find(download);
  if (found == of->second.downloads.end()) return;
  const auto end = found->second.end_sent ? nullptr : std::move(found->second.end);
  release(of->second, found->second);
  of->second.downloads.erase(found);
  if (end && of->second.browser) of->second.browser->send_binary(end, session, Lane::Bulk);
}

void Downloads::end(std::uint32_t session) {
  thread_.check();
  sessions_.erase(session);
}

bool Downloads::sendable(const Download& download) {
  if (!download.live || download.reads || download.end_sent) return false;
  if (download.next == download.chunks.size()) return download.end != nullptr;
  const std::uint64_t sent = download.next == 0 ? download.confirmed : download.chunks[download.next - 1].end;
  return sent - download.confirmed < kWindow;
}

bool Downloads::send_one(std::uint32_t session, OfSession& of) {
  const auto able = [](const auto& entry) { return sendable(entry.second); };
  // The downloads take turns.
  auto entry = std::find_if(of.downloads.upper_bound(of.last), of.downloads.end(), able);
  if (entry == of.downloads.end()) entry = std::find_if(of.downloads.begin(), of.downloads.end(), able);
  if (entry == of.downloads.end()) return false;
  auto& [number, download] = *entry;
  of.last = number;
  if (download.next == download.chunks.size()) {
    download.end_sent = true;
    of.browser->send_binary(download.end, session, Lane::Bulk);
    return true;
  }
  const Chunk& chunk = download.chunks[download.next];
  if (!chunk.bytes) {
    read(session, number, of, download);
    return true;
  }
  ++download.next;
  of.browser->send_binary(chunk.bytes, session, Lane::Bulk);
  return true;
}

void Downloads::read(std::uint32_t session, std::uint32_t number, OfSession& of, Download& download) {
  download.reads = true;
  const Spool::Place place = download.chunks[download.next].place;
  of.spool->read(place, [this, session, number, place](const std::shared_ptr<const Bytes>& bytes) {
    Download* found = find(session, number);
    if (!found) return;
    found->reads = false;
    // Another browser may have come meanwhile, which continues elsewhere.
    const bool due =
        found->live && found->next < found->chunks.size() && found->chunks[found->next].place == place;
    if (due && !bytes) return fail(session, number, kSpoolFailed);
    if (due) {
      ++found->next;
      sessions_.at(session).browser->send_binary(bytes, session, Lane::Bulk);
    }
    send_all(session);
  });
}

void Downloads::send_all(std::uint32_t session) {
  const auto of = sessions_.find(session);
  if (of == sessions_.end() || !of->second.browser) return;
  while (!of->second.browser->half_full() && send_one(session, of->second)) {
  }
}

void Downloads::send_more(const Channel& browser) {
  for (const auto& [session, of] : sessions_) {
    if (of.browser.get() == &browser) send_all(session);
  }
}

}  // namespace vlk::relay
