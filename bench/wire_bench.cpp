// Costs of one message: encoding and masking a frame compared with a plain copy and with Boost.Beast, parsing
// frames compared with Boost.Beast, and reading fields of a small JSON text.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/beast/_experimental/test/stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>

#include "wire/json.h"
#include "wire/message_frame.h"
#include "wire/websocket.h"

namespace {

namespace beast = boost::beast;
namespace net = boost::asio;

using Bytes = std::vector<unsigned char>;

void count_bytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

Bytes payload_of(benchmark::State& state) {
  return Bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
}

// The lower bound: a fresh buffer and one copy into it.
void CopyPlain(benchmark::State& state) {
  const Bytes payload = payload_of(state);
  for (auto step : state) {
    const auto copy = std::make_unique_for_overwrite<unsigned char[]>(payload.size());
    std::memcpy(copy.get(), payload.data(), payload.size());
    benchmark::DoNotOptimize(copy.get());
    benchmark::ClobberMemory();
  }
  count_bytes(state, payload.size());
}

void EncodeAndMask(benchmark::State& state) {
  const Bytes payload = payload_of(state);
  for (auto step : state) {
    const vlk::WireBytes frame =
        vlk::encode_message_frame(vlk::Msg::StreamFrame, 1, payload.data(), payload.size(), 0);
    benchmark::DoNotOptimize(frame.data.get());
    benchmark::ClobberMemory();
  }
  count_bytes(state, payload.size());
}

void MaskOnly(benchmark::State& state) {
  const Bytes payload = payload_of(state);
  Bytes target(payload.size());
  const unsigned char key[4] = {1, 2, 3, 4};
  for (auto step : state) {
    vlk::apply_mask(target.data(), payload.data(), payload.size(), key, 2);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  count_bytes(state, payload.size());
}

// Beast masks in place, so the same bytes are masked repeatedly.
void MaskOnlyBeast(benchmark::State& state) {
  Bytes payload = payload_of(state);
  for (auto step : state) {
    beast::websocket::detail::prepared_key key;
    beast::websocket::detail::prepare_key(key, 0x04030201);
    beast::websocket::detail::mask_inplace(net::mutable_buffer(payload.data(), payload.size()), key);
    benchmark::DoNotOptimize(payload.data());
    benchmark::ClobberMemory();
  }
  count_bytes(state, payload.size());
}

constexpr std::size_t kStreamBytes = 4 << 20;

// Server frames of one size, about four mebibytes in total.
Bytes server_stream(std::size_t frame_size, std::size_t& frames) {
  const Bytes payload(frame_size, 0x42);
  const std::vector<std::uint8_t> frame =
      vlk::encode_frame(vlk::kWsBinary, payload.data(), payload.size(), false);
  frames = kStreamBytes / frame.size();
  Bytes stream;
  stream.reserve(frames * frame.size());
  for (std::size_t i = 0; i < frames; ++i)
    stream.insert(stream.end(), frame.begin(), frame.end());
  return stream;
}

// Feeds the parser as the agent's connection does: 2,048 bytes per read.
void ParseFrames(benchmark::State& state) {
  std::size_t frames = 0;
  const Bytes stream = server_stream(static_cast<std::size_t>(state.range(0)), frames);
  for (auto step : state) {
    vlk::WsParser parser;
    std::size_t seen = 0;
    for (std::size_t at = 0; at < stream.size(); at += 2048) {
      parser.feed(stream.data() + at, std::min<std::size_t>(2048, stream.size() - at));
      while (const auto frame = parser.next())
        seen += frame->payload.empty() ? 0 : 1;
    }
    if (seen != frames) state.SkipWithError("the parser lost frames");
  }
  count_bytes(state, stream.size());
}

// Beast's client over an in-memory stream that already holds all bytes.
void ParseFramesBeast(benchmark::State& state) {
  std::size_t frames = 0;
  const Bytes stream = server_stream(static_cast<std::size_t>(state.range(0)), frames);
  for (auto step : state) {
    state.PauseTiming();
    net::io_context context;
    beast::test::stream peer(context);
    beast::websocket::stream<beast::test::stream> client(context);
    client.next_layer().connect(peer);
    client.read_message_max(0);
    // The handshake needs the accept key of its request, so a Beast server answers it.
    beast::websocket::stream<beast::test::stream&> server(peer);
    client.async_handshake("localhost", "/", [](beast::error_code) {});
    server.async_accept([](beast::error_code) {});
    context.run();
    context.restart();
    net::write(peer, net::buffer(stream));
    beast::flat_buffer message;
    state.ResumeTiming();
    for (std::size_t i = 0; i < frames; ++i) {
      message.consume(message.size());
      client.read(message);
    }
    benchmark::DoNotOptimize(message.size());
  }
  count_bytes(state, stream.size());
}

void ReadSixJsonFields(benchmark::State& state) {
  const std::string text =
      R"({"role":"console","path":"C:\\Users\\captain\\Documents\\Voyage reports\\2026\\November","comment":")" +
      std::string(120, 'x') + R"(","monitor_id":1,"max_fps":30,"bitrate":4000000,"codec":"h264","show":1})";
  for (auto step : state) {
    benchmark::DoNotOptimize(vlk::value_or(vlk::read_string(text, "path"), ""));
    benchmark::DoNotOptimize(vlk::value_or(vlk::read_int(text, "monitor_id"), 0));
    benchmark::DoNotOptimize(vlk::value_or(vlk::read_int(text, "max_fps"), 15));
    benchmark::DoNotOptimize(vlk::value_or(vlk::read_int(text, "bitrate"), 6000000));
    benchmark::DoNotOptimize(vlk::value_or(vlk::read_string(text, "codec"), "h264"));
    benchmark::DoNotOptimize(vlk::value_or(vlk::read_int(text, "show"), 1));
  }
  count_bytes(state, text.size());
}

BENCHMARK(CopyPlain)->Arg(100)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(EncodeAndMask)->Arg(100)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(MaskOnly)->Arg(100)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(MaskOnlyBeast)->Arg(100)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(ParseFrames)->Arg(100)->Arg(64 << 10)->Unit(benchmark::kMillisecond);
BENCHMARK(ParseFramesBeast)->Arg(100)->Arg(64 << 10)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadSixJsonFields);

}  // namespace
