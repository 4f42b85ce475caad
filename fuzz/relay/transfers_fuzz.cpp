// Reads any bytes as a message about a file transfer. The first byte selects the message's type. If the relay
// passes the message on, the agent's reader must find in it exactly the values that the relay checked.
#include <array>
#include <string_view>

#include "relay/session/files/transfers.h"
#include "relay/wire/clip_note.h"
#include "require.h"
#include "wire/json.h"

using namespace vlk;
using namespace vlk::relay;

namespace {

constexpr std::uint32_t kSession = 7;
constexpr std::array kTypes = {Msg::DownloadRequest, Msg::UploadBegin, Msg::FileChunk, Msg::FileTransferEnd};

void check(Transfers& transfers, Msg type, Bytes message) {
  const TransferRuling ruling = transfers.from_browser(kSession, type, message);
  if (ruling.kind != TransferRuling::Kind::Pass) return;
  REQUIRE(ruling.transfer == 1);
  const auto header = read_header(message);
  REQUIRE(header && header->session == kSession && header->type == type);
  if (type == Msg::FileChunk) return;
  const std::string_view text(reinterpret_cast<const char*>(message.data()) + kEnvelopeHeaderSize,
                              message.size() - kEnvelopeHeaderSize);
  REQUIRE(read_int(text, "transfer_id").value == 1);
  if (type == Msg::FileTransferEnd) return;
  const auto path = read_string(text, "path");
  REQUIRE(path.found && !path.value.empty());
  for (const char c : path.value)
    REQUIRE(static_cast<unsigned char>(c) >= 0x20);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Msg type = kTypes[data[0] % kTypes.size()];
  const Bytes message = encode_envelope(type, kSession, data + 1, size - 1, kJsonPayload);

  Transfers transfers(0);
  REQUIRE(transfers.give(kSession) == 1);
  check(transfers, type, message);
  // The same bytes are checked again as an end message, in the state to which the first message brought the
  // transfer.
  check(transfers, Msg::FileTransferEnd,
        encode_envelope(Msg::FileTransferEnd, kSession, data + 1, size - 1, 1));
  (void)transfers.from_agent(kSession, Msg::FileTransferEnd, message);
  (void)transfers.from_agent(kSession, Msg::FileChunk, message);
  (void)transfers.end_session(kSession);
  (void)clip_note(message);
  return 0;
}
