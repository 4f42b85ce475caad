// Files over the link: downloads and uploads of 256 MiB over loopback TLS against a bare OpenSSL program that
// pushes the same bytes in pieces of the same size, and listings of large folders against the bare
// enumeration. Both ends run in this process, on threads.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "client/agent_client.h"
#include "fakes/fakes.h"
#include "support/certificates.h"
#include "support/temp_folder.h"
#include "transfer/directory.h"
#include "transfer/file_transfer.h"
#include "wire/big_endian.h"
#include "wire/json.h"
#include "wire/messages.h"
#include "wire/websocket.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using vantelink_test::TempFolder;
using vantelink_test::TestAuthority;
using vlk::Msg;

constexpr std::size_t kFileSize = 256 << 20;  // bytes
constexpr std::size_t kPiece = vlk::agent::kChunkHeaderSize + vlk::agent::kChunkSize;
constexpr std::size_t kPieces = kFileSize / vlk::agent::kChunkSize;
constexpr std::size_t kReadSize = 16384;  // one TLS record

using Ssl = std::unique_ptr<SSL, decltype(&SSL_free)>;
using SslContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

File open_file(const std::string& path, const char* mode) {
  return {std::fopen(path.c_str(), mode), &std::fclose};
}

const TestAuthority& authority() {
  static const TestAuthority kAuthority;
  return kAuthority;
}

void write_all(SSL* ssl, const void* bytes, std::size_t size) {
  if (SSL_write(ssl, bytes, static_cast<int>(size)) != static_cast<int>(size))
    throw std::runtime_error("the other end has gone");
}

std::size_t read_some(SSL* ssl, unsigned char* bytes, std::size_t size) {
  const int count = SSL_read(ssl, bytes, static_cast<int>(size));
  if (count <= 0) throw std::runtime_error("the other end has gone");
  return static_cast<std::size_t>(count);
}

// A TLS listener on the loopback address.
class FarEnd {
 public:
  FarEnd() : context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
    std::signal(SIGPIPE, SIG_IGN);
    const TestAuthority::Identity identity = authority().issue({"localhost"});
    SSL_CTX_use_certificate(context_.get(), identity.certificate.get());
    SSL_CTX_use_PrivateKey(context_.get(), identity.key.get());
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
    ::listen(listener_, 8);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
  }
  ~FarEnd() { ::close(listener_); }
  FarEnd(const FarEnd&) = delete;
  FarEnd& operator=(const FarEnd&) = delete;

  Ssl accept() const {
    const int socket = ::accept(listener_, nullptr, nullptr);
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Ssl ssl(SSL_new(context_.get()), &SSL_free);
    SSL_set_fd(ssl.get(), socket);
    if (SSL_accept(ssl.get()) != 1) throw std::runtime_error("no handshake");
    return ssl;
  }

  std::uint16_t port = 0;

 private:
  SslContext context_;
  int listener_ = -1;
};

Ssl connect_to(const FarEnd& far_end, SSL_CTX* context) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(far_end.port);
  ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  Ssl ssl(SSL_new(context), &SSL_free);
  SSL_set_fd(ssl.get(), socket);
  if (SSL_connect(ssl.get()) != 1) throw std::runtime_error("no handshake");
  return ssl;
}

void close_link(const Ssl& ssl) {
  ::close(SSL_get_fd(ssl.get()));
}

// Walks over a client's frames without unmasking their content, so that it costs next to nothing; tells each
// message's type.
class FrameWalker {
 public:
  // Returns whether a message of the type began in these bytes.
  bool feed(const unsigned char* bytes, std::size_t size, Msg wanted) {
    bool seen = false;
    for (std::size_t at = 0; at < size;) {
      if (left_ > 0) {
        const std::size_t count = std::min<std::size_t>(left_, size - at);
        at += count;
        left_ -= count;
        continue;
      }
      head_.push_back(bytes[at++]);
      if (head_.size() < 2) continue;
      const std::size_t code = head_[1] & 0x7F;
      const std::size_t extra = code == 127 ? 8 : code == 126 ? 2 : 0;
      // The length, the mask's four bytes and the first of the content.
      if (head_.size() < 2 + extra + 5) continue;
      std::uint64_t length = extra == 0 ? code : 0;
      for (std::size_t i = 0; i < extra; ++i)
        length = length << 8 | head_[2 + i];
      const auto type = static_cast<Msg>(head_[2 + extra + 4] ^ head_[2 + extra]);
      seen |= type == wanted;
      left_ = length - 1;
      head_.clear();
    }
    return seen;
  }

 private:
  std::vector<unsigned char> head_;
  std::uint64_t left_ = 0;
};

// The agent's own client, connected to a far end that this object plays.
class AgentLink {
 public:
  AgentLink() {
    ::unsetenv("SSL_CERT_FILE");
    ::unsetenv("SSL_CERT_DIR");
    vantelink_fakes::reset();
    vantelink_fakes::script().roots = {authority().der()};
    vlk::agent::AgentConfig config;
    config.agent_id = config.agent_secret = "x";
    config.server_host = "localhost";
    config.server_port = far_end_.port;
    client_ = std::make_unique<vlk::agent::AgentClient>(config, vlk::agent::AgentCallbacks{});
    client_->start();
    ssl_ = far_end_.accept();
    std::string request;
    unsigned char byte = 0;
    while (!request.ends_with("\r\n\r\n")) {
      read_some(ssl_.get(), &byte, 1);
      request += static_cast<char>(byte);
    }
    const std::string answer =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n";
    write_all(ssl_.get(), answer.data(), answer.size());
    wait_for(Msg::Login);
  }
  ~AgentLink() {
    close_link(ssl_);
    client_.reset();
  }
  AgentLink(const AgentLink&) = delete;
  AgentLink& operator=(const AgentLink&) = delete;

  void send(Msg type, std::string_view payload) {
    const std::vector<std::uint8_t> envelope = vlk::encode_envelope(
        type, 1, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), 1);
    send_frame(vlk::encode_frame(vlk::kWsBinary, envelope.data(), envelope.size(), false));
  }
  void send_frame(const std::vector<std::uint8_t>& frame) {
    write_all(ssl_.get(), frame.data(), frame.size());
  }
  void wait_for(Msg type) {
    unsigned char buffer[kReadSize];
    while (!walker_.feed(buffer, read_some(ssl_.get(), buffer, sizeof buffer), type)) {
    }
  }

 private:
  FarEnd far_end_;
  std::unique_ptr<vlk::agent::AgentClient> client_;
  Ssl ssl_{nullptr, &SSL_free};
  FrameWalker walker_;
};

std::string transfer_text(const std::string& path) {
  return vlk::JsonWriter().add_int("transfer_id", 1).add_string("path", path).finish();
}

// A folder with the file that goes down; made once.
const TempFolder& folder() {
  static const TempFolder kFolder;
  static const bool kMade = [] {
    std::ofstream file(kFolder.path() / "large", std::ios::binary);
    const std::string part(1 << 20, 'd');
    for (std::size_t i = 0; i < kFileSize / part.size(); ++i)
      file << part;
    return true;
  }();
  (void)kMade;
  return kFolder;
}

std::string own_path(const char* name) {
  return (folder().path() / name).string();
}

// Times one transfer with the clock on the wall.
template <typename Transfer>
void time_transfers(benchmark::State& state, Transfer transfer) {
  for (auto step : state) {
    const auto start = std::chrono::steady_clock::now();
    transfer();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kFileSize);
}

void Download(benchmark::State& state) {
  AgentLink link;
  const std::string request = transfer_text(folder().windows_path("large"));
  time_transfers(state, [&] {
    link.send(Msg::DownloadRequest, request);
    link.wait_for(Msg::FileTransferEnd);
  });
}

void DownloadBare(benchmark::State& state) {
  const FarEnd far_end;
  const SslContext context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
  std::thread sender([&] {
    const Ssl ssl = connect_to(far_end, context.get());
    std::vector<unsigned char> piece(kPiece);
    unsigned char go = 0;
    while (SSL_read(ssl.get(), &go, 1) == 1) {
      const File file = open_file(own_path("large"), "rb");
      std::size_t count = 0;
      while ((count = std::fread(piece.data() + vlk::agent::kChunkHeaderSize, 1, vlk::agent::kChunkSize,
                                 file.get())) > 0)
        write_all(ssl.get(), piece.data(), vlk::agent::kChunkHeaderSize + count);
    }
    close_link(ssl);
  });
  const Ssl ssl = far_end.accept();
  time_transfers(state, [&] {
    write_all(ssl.get(), "g", 1);
    unsigned char buffer[kReadSize];
    for (std::size_t left = kPieces * kPiece; left > 0;)
      left -= read_some(ssl.get(), buffer, sizeof buffer);
  });
  close_link(ssl);
  sender.join();
}

void Upload(benchmark::State& state) {
  AgentLink link;
  std::vector<std::uint8_t> chunk(kPiece, 'u');
  vlk::put_u32_be(chunk.data(), 1);
  const std::vector<std::uint8_t> envelope =
      vlk::encode_envelope(Msg::FileChunk, 1, chunk.data(), chunk.size(), 0);
  const std::vector<std::uint8_t> frame =
      vlk::encode_frame(vlk::kWsBinary, envelope.data(), envelope.size(), false);
  const std::string begin = transfer_text(folder().windows_path("up"));
  const std::string end = vlk::JsonWriter().add_int("transfer_id", 1).finish();
  time_transfers(state, [&] {
    link.send(Msg::UploadBegin, begin);
    for (std::size_t i = 0; i < kPieces; ++i)
      link.send_frame(frame);
    link.send(Msg::FileTransferEnd, end);
    // Answered when all before it is written and the file closed.
    link.send(Msg::Heartbeat, "done?");
    link.wait_for(Msg::Heartbeat);
  });
}

void UploadBare(benchmark::State& state) {
  const FarEnd far_end;
  const SslContext context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
  std::thread receiver([&] {
    const Ssl ssl = connect_to(far_end, context.get());
    std::vector<unsigned char> buffer(kReadSize);
    try {
      for (;;) {
        std::size_t count = read_some(ssl.get(), buffer.data(), buffer.size());
        const File file = open_file(own_path("bare"), "wb");
        for (std::size_t left = kPieces * kPiece;;) {
          std::fwrite(buffer.data(), 1, count, file.get());
          left -= count;
          if (left == 0) break;
          count = read_some(ssl.get(), buffer.data(), std::min(left, buffer.size()));
        }
        std::fflush(file.get());
        write_all(ssl.get(), "d", 1);
      }
    } catch (const std::runtime_error&) {
      close_link(ssl);
    }
  });
  {
    const Ssl ssl = far_end.accept();
    const std::vector<unsigned char> piece(kPiece, 'u');
    time_transfers(state, [&] {
      for (std::size_t i = 0; i < kPieces; ++i)
        write_all(ssl.get(), piece.data(), piece.size());
      unsigned char done = 0;
      read_some(ssl.get(), &done, 1);
    });
    close_link(ssl);
  }
  receiver.join();
}

// A folder of that many empty files; kept until the program ends, for both that list it.
const TempFolder& folder_of(std::int64_t entries) {
  static std::vector<std::pair<std::int64_t, std::unique_ptr<TempFolder>>> made;
  for (const auto& [count, one] : made) {
    if (count == entries) return *one;
  }
  auto one = std::make_unique<TempFolder>();
  for (std::int64_t i = 0; i < entries; ++i)
    one->write("document " + std::to_string(i) + ".txt", "");
  made.emplace_back(entries, std::move(one));
  return *made.back().second;
}

void List(benchmark::State& state) {
  const std::string path = folder_of(state.range(0)).windows_path();
  for (auto step : state)
    benchmark::DoNotOptimize(vlk::agent::ListDirectory(path));
  state.SetComplexityN(state.range(0));
}

// What any listing with sizes and times costs on this host.
void ListBare(benchmark::State& state) {
  const std::string path = folder_of(state.range(0)).path().string();
  for (auto step : state) {
    DIR* const opened = ::opendir(path.c_str());
    std::int64_t sum = 0;
    while (const dirent* const entry = ::readdir(opened)) {
      struct stat status {};
      if (::fstatat(::dirfd(opened), entry->d_name, &status, 0) == 0) sum += status.st_size + status.st_mtime;
    }
    ::closedir(opened);
    benchmark::DoNotOptimize(sum);
  }
  state.SetComplexityN(state.range(0));
}

BENCHMARK(Download)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(DownloadBare)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(Upload)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(UploadBare)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(List)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(ListBare)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace
