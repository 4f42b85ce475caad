// Orders the outgoing messages of one peer.
#include "relay/net/queue/outbox.h"

#include <algorithm>
#include <utility>

namespace vlk::relay {
namespace {

constexpr Lane kAllLanes[] = {Lane::Urgent, Lane::Control, Lane::Picture, Lane::Bulk};
// Pieces of pictures after which a bulk message gets one, so that a stream that fills the line does not stop
// a file.
constexpr std::size_t kPicturesPerBulk = 4;

// Every picture needs the settings of its stream.
bool is_replaced(PictureKind queued, PictureKind newer) {
  return queued != PictureKind::Settings || newer == PictureKind::Settings;
}

}  // namespace

bool Outbox::counts(Lane lane, const OutgoingMessage& message) {
  return lane != Lane::Picture && !message.large;
}

void Outbox::add(Lane lane, OutgoingMessage message) {
  if (counts(lane, message)) counted_in(lane) += message.bytes->size();
  queue(lane).push_back(std::move(message));
}

bool Outbox::add_picture(OutgoingMessage message, Clock::time_point now) {
  const std::uint32_t tag = message.tag;
  const Queue& pictures = queue(Lane::Picture);
  const auto oldest =
      std::ranges::find_if(pictures, [&](const OutgoingMessage& queued) { return queued.tag == tag; });
  const Clock::duration waited = oldest == pictures.end() ? Clock::duration::zero() : now - oldest->queued;
  const auto ruling = gates_[tag].decide(message.kind, queued_bytes(Lane::Picture, tag), waited);
  PictureTally& tally = tallies_[tag];
  if (ruling != PictureGate::Ruling::Add) {
    const std::size_t removed = remove_where(Lane::Picture, [&](const OutgoingMessage& queued) {
      if (queued.tag != tag || queued.taken > 0) return false;
      return ruling == PictureGate::Ruling::Drop ? queued.kind == PictureKind::Delta
                                                 : is_replaced(queued.kind, message.kind);
    });
    tally.dropped += static_cast<std::uint32_t>(removed);
    if (traffic_) traffic_->dropped_pictures += removed;
  }
  if (ruling == PictureGate::Ruling::Drop) {
    ++tally.dropped;
    if (traffic_) ++traffic_->dropped_pictures;
    return false;
  }
  message.queued = now;
  queue(Lane::Picture).push_back(std::move(message));
  return true;
}

std::optional<Lane> Outbox::next_lane() const {
  const auto waits = [&](Lane lane) { return !queue(lane).empty(); };
  if (!division_.parts) {
    // The fragments of two WebSocket messages cannot alternate.
    const auto begun = std::ranges::find_if(
        kAllLanes, [&](Lane lane) { return waits(lane) && queue(lane).front().taken > 0; });
    if (begun != std::end(kAllLanes)) return *begun;
  }
  const auto first = std::ranges::find_if(kAllLanes, waits);
  if (first == std::end(kAllLanes)) return std::nullopt;
  if (*first == Lane::Picture && waits(Lane::Bulk) && pictures_in_a_row_ >= kPicturesPerBulk)
    return Lane::Bulk;
  return *first;
}

std::optional<OutgoingPiece> Outbox::take() {
  const auto lane = next_lane();
  if (!lane) return std::nullopt;
  if (*lane == Lane::Picture) ++pictures_in_a_row_;
  if (*lane == Lane::Bulk) pictures_in_a_row_ = 0;
  OutgoingMessage& message = queue(*lane).front();
  const std::size_t size = std::min(division_.piece_bytes, message.left());
  const bool last = size == message.left();
  OutgoingPiece piece{.lane = *lane,
                      .tag = message.tag,
                      .queued = message.queued,
                      .text = message.text,
                      .counts = counts(*lane, message),
                      .first = message.taken == 0,
                      .last = last,
                      .message = message.bytes,
                      .header = message.header,
                      .offset = message.taken,
                      .size = size};
  message.taken += size;
  if (last) queue(*lane).pop_front();
  return piece;
}

std::size_t Outbox::next_size() const {
  const auto lane = next_lane();
  return lane ? std::min(division_.piece_bytes, queue(*lane).front().left()) : 0;
}

void Outbox::count(const OutgoingPiece& piece, Clock::time_point now) const {
  Traffic::Direction& out = traffic_->out;
  const bool picture = piece.lane == Lane::Picture;
  Traffic::Flow& flow = picture ? out.pictures : piece.lane == Lane::Bulk ? out.bulk : out.others;
  flow.bytes += piece.size;
  if (!piece.last) return;
  ++flow.messages;
  if (picture) traffic_->waited.add(now - piece.queued);
}

void Outbox::written(const OutgoingPiece& piece, Clock::time_point now) {
  if (traffic_) count(piece, now);
  if (piece.counts) counted_in(piece.lane) -= piece.size;
  if (piece.lane != Lane::Picture || !piece.last) return;
  const auto tally = tallies_.find(piece.tag);
  if (tally == tallies_.end()) return;  // the stream has been removed meanwhile
  ++tally->second.written;
  tally->second.waited += now - piece.queued;
}

PictureTally Outbox::take_tally(std::uint32_t tag) {
  const auto tally = tallies_.find(tag);
  return tally == tallies_.end() ? PictureTally{} : std::exchange(tally->second, {});
}

template <class Condition>
std::size_t Outbox::remove_where(Lane lane, Condition condition) {
  return std::erase_if(queue(lane), [&](const OutgoingMessage& message) {
    if (!condition(message)) return false;
    if (counts(lane, message)) counted_in(lane) -= message.left();
    return true;
  });
}

void Outbox::remove(std::uint32_t tag) {
  for (const Lane lane : kAllLanes) {
    remove_where(lane, [&](const OutgoingMessage& message) {
      return message.tag == tag && (message.taken == 0 || division_.parts);
    });
  }
  gates_.erase(tag);
  tallies_.erase(tag);
}

void Outbox::remove_bulk(std::uint32_t tag, const std::function<bool(const Bytes&)>& unwanted) {
  remove_where(Lane::Bulk, [&](const OutgoingMessage& message) {
    return message.tag == tag && message.taken == 0 && unwanted(*message.bytes);
  });
}

void Outbox::promote_bulk(std::uint32_t tag) {
  for (const OutgoingMessage& message : queue(Lane::Bulk)) {
    if (message.tag == tag && message.taken == 0) add(Lane::Urgent, message);
  }
  remove_bulk(tag, [](const Bytes&) { return true; });
}

void Outbox::clear() {
  for (Queue& lane : lanes_)
    lane.clear();
  gates_.clear();
  tallies_.clear();
  counted_ = {};
}

bool Outbox::empty() const {
  return std::ranges::all_of(lanes_, [](const Queue& lane) { return lane.empty(); });
}

bool Outbox::has_large(std::uint32_t tag) const {
  return std::ranges::any_of(
      queue(Lane::Bulk), [&](const OutgoingMessage& message) { return message.large && message.tag == tag; });
}

std::size_t Outbox::queued_bytes(Lane lane, std::uint32_t tag) const {
  std::size_t bytes = 0;
  for (const OutgoingMessage& message : queue(lane)) {
    if (message.tag == tag) bytes += message.left();
  }
  return bytes;
}

std::size_t Outbox::waiting_bytes() const {
  std::size_t bytes = 0;
  for (const Queue& lane : lanes_) {
    for (const OutgoingMessage& message : lane)
      bytes += message.left();
  }
  return bytes;
}

std::optional<Clock::time_point> Outbox::oldest_bulk() const {
  const Queue& bulk = queue(Lane::Bulk);
  return bulk.empty() ? std::nullopt : std::optional(bulk.front().queued);
}

}  // namespace vlk::relay
