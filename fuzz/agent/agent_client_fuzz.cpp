// Gives any bytes to the client after an upgrade. What the client does must not depend on how they are cut
// into reads. The first byte is the size of the reads, the second where a second connection begins. The third
// says whether access is unattended (lowest bit), and how many messages the client can send (0: all).
#include <string>
#include <utility>

#include "fakes/fakes.h"
#include "machine/recording_server.h"
#include "require.h"

using namespace vlk;
using namespace vlk::agent;
using namespace vlk::agent::fuzz;

namespace {

constexpr std::size_t kHeader = 3;

class ByteServer : public RecordingServer {
 public:
  ByteServer(std::vector<Bytes> connections, std::size_t cut, int writes)
      : RecordingServer(cut), connections_(std::move(connections)), writes_left_(writes == 0 ? -1 : writes) {}

  // Everything that the client's connection thread did, in order.
  [[nodiscard]] std::vector<std::string> run_bytes(const AgentConfig& config) {
    vantelink_fakes::reset();
    vantelink_fakes::script().thumbnails = {{0, 2, 1, Bytes(8)}, {1, 1, 2, Bytes(8)}};
    run_recorded(config);
    std::vector<std::string> all = events();
    all.insert(all.end(), store_.calls.begin(), store_.calls.end());
    return all;
  }

 private:
  bool another_connection() override {
    check_stopped();
    step_ = 0;
    return ++connection_ < connections_.size();
  }
  std::optional<Bytes> next() override {
    const std::size_t step = step_++;
    if (step == 0) return Bytes(kUpgraded, kUpgraded + sizeof kUpgraded - 1);
    if (step == 1 && !connections_[connection_].empty()) return connections_[connection_];
    return std::nullopt;
  }
  bool on_sent(const Sent& sent) override {
    return RecordingServer::on_sent(sent) &&
           (!on_connecting_thread() || writes_left_ < 0 || writes_left_-- > 0);
  }

  const std::vector<Bytes> connections_;
  int writes_left_;
  std::size_t connection_ = 0;
  std::size_t step_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHeader) return 0;
  const std::size_t cut = data[0] + 1u;
  const std::size_t length = size - kHeader;
  const std::size_t second = data[1] == 0 ? length : length * data[1] / 256;
  const std::uint8_t* const begin = data + kHeader;
  std::vector<Bytes> connections = {{begin, begin + second}};
  if (second < length) connections.emplace_back(begin + second, begin + length);
  AgentConfig config;
  config.unattended = data[2] % 2 != 0;
  const int writes = data[2] / 2;
  const auto whole = ByteServer(connections, 0, writes).run_bytes(config);
  const auto parts = ByteServer(connections, cut, writes).run_bytes(config);
  REQUIRE(whole == parts);
  return 0;
}
