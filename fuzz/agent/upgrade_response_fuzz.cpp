// Gives any bytes, cut into reads of any size, as the server's answer to the request for an upgrade, and a
// ping after it. The first byte is the size of the reads.
#include <algorithm>
#include <string>

#include "fakes/fakes.h"
#include "machine/recording_server.h"
#include "require.h"

using namespace vlk;
using namespace vlk::agent;
using namespace vlk::agent::fuzz;

namespace {

constexpr std::size_t kReadSize = 2048;  // the client's reads are not longer
constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kDigits = "101";
constexpr unsigned char kPing[] = {'p', 'i', 'n', 'g'};

class AnsweringServer : public RecordingServer {
 public:
  AnsweringServer(std::vector<std::string> pieces, std::size_t cut)
      : RecordingServer(cut), pieces_(std::move(pieces)) {}

  // Everything that the client's connection thread did, in order.
  [[nodiscard]] std::vector<std::string> run_answer() {
    vantelink_fakes::reset();
    run_recorded({});
    return events();
  }

 private:
  bool another_connection() override { return false; }
  std::optional<Bytes> next() override {
    const std::size_t step = step_++;
    if (step < pieces_.size()) return Bytes(pieces_[step].begin(), pieces_[step].end());
    if (step == pieces_.size()) return encode_frame(kWsPing, kPing, sizeof kPing, false);
    return std::nullopt;
  }

  const std::vector<std::string> pieces_;
  std::size_t step_ = 0;
};

// Whether the client accepts the answer: the digits are in what it has read when it has the blank line.
bool accepts(const std::string& answer, std::size_t cut) {
  const std::size_t blank_line = answer.find(kBlankLine);
  if (blank_line == std::string::npos) return false;
  const std::size_t step = std::min(cut, kReadSize);
  const std::size_t reads = (blank_line + kBlankLine.size() + step - 1) / step;
  return answer.substr(0, reads * step).find(kDigits) != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t cut = data[0] + 1u;
  const std::string answer(data + 1, data + size);
  const std::vector<std::string> whole = AnsweringServer({answer}, cut).run_answer();
  REQUIRE(whole.front() == "status 1 0");
  if (!accepts(answer, cut)) {
    REQUIRE(whole == (std::vector<std::string>{"status 1 0", "status 0 0"}));
    return 0;
  }
  REQUIRE(whole.size() > 4 && whole[1].starts_with("sent 2 1 ") && whole[2].starts_with("sent 2 16 "));
  REQUIRE(whole[3] == "status 1 0" && whole.back() == "status 0 0");
  // Frames may follow the blank line. They have the same effects if the answer ends before them.
  const std::string head = answer.substr(0, answer.find(kBlankLine) + kBlankLine.size());
  const std::string rest = answer.substr(head.size());
  if (head.find(kDigits) == std::string::npos) return 0;
  std::vector<std::string> pieces = {head};
  if (!rest.empty()) pieces.push_back(rest);
  REQUIRE(AnsweringServer(pieces, 0).run_answer() == whole);
  if (rest.empty()) REQUIRE(std::ranges::count(whole, "sent 10 0 0 0 ping") == 1);
  return 0;
}
