// Scripts the fakes, and writes and reads the time in a picture.
#include "machine.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include <openssl/pem.h>

#include "fakes/fakes.h"

namespace vantelink_bench {
namespace {

constexpr std::size_t kKeyInterval = 2;       // seconds, of the agent's encoders
constexpr std::size_t kKeyFramesASecond = 4;  // that would need the whole bit rate
constexpr std::size_t kTimeDigits = 20;
constexpr std::size_t kKeyBatch = 8;  // bytes: the number of events and one event
constexpr std::size_t kStampAndStart = 8 + 4;
constexpr std::size_t kLeastPicture = 4 + kTimeDigits;

std::vector<unsigned char> der_of(const std::string& file) {
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "r"),
                                                                  &std::fclose);
  if (!stream) throw std::runtime_error("cannot read " + file);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      PEM_read_X509(stream.get(), nullptr, nullptr, nullptr), &X509_free);
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(certificate.get(), &bytes);
  std::vector<unsigned char> result(bytes, bytes + size);
  OPENSSL_free(bytes);
  return result;
}

// The sizes of a stream's pictures in bytes.
struct Sizes {
  std::size_t key = 0;
  std::size_t other = 0;
};

// A key frame takes a quarter of a second of the bit rate, the other pictures share what it leaves.
Sizes sizes_of(std::size_t pictures_a_second, std::size_t bits_a_second) {
  const std::size_t bytes = bits_a_second / 8;
  const std::size_t key = bytes / kKeyFramesASecond;
  return {key, (kKeyInterval * bytes - key) / (kKeyInterval * pictures_a_second - 1)};
}

// The time is text, so that it contains no start code.
void append_picture(std::vector<std::uint8_t>& out, std::size_t size, bool key) {
  const std::size_t end = out.size() + std::max(size, kLeastPicture);
  const std::string time = std::to_string(Clock::now().time_since_epoch().count());
  out.insert(out.end(), {0, 0, 1, static_cast<std::uint8_t>(key ? 0x65 : 0x41)});
  out.insert(out.end(), kTimeDigits - time.size(), '0');
  out.insert(out.end(), time.begin(), time.end());
  out.resize(end, 'x');
}

void note_key(const std::string& line, Figures& figures) {
  constexpr std::string_view kBatch = "InjectInputBatch ";
  if (!line.starts_with(kBatch)) return;
  figures.key_arrived(std::stoul(line.substr(kBatch.size())) - kKeyBatch);
}

}  // namespace

Machine::Machine(unsigned short port, const std::string& certificate, Figures& figures) {
  vantelink_fakes::reset();
  vantelink_fakes::Script& script = vantelink_fakes::script();
  script.roots = {der_of(certificate)};
  script.init = [] { return true; };
  // Both are called on the stream's thread, first the notice of the encoder's opening.
  const auto sizes = std::make_shared<Sizes>();
  script.encode = [&figures, sizes](std::vector<std::uint8_t>& out, bool key) {
    append_picture(out, key ? sizes->key : sizes->other, key);
    figures.picture_made();
    return true;
  };
  vantelink_fakes::watch([&figures, sizes](const std::string& line) {
    std::size_t width = 0, height = 0, pictures = 0, bits = 0;
    if (std::sscanf(line.c_str(), "Init %zu %zu %zu %zu", &width, &height, &pictures, &bits) == 4)
      *sizes = sizes_of(pictures, bits);
    note_key(line, figures);
  });
  vlk::agent::AgentConfig config;
  config.display_name = "Machine";
  config.unattended = true;
  config.server_host = "localhost";
  config.server_port = port;
  client_ = std::make_unique<vlk::agent::AgentClient>(config, vlk::agent::AgentCallbacks{});
  client_->start();
}

Machine::~Machine() = default;

Clock::time_point made_at(const std::vector<std::uint8_t>& payload) {
  const auto digits = payload.begin() + kStampAndStart;
  return Clock::time_point(Clock::duration(std::stoll(std::string(digits, digits + kTimeDigits))));
}

std::string key_press(std::size_t number) {
  const std::string batch{1, 4, 1, 'A', 0, 0, 0, 0};
  return batch + std::string(number, '\0');
}

}  // namespace vantelink_bench
