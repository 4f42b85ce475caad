// The way of a browser's messages to its machine: uploads are cut small and are overtaken by all other
// messages, except those that must follow them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "relay/base/memory/memory_budget.h"
#include "relay/net/channel.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// Queues a message of the session for its machine. A chunk of an upload is cut into chunks of up to
// kUploadPiece bytes, the first of which gets the index `index`. A listing and a download can be about a file
// that is being uploaded, so they follow the queued uploads of their session.
void send_to_machine(Channel& machine, const EnvelopeHeader& header, Bytes message, MemoryBudget::Claim claim,
                     std::uint32_t index);

// Removes the queued messages of the session's upload, and returns how many bytes of the file they had.
std::uint64_t discard_upload(Channel& machine, std::uint32_t session, std::uint32_t transfer);

}  // namespace vlk::relay
