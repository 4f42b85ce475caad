// Gives any bytes, cut into reads of any size, as the server's answer to the request for an upgrade. The
// first byte is the size of the reads.
#include <algorithm>
#include <string>
#include <utility>

#include "fakes/fakes.h"
#include "machine/file_store.h"
#include "machine/scripted_server.h"
#include "require.h"

using namespace vlk::agent;
using vlk::Msg;

namespace {

constexpr std::size_t kReadSize = 2048;  // the client's reads are not longer

class AnsweringServer : public fuzz::ScriptedServer {
 public:
  AnsweringServer(fuzz::Bytes answer, std::size_t cut) : ScriptedServer(cut), answer_(std::move(answer)) {}

  [[nodiscard]] const std::vector<Msg>& sent() const { return sent_; }

 private:
  bool another_connection() override { return false; }
  std::optional<fuzz::Bytes> next() override {
    if (std::exchange(given_, true)) return std::nullopt;
    return answer_;
  }
  bool on_sent(const fuzz::Sent& sent) override {
    // The answers to frames that follow the answer are not checked here.
    if (sent_.size() < 2) sent_.push_back(static_cast<Msg>(sent.envelope.type));
    return true;
  }

  const fuzz::Bytes answer_;
  bool given_ = false;
  std::vector<Msg> sent_;
};

// Whether the client accepts the answer: the digits 101 are in what it has read when it has the blank line.
bool accepts(const std::string& answer, std::size_t cut) {
  const std::size_t blank_line = answer.find("\r\n\r\n");
  if (blank_line == std::string::npos) return false;
  const std::size_t step = std::min(cut, kReadSize);
  const std::size_t reads = (blank_line + 4 + step - 1) / step;
  return answer.substr(0, reads * step).find("101") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t cut = data[0] + 1u;
  const std::string answer(data + 1, data + size);
  vantelink_fakes::reset();
  const fuzz::FileStore store;
  AnsweringServer server({data + 1, data + size}, cut);
  int connecting = 0;
  int offline = 0;
  AgentCallbacks callbacks;
  callbacks.on_status = [&](Status status, int) {
    connecting += status == Status::Connecting ? 1 : 0;
    offline += status == Status::Offline ? 1 : 0;
  };
  server.run({}, callbacks);
  const bool accepted = accepts(answer, cut);
  // A log-in follows only an upgrade, and the status changes once more then.
  REQUIRE(connecting == (accepted ? 2 : 1) && offline == 1);
  REQUIRE(server.sent() == (accepted ? std::vector{Msg::Hello, Msg::Enroll} : std::vector<Msg>()));
  return 0;
}
