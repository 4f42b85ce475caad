// Downloads and uploads of 256 MiB over loopback TLS, compared with a bare OpenSSL program that sends the
// same bytes in pieces of the same size. Both ends run in this process, on threads.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "agent_link.h"
#include "support/temp_folder.h"
#include "tls_peer.h"
#include "transfer/file_transfer.h"
#include "wire/big_endian.h"
#include "wire/json.h"
#include "wire/messages.h"
#include "wire/websocket.h"

namespace {

using namespace vantelink_bench;
using vantelink_test::TempFolder;
using vlk::Msg;

constexpr std::size_t kFileSize = 256 << 20;  // bytes
constexpr std::size_t kPiece = vlk::agent::kChunkHeaderSize + vlk::agent::kChunkSize;
constexpr std::size_t kPieces = kFileSize / vlk::agent::kChunkSize;

using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

File open_file(const std::string& path, const char* mode) {
  return {std::fopen(path.c_str(), mode), &std::fclose};
}

std::string transfer_text(const std::string& path) {
  return vlk::JsonWriter().add_int("transfer_id", 1).add_string("path", path).finish();
}

// A folder with the file to download; created once.
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

// Times each transfer in wall-clock time, since other threads do the work.
template <typename Transfer>
void time_transfers(benchmark::State& state, Transfer transfer) {
  for (auto step : state) {
    const auto start = std::chrono::steady_clock::now();
    transfer();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  state.SetBytesProcessed(
      static_cast<std::int64_t>(static_cast<std::uint64_t>(state.iterations()) * kFileSize));
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
  const TlsListener listener;
  const SslContext context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
  std::thread sender([&] {
    const Ssl ssl = connect_to(listener, context.get());
    std::vector<unsigned char> piece(kPiece);
    unsigned char go = 0;
    while (SSL_read(ssl.get(), &go, 1) == 1) {
      const File file = open_file(own_path("large"), "rb");
      std::size_t count = 0;
      while ((count = std::fread(piece.data() + vlk::agent::kChunkHeaderSize, 1, vlk::agent::kChunkSize,
                                 file.get())) > 0)
        write_all(ssl.get(), piece.data(), vlk::agent::kChunkHeaderSize + count);
    }
    close_connection(ssl);
  });
  const Ssl ssl = listener.accept();
  time_transfers(state, [&] {
    write_all(ssl.get(), "g", 1);
    unsigned char buffer[kReadSize];
    for (std::size_t left = kPieces * kPiece; left > 0;)
      left -= read_some(ssl.get(), buffer, sizeof buffer);
  });
  close_connection(ssl);
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
    // The agent answers this heartbeat only after it has written all chunks and closed the file.
    link.send(Msg::Heartbeat, "done?");
    link.wait_for(Msg::Heartbeat);
  });
}

void UploadBare(benchmark::State& state) {
  const TlsListener listener;
  const SslContext context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
  std::thread receiver([&] {
    const Ssl ssl = connect_to(listener, context.get());
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
      close_connection(ssl);
    }
  });
  {
    const Ssl ssl = listener.accept();
    const std::vector<unsigned char> piece(kPiece, 'u');
    time_transfers(state, [&] {
      for (std::size_t i = 0; i < kPieces; ++i)
        write_all(ssl.get(), piece.data(), piece.size());
      unsigned char done = 0;
      read_some(ssl.get(), &done, 1);
    });
    close_connection(ssl);
  }
  receiver.join();
}

BENCHMARK(Download)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(DownloadBare)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(Upload)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(UploadBare)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
