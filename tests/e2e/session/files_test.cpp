// Tests of listing folders and transferring files with the shipped executable. The files are real files of
// this host, which Wine shows as drive Z.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include <openssl/evp.h>

#include "e2e/support/agent_fixture.h"
#include "support/peers/file_requests.h"
#include "support/temp_folder.h"
#include "wire/big_endian.h"
#include "wire/json.h"

namespace vantelink_test {
namespace {

namespace fs = std::filesystem;
using vlk::Msg;

constexpr std::size_t kChunk = 262144;  // the number of a file's bytes in one message
// The environment variable that sets the size of the large file in mebibytes. The default is small, for
// machines with two cores. A full run uses 300.
constexpr char kSizeVariable[] = "VANTELINK_FILE_MIB";
constexpr std::size_t kDefaultMebibytes = 64;
constexpr Milliseconds kLongPatience{120'000};  // the timeout for large or many files

// Calculates a SHA-256 checksum.
class Digest {
 public:
  Digest() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr);
  }
  void add(const void* bytes, std::size_t size) { EVP_DigestUpdate(context_.get(), bytes, size); }
  std::string end() {
    std::string sum(32, '\0');
    EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(sum.data()), nullptr);
    return sum;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

std::string digest_of(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  Digest digest;
  std::string part(1 << 20, '\0');
  while (file.read(part.data(), static_cast<std::streamsize>(part.size())), file.gcount() > 0)
    digest.add(part.data(), static_cast<std::size_t>(file.gcount()));
  return digest.end();
}

class FilesTest : public AgentTest, protected FileRequests {
 protected:
  FilesTest() : FileRequests(peer_) {}

  void SetUp() override {
    AgentTest::SetUp();
    peer_ = start();
    peer_->read_until(Msg::Hello);
  }
  void TearDown() override {
    peer_.reset();
    AgentTest::TearDown();
  }

  std::string path_of(const std::string& below = {}) const { return folder_.wine_path(below); }

  void upload(std::uint32_t id, const std::string& path, std::string_view bytes) {
    ask(Msg::UploadBegin, path, id);
    chunk(id, bytes);
    end(id);
  }
  // Reads until `count` downloads have ended without an error; returns the bytes of each.
  std::map<std::uint32_t, std::string> read_downloads(std::size_t count) {
    std::map<std::uint32_t, std::string> files;
    std::map<std::uint32_t, std::uint32_t> next;
    while (count > 0) {
      const vlk::Envelope envelope = peer_->read_envelope();
      const std::string payload = text_of(envelope);
      if (envelope.type == static_cast<std::uint8_t>(Msg::FileChunk)) {
        EXPECT_EQ(envelope.session_id, kSession);
        const std::uint32_t id = vlk::get_u32_be(envelope.payload.data());
        EXPECT_EQ(vlk::get_u32_be(envelope.payload.data() + 4), next[id]++);
        files[id] += payload.substr(8);
      } else if (envelope.type == static_cast<std::uint8_t>(Msg::FileTransferEnd)) {
        const auto id = static_cast<std::uint32_t>(vlk::value_or(vlk::read_int(payload, "transfer_id"), -1));
        EXPECT_EQ(payload, "{\"transfer_id\":" + std::to_string(id) + ",\"ok\":true}");
        files[id];
        --count;
      }
    }
    return files;
  }
  std::string list(const std::string& path) {
    ask(Msg::DirListRequest, path, 0);
    return text_of(peer_->read_until(Msg::DirListResult));
  }

  const TempFolder folder_;
  std::unique_ptr<ServerConnection> peer_;
};

std::string contents(std::uint32_t i) {
  return std::string(i * 997 % 5000, static_cast<char>('a' + i % 26)) + std::to_string(i);
}

TEST_F(FilesTest, FiftySimultaneousTransfersDoNotMixTheirBytes) {
  for (std::uint32_t i = 0; i < 50; ++i)
    folder_.write(std::to_string(i), contents(i));
  for (std::uint32_t i = 0; i < 50; ++i)
    ask(Msg::DownloadRequest, path_of(std::to_string(i)), i);
  const auto files = read_downloads(50);
  for (std::uint32_t i = 0; i < 50; ++i)
    EXPECT_EQ(files.at(i), contents(i));

  for (std::uint32_t i = 0; i < 50; ++i)
    ask(Msg::UploadBegin, path_of("up\\" + std::to_string(i)), i);
  for (std::uint32_t half = 0; half < 2; ++half) {
    for (std::uint32_t i = 0; i < 50; ++i) {
      const std::string bytes = contents(i);
      chunk(i, half == 0 ? bytes.substr(0, bytes.size() / 2) : bytes.substr(bytes.size() / 2), half);
    }
  }
  for (std::uint32_t i = 0; i < 50; ++i)
    end(i);
  peer_->settle(kLongPatience);
  for (std::uint32_t i = 0; i < 50; ++i)
    EXPECT_EQ(folder_.read("up/" + std::to_string(i)), contents(i));
}

TEST_F(FilesTest, FilesWithUnusualNamesAreUploadedListedAndDownloaded) {
  const std::vector<std::string> names = {
      "Þórður á Ægi ðö.txt",    "two  blanks .txt",          "skipper's 'own'.txt", "😀 🛟.txt",
      "100% & (más) #1;=+.txt", std::string(199, 'n') + "þ", std::string("empty")};
  std::uint32_t id = 100;
  for (const std::string& name : names)
    upload(id++, path_of("in\\" + name), name == "empty" ? "" : "contents of " + name);
  peer_->settle(kLongPatience);
  const std::string listing = list(path_of("in"));
  id = 100;
  for (const std::string& name : names) {
    const std::string expected = name == "empty" ? "" : "contents of " + name;
    EXPECT_EQ(folder_.read("in/" + name), expected);
    EXPECT_NE(listing.find("{\"name\":\"" + name + "\","), std::string::npos) << listing;
    ask(Msg::DownloadRequest, path_of("in\\" + name), id);
    EXPECT_EQ(read_downloads(1).at(id), expected) << name;
    ++id;
  }
}

TEST_F(FilesTest, FolderWithTwentyThousandEntriesIsListedCompletely) {
  constexpr std::size_t kCount = 20'000;
  fs::create_directory(folder_.path() / "many");
  for (std::size_t i = 0; i < kCount; ++i)
    std::ofstream(folder_.path() / "many" / ("skrá " + std::to_string(i)));
  const std::string text = list(path_of("many"));
  std::set<std::string> names;
  const std::string key = "{\"name\":\"";
  for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
    const std::size_t start = at + key.size();
    names.insert(text.substr(start, text.find('"', start) - start));
  }
  EXPECT_EQ(names.size(), kCount);
  EXPECT_TRUE(names.contains("skrá 0") && names.contains("skrá 19999"));
}

TEST_F(FilesTest, DrivesAreListedAndRequestsForUnreadablePathsAreAnswered) {
  EXPECT_NE(list("").find(R"({"name":"Z:","path":"Z:\\","dir":true,"size":0,"mtime":0})"), std::string::npos);
  for (const std::string& path :
       {path_of("missing"), std::string("\\\\srv\\share\\d"), std::string("\xFF\xFE")})
    EXPECT_NE(list(path).find("\"entries\":[]}"), std::string::npos) << path;
  ask(Msg::DownloadRequest, path_of("missing"), 8);
  EXPECT_EQ(text_of(peer_->read_until(Msg::FileTransferEnd)),
            R"({"transfer_id":8,"ok":false,"error":"cannot open"})");
}

TEST_F(FilesTest, ChunksOfUnknownTransfersAndTruncatedChunksAreIgnored) {
  ask(Msg::UploadBegin, path_of("file"), 0x01020304);
  chunk(99, "stray");
  end(99);
  for (std::size_t size = 0; size < 8; ++size)
    peer_->send_envelope(Msg::FileChunk, kSession, std::string_view("\1\2\3\4\0\0\0\0x", size), 0);
  upload(7, std::string("\xFF<|>"), "nowhere");
  chunk(0x01020304, "x", 17);
  end(0x01020304);
  peer_->settle(kLongPatience);
  EXPECT_EQ(folder_.read("file"), "x");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 1);
}

class LargeFileTest : public FilesTest {
 protected:
  void SetUp() override {
    FilesTest::SetUp();
    const char* const wanted = std::getenv(kSizeVariable);
    const std::size_t mebibytes = wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : kDefaultMebibytes;
    size_ = (mebibytes << 20) + 12'345;
    std::ofstream file(folder_.path() / "large", std::ios::binary);
    std::string part(1 << 20, '\0');
    std::uint64_t state = 5;
    for (std::size_t left = size_; left > 0; left -= std::min(left, part.size())) {
      for (std::size_t i = 0; i < part.size(); i += 8) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        std::memcpy(&part[i], &state, 8);
      }
      file.write(part.data(), static_cast<std::streamsize>(std::min(left, part.size())));
    }
    file.close();
    sum_ = digest_of(folder_.path() / "large");
    peer_->send_envelope(Msg::StreamStart, kSession, R"({"max_fps":10})");
    peer_->read_until(Msg::StreamFrame);
  }

  // The agent's resident memory in KiB: "VmRSS" is the present value, "VmHWM" the highest so far.
  long memory(const std::string& key) const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with(key + ':')) return std::atol(line.c_str() + key.size() + 1);
    return -1;
  }
  // Prints speed and memory. Fails when the agent's memory grew by half of the file's size or more: the agent
  // must hold only pieces of the file.
  void check_cost(std::size_t frames, std::chrono::steady_clock::time_point start, long memory_before) {
    const auto time = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%zu MiB, %.0f MiB/s, %zu frames meanwhile, the agent's memory %ld KiB, at most %ld KiB\n",
                size_ >> 20, static_cast<double>(size_ >> 20) / time, frames, memory_before, memory("VmHWM"));
    EXPECT_GT(memory_before, 0);
    EXPECT_LT((memory("VmHWM") - memory_before) * 1024, static_cast<long>(size_ / 2));
    peer_->read_until(Msg::StreamFrame);  // fails if the stream does not continue
  }

  std::size_t size_ = 0;
  std::string sum_;
};

TEST_F(LargeFileTest, IsDownloadedCompletelyWhileTheStreamRuns) {
  const long memory_before = memory("VmRSS");
  const auto begin = std::chrono::steady_clock::now();
  ask(Msg::DownloadRequest, path_of("large"), 3);
  Digest digest;
  std::size_t received = 0;
  std::size_t frames = 0;
  for (;;) {
    const vlk::Envelope envelope = peer_->read_envelope();
    peer_->forget_received();
    frames += received > 0 && envelope.type == static_cast<std::uint8_t>(Msg::StreamFrame);
    if (envelope.type == static_cast<std::uint8_t>(Msg::FileTransferEnd)) {
      EXPECT_EQ(text_of(envelope), R"({"transfer_id":3,"ok":true})");
      break;
    }
    if (envelope.type != static_cast<std::uint8_t>(Msg::FileChunk)) continue;
    digest.add(envelope.payload.data() + 8, envelope.payload.size() - 8);
    received += envelope.payload.size() - 8;
  }
  check_cost(frames, begin, memory_before);
  EXPECT_EQ(received, size_);
  EXPECT_EQ(digest.end(), sum_);
}

TEST_F(LargeFileTest, IsUploadedCompletelyWhileTheStreamRuns) {
  const long memory_before = memory("VmRSS");
  const auto begin = std::chrono::steady_clock::now();
  ask(Msg::UploadBegin, path_of("sub\\copy"), 4);
  std::ifstream file(folder_.path() / "large", std::ios::binary);
  std::string part(kChunk, '\0');
  std::size_t frames = 0;
  for (std::uint32_t index = 0; file.read(part.data(), kChunk), file.gcount() > 0; ++index) {
    chunk(4, std::string_view(part).substr(0, static_cast<std::size_t>(file.gcount())), index);
    // Reads what the agent has sent. Otherwise each side would in the end wait for the other to read.
    if (index % 16 != 0) continue;
    peer_->send_envelope(Msg::Heartbeat, 0, "on");
    for (;;) {
      const vlk::Envelope envelope = peer_->read_envelope(kLongPatience);
      frames += envelope.type == static_cast<std::uint8_t>(Msg::StreamFrame);
      if (envelope.type == static_cast<std::uint8_t>(Msg::Heartbeat)) break;
    }
    peer_->forget_received();
  }
  end(4);
  peer_->settle(kLongPatience);
  check_cost(frames, begin, memory_before);
  EXPECT_EQ(fs::file_size(folder_.path() / "sub/copy"), size_);
  EXPECT_EQ(digest_of(folder_.path() / "sub/copy"), sum_);
}

}  // namespace
}  // namespace vantelink_test
