// Chooses lanes, and cuts the chunks of uploads.
#include "relay/session/files/machine_lane.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "relay/session/files/pieces.h"
#include "relay/session/files/transfers.h"

namespace vlk::relay {
namespace {

// A chunk with the part of the file's bytes that begins at `at`.
Bytes piece_of(const Bytes& chunk, std::uint32_t session, std::size_t at, std::uint32_t index) {
  const std::size_t size = std::min(kUploadPiece, chunk.size() - at);
  const auto content = chunk.begin() + static_cast<std::ptrdiff_t>(at);
  Bytes payload(chunk.begin() + kEnvelopeHeaderSize, chunk.begin() + kEnvelopeHeaderSize + 4);
  payload.reserve(kChunkHeader + size);
  for (int shift = 24; shift >= 0; shift -= 8)
    payload.push_back(static_cast<std::uint8_t>(index >> shift));
  payload.insert(payload.end(), content, content + static_cast<std::ptrdiff_t>(size));
  return encode_envelope(Msg::FileChunk, session, payload.data(), payload.size(), 0);
}

bool follows_uploads(Msg type) {
  return is_transfer(type) || type == Msg::DirListRequest;
}

}  // namespace

void send_to_machine(Channel& machine, const EnvelopeHeader& header, Bytes message, MemoryBudget::Claim claim,
                     std::uint32_t index) {
  const std::uint32_t session = header.session;
  const bool upload = header.type == Msg::UploadBegin || header.type == Msg::FileChunk;
  const bool waits = machine.queued_bytes(Lane::Bulk, session) > 0;
  const Lane lane = upload || (waits && follows_uploads(header.type)) ? Lane::Bulk : Lane::Urgent;
  if (header.type != Msg::FileChunk)
    return machine.send_binary(hold(std::move(message), std::move(claim)), session, lane);
  // The pieces share the memory that was claimed for the message.
  const auto shared = std::make_shared<MemoryBudget::Claim>(std::move(claim));
  std::size_t at = kEnvelopeHeaderSize + kChunkHeader;
  do {
    const auto piece = std::make_shared<const std::pair<Bytes, std::shared_ptr<MemoryBudget::Claim>>>(
        piece_of(message, session, at, index++), shared);
    machine.send_binary({piece, &piece->first}, session, lane);
    at += kUploadPiece;
  } while (at < message.size());
}

std::uint64_t discard_upload(Channel& machine, std::uint32_t session, std::uint32_t transfer) {
  std::uint64_t bytes = 0;
  machine.discard_bulk(session, [&](const Bytes& message) {
    const auto header = read_header(message);
    if (!header || !is_transfer(header->type) || transfer_number(header->type, message) != transfer)
      return false;
    if (header->type == Msg::FileChunk) bytes += chunk_bytes(message);
    return true;
  });
  return bytes;
}

}  // namespace vlk::relay
