// How much one processor carries: pictures from a machine to its viewer through the relay, and the same
// messages through a program that only copies between two TLS connections. Both are processes of their own,
// whose use of the processor is measured while the same peers send and read.
//
// --seconds=N sets the time of each measurement.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "options.h"
#include "process.h"
#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/net/strangers/raw_peer.h"
#include "relay/storage/store.h"
#include "relay/wire/envelope.h"
#include "relay/wire/part.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"
#include "tls_peer.h"

namespace {

using namespace vantelink_bench;
using vlk::Msg;
using vlk::relay::Browser;
using vlk::relay::Json;
using vlk::relay::RawPeer;
using Clock = std::chrono::steady_clock;

constexpr char kPassword[] = "correct horse battery";
constexpr std::size_t kGroup = 60;  // pictures from one key frame to the next
// What is sent beyond what was read. The relay's system takes so many small messages while the viewer does
// not read; it would drop pictures that wait for the viewer.
constexpr std::size_t kUnreadBytes = 512 * 1024;
constexpr std::size_t kUnreadMessages = 128;
constexpr std::chrono::milliseconds kWarmUp{500};  // before the measurement

// Sends without a pause, but never far ahead of the reader, and returns how many messages the process carried
// in each second of its processor's time. `read` reads a message and returns its number.
double messages_a_second(pid_t carrier, std::size_t size, std::chrono::seconds time,
                         const std::function<void(std::size_t number)>& send,
                         const std::function<std::size_t()>& read) {
  std::atomic<std::size_t> sent{0}, received{0};
  std::atomic<bool> stopping{false};
  std::thread sender([&] {
    const std::size_t most = std::min(kUnreadBytes / size, kUnreadMessages);
    while (!stopping) {
      if (sent - received >= most) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        continue;
      }
      send(sent);
      ++sent;
    }
  });
  const auto read_for = [&](Clock::duration while_) {
    std::size_t count = 0;
    for (const auto end = Clock::now() + while_; Clock::now() < end; ++count)
      received = read() + 1;
    return count;
  };
  read_for(kWarmUp);
  const double before = processor(carrier);
  const std::size_t count = read_for(time);
  const double spent = processor(carrier) - before;
  stopping = true;
  sender.join();
  return static_cast<double>(count) / spent;
}

// A picture of an H.264 stream: its number as the time stamp, start code, type of the unit, and bytes without
// a meaning.
std::string picture(std::size_t size, std::size_t number) {
  std::string payload(size, 'x');
  std::memcpy(payload.data(), &number, sizeof number);
  payload.replace(sizeof number, 5, std::string("\0\0\0\1", 4) + (number % kGroup == 0 ? '\x65' : '\x41'));
  return payload;
}

// Reads a whole picture, perhaps in parts, and returns its number.
std::size_t read_picture(RawPeer& viewer) {
  for (std::size_t number = 0;;) {
    const auto frame = viewer.read_frame();
    const auto& bytes = frame.payload;
    if (frame.opcode != vlk::kWsBinary) continue;
    const bool part = bytes[0] == vlk::relay::kPartMark;
    const bool first = !part || (bytes[1] & vlk::relay::kFirstPart) != 0;
    const std::size_t begin = part ? vlk::relay::kPartHeaderSize : 0;
    if (first && bytes[begin] != static_cast<std::uint8_t>(Msg::StreamFrame)) continue;
    if (first) std::memcpy(&number, bytes.data() + begin + vlk::kEnvelopeHeaderSize, sizeof number);
    if (!part || (bytes[1] & vlk::relay::kLastPart) != 0) return number;
  }
}

double through_relay(std::size_t size, std::chrono::seconds time) {
  const vantelink_test::TempFolder folder;
  const std::string data = folder.path() / "data";
  std::filesystem::create_directories(data);
  vlk::relay::start_sodium();
  vlk::relay::Store store(data + "/relay.db");
  store.add_user("admin", vlk::relay::hash_password(kPassword));
  store.open_enrolment(60, std::nullopt);
  const vantelink_test::RelayProcess relay(data, {});
  const auto port = static_cast<unsigned short>(relay.port());
  RawPeer agent(port);
  agent.start_tls();
  agent.upgrade();
  agent.send_message(Msg::Hello, 0, R"({"role":"agent"})");
  agent.send_message(Msg::Enroll, 0, R"({"name":"machine"})");
  const std::string id = Json::parse(agent.read_message(Msg::EnrollResult))["agent_id"];
  const Json credentials = {{"name", "admin"}, {"password", kPassword}};
  const std::string cookie = Browser(port).request("POST", "/api/login", credentials.dump()).cookie;
  RawPeer viewer(port);
  viewer.start_tls();
  viewer.upgrade("/console",
                 "Origin: https://localhost\r\nCookie: __Host-vantelink_session=" + cookie + "\r\n");
  viewer.send(RawPeer::frame(vlk::kWsText, Json{{"type", "open"}, {"agent", id}}.dump()));
  agent.read_message(Msg::SessionRequest);
  const std::uint32_t session = agent.last_session();
  agent.send_message(Msg::SessionAccept, session, "{}");
  viewer.read_text("accepted");
  viewer.send_message(Msg::StreamStart, session, R"({"max_fps":60,"bitrate":6000000})");
  const auto send = [&](std::size_t number) {
    const std::string payload = picture(size, number);
    const auto bytes = vlk::encode_envelope(
        Msg::StreamFrame, session, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), 0);
    agent.send(RawPeer::frame(vlk::kWsBinary, {bytes.begin(), bytes.end()}));
  };
  return messages_a_second(relay.pid(), size, time, send, [&] { return read_picture(viewer); });
}

// Copies what arrives on one connection to another one, until the first ends.
[[noreturn]] void copy(const TlsListener& from, const TlsListener& to) {
  const Ssl reader = from.accept(), writer = to.accept();
  unsigned char bytes[16 * 1024];
  for (;;) {
    const int count = SSL_read(reader.get(), bytes, sizeof bytes);
    if (count <= 0 || SSL_write(writer.get(), bytes, count) != count) ::_exit(0);
  }
}

double through_copy(std::size_t size, std::chrono::seconds time) {
  const TlsListener from, to;
  const pid_t copier = ::fork();
  if (copier == 0) copy(from, to);
  RawPeer sender(from.port), reader(to.port);
  sender.start_tls();
  reader.start_tls();
  const std::string message(size, 'x');
  std::size_t left = 0, read = 0;
  const double count = messages_a_second(
      copier, size, time, [&](std::size_t) { sender.send(message); },
      [&] {
        for (left += size; left > 0;)
          left -= std::min(left, reader.read_bytes(left));
        return read++;
      });
  sender.close();
  ::kill(copier, SIGKILL);
  ::waitpid(copier, nullptr, 0);
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::chrono::seconds time{5};
    read_options(argc, argv,
                 {{"seconds", [&](const auto& value) { time = std::chrono::seconds(std::stol(value)); }}});
    std::printf("%-10s %22s %22s %8s\n", "message", "relay, each CPU second", "copy, each CPU second",
                "ratio");
    for (const std::size_t size : {std::size_t{64} * 1024, std::size_t{100}}) {
      const double copied = through_copy(size, time), relayed = through_relay(size, time);
      const double unit = size > 1024 ? static_cast<double>(size) / (1 << 20) : 1;
      std::printf("%6zu B   %18.0f %s %18.0f %s %7.2f\n", size, relayed * unit, size > 1024 ? "MiB" : "   ",
                  copied * unit, size > 1024 ? "MiB" : "   ", relayed / copied);
      std::fflush(stdout);
    }
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
