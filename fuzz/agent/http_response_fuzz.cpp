// Gives any bytes, cut into reads of any size, as the whole answer of the update server. The first byte is
// the size of the reads, the second selects how the connection ends.
#include <algorithm>
#include <string>

#include "machine/network.h"
#include "require.h"
#include "update/https.h"
#include "update/update.h"
#include "update/version.h"

using namespace vlk::agent;

namespace {

constexpr char kHost[] = "updates.example";
constexpr std::uint32_t kPort = 8443;

class UpdateServer : public fuzz::Server {
 public:
  UpdateServer(std::string answer, std::size_t step, int end)
      : answer_(std::move(answer)), step_(step), end_(end) {}

  [[nodiscard]] const std::string& request() const { return request_; }

 private:
  bool accept(const std::string& host, std::uint32_t port) override {
    REQUIRE(host == kHost && port == kPort);
    return true;
  }
  std::ptrdiff_t give(unsigned char* buffer, std::size_t size) override {
    REQUIRE(request_.ends_with("\r\n\r\n") && !ended_);
    const std::size_t count = std::min({size, step_, answer_.size() - position_});
    ended_ = count == 0;
    if (ended_) return end_;
    answer_.copy(reinterpret_cast<char*>(buffer), count, position_);
    position_ += count;
    return static_cast<std::ptrdiff_t>(count);
  }
  bool take(const unsigned char* data, std::size_t size) override {
    request_.append(reinterpret_cast<const char*>(data), size);
    return true;
  }

  const std::string answer_;
  const std::size_t step_;
  const int end_;  // the result of the last read
  std::size_t position_ = 0;
  bool ended_ = false;
  std::string request_;
};

// Makes one fetch from a new server and requires the request for `path`.
template <class Fetch>
auto fetched(const std::string& answer, std::size_t step, int end, const std::string& path, Fetch fetch) {
  UpdateServer server(answer, step, end);
  const fuzz::Network network(server);
  auto result = fetch();
  REQUIRE(server.request() == "GET " + path + " HTTP/1.1\r\nHost: " + kHost +
                                  "\r\nUser-Agent: Vantelink\r\nConnection: close\r\n\r\n");
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t step = data[0] + 1u;
  const int end = data[1] % 2 == 0 ? 0 : -1;
  const std::string answer(data + 2, data + size);

  const std::size_t blank_line = answer.find("\r\n\r\n");
  const bool good = answer.compare(0, 12, "HTTP/1.1 200") == 0 && blank_line != std::string::npos;
  const std::string expected = good ? answer.substr(blank_line + 4) : "";

  std::string body = "untouched";
  REQUIRE(fetched(answer, step, end, "/any path?",
                  [&] { return https_get(kHost, kPort, "/any path?", body); }) == good);
  REQUIRE(body == (good ? expected : "untouched"));
  const std::string installer = fetched(answer, step, end, "/download/file.exe",
                                        [&] { return fetch_installer(kHost, kPort, "file.exe"); });
  REQUIRE(installer == expected);
  const auto offer =
      fetched(answer, step, end, "/version.json", [&] { return check_for_update(kHost, kPort); });
  const auto direct = good ? read_manifest(expected) : std::nullopt;
  REQUIRE(offer.has_value() == direct.has_value());
  if (offer) {
    REQUIRE(offer->version == direct->version && offer->file == direct->file && !offer->file.empty());
    REQUIRE(is_newer(kUpdateVersion, offer->version));
  }
  return 0;
}
