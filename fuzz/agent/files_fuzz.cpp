// Lets the server send messages about folders and files in any order. After each message the disk, the calls
// that reached it and the agent's answers must be those of a model. The first byte says whether there are
// large files.
#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "fakes/fakes.h"
#include "input.h"
#include "machine/file_store.h"
#include "machine/scripted_server.h"
#include "platform/text.h"
#include "require.h"
#include "transfer/directory.h"
#include "transfer/file_transfer.h"
#include "wire/big_endian.h"
#include "wire/json.h"

using namespace vlk;
using namespace vlk::agent;
using namespace vlk::agent::fuzz;

namespace {

constexpr int kSteps = 32;
constexpr const char* kPieces[] = {"C:\\", "\\", "..",       "a",   "b",
                                   "/",    "C:", "folder\\", "big", "one",
                                   " ",    "\"", "*",        "\n",  "\xC3\xADslenska",
                                   "\xFF"};
constexpr std::uint32_t kTransfers[] = {0, 1, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
constexpr std::uint32_t kSessions[] = {0, 1, 7, 0xFFFFFFFF};

template <class Choices>
const auto& chosen(const Choices& choices, std::uint8_t number) {
  return choices[number % std::size(choices)];
}

// The path as the system reads it: up to its first character 0.
std::wstring up_to_zero(const std::wstring& path) {
  return path.substr(0, path.find(L'\0'));
}

std::wstring named(const std::string& path) {
  return up_to_zero(Utf8ToWide(path));
}

std::string text_of(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

class FileScript : public ScriptedServer {
 public:
  explicit FileScript(vlk::fuzz::Input& input) : ScriptedServer(0), input_(input) {
    store_.folders = {L"C:\\folder"};
    folders_ = store_.folders;
    add_file(L"C:\\one", 1);
    if (input_.byte() % 8 != 7) return;  // large files make a run slow
    add_file(L"C:\\big", kChunkSize);
    add_file(L"C:\\folder\\big", kChunkSize + 5);
  }

 private:
  // An upload in the model.
  struct Upload {
    FileStore::Content content;
    std::size_t position = 0;
  };

  bool another_connection() override { return false; }
  std::optional<Bytes> next() override;
  bool on_sent(const Sent& sent) override {
    REQUIRE(sent.opcode == kWsBinary);
    if (greetings_ < 2) {
      ++greetings_;
    } else {
      sent_.push_back(sent.envelope);
    }
    return true;
  }

  void add_file(const wchar_t* path, std::size_t size) {
    store_.files[path] = std::make_shared<std::string>(size, 'x');
    files_[path] = std::make_shared<std::string>(size, 'x');
  }
  [[nodiscard]] std::string path();
  [[nodiscard]] Bytes message(Msg type, const std::string& payload);
  Bytes begin();
  Bytes chunk();
  Bytes end();
  Bytes download();
  Bytes list();
  void check();
  void check_download();
  void check_listing();

  vlk::fuzz::Input& input_;
  FileStore store_;
  int greetings_ = 0;  // messages of the log-in so far
  int steps_ = 0;
  bool answered_ = false;
  std::vector<Envelope> sent_;  // since the last message

  // The model.
  std::map<std::wstring, FileStore::Content> files_;
  std::set<std::wstring> folders_;
  std::map<std::uint32_t, Upload> uploads_;
  std::size_t abandoned_ = 0;  // streams that stay open, because their number was used again
  // What the last message must lead to.
  std::vector<std::string> calls_;
  Msg type_{};
  std::uint32_t session_ = 0;
  std::uint32_t transfer_ = 0;
  std::string path_;
};

std::optional<Bytes> FileScript::next() {
  if (!std::exchange(answered_, true)) return Bytes(kUpgraded, kUpgraded + sizeof kUpgraded - 1);
  check();
  if (input_.empty() || ++steps_ > kSteps) return std::nullopt;
  const std::uint8_t kind = input_.byte();
  session_ = chosen(kSessions, kind / 8);
  transfer_ = chosen(kTransfers, input_.byte());
  switch (kind % 8) {
    case 0:
    case 1:
      return begin();
    case 2:
    case 3:
      return chunk();
    case 4:
      return end();
    case 5:
      return download();
    default:
      return list();
  }
}

std::string FileScript::path() {
  const std::uint8_t kind = input_.byte();
  if (kind == 0xFF) return input_.text();
  std::string path = "C:\\";
  if (kind % 16 == 15) path.clear();
  for (int left = kind % 4; left >= 0; --left)
    path += chosen(kPieces, input_.byte());
  return path;
}

Bytes FileScript::message(Msg type, const std::string& payload) {
  type_ = type;
  const auto* const data = reinterpret_cast<const unsigned char*>(payload.data());
  const Bytes envelope = encode_envelope(type, session_, data, payload.size(), kJsonPayload);
  return encode_frame(kWsBinary, envelope.data(), envelope.size(), false);
}

Bytes FileScript::begin() {
  path_ = path();
  const std::wstring whole = Utf8ToWide(path_);
  const std::wstring name = named(path_);
  // The folders above the file, from the outermost on, and then only the file.
  for (std::size_t i = 3; i < whole.size(); ++i) {
    if (whole[i] != L'\\') continue;
    const std::wstring folder = up_to_zero(whole.substr(0, i));
    REQUIRE(name.starts_with(folder));
    calls_.push_back("folder " + WideToUtf8(folder));
    if (!files_.contains(folder)) folders_.insert(folder);
  }
  calls_.push_back("wb " + WideToUtf8(name));
  if (!name.empty() && name.back() != L'\\' && !folders_.contains(name)) {
    FileStore::Content& content = files_[name];
    if (!content) content = std::make_shared<std::string>();
    content->clear();
    if (uploads_.contains(transfer_)) ++abandoned_;
    uploads_[transfer_] = {content};
  }
  return message(Msg::UploadBegin, JsonWriter()
                                       .add_int("transfer_id", transfer_)
                                       .add_string("path", path_)
                                       .add_int("size", input_.byte())
                                       .finish());
}

Bytes FileScript::chunk() {
  std::string payload(kChunkHeaderSize, '\0');
  put_u32_be(reinterpret_cast<unsigned char*>(payload.data()), transfer_);
  put_u32_be(reinterpret_cast<unsigned char*>(payload.data()) + 4, input_.byte());
  const std::string data = input_.text();
  const auto found = uploads_.find(transfer_);
  if (found != uploads_.end() && !data.empty()) {
    auto& [content, position] = found->second;
    content->resize(std::max(content->size(), position + data.size()));
    content->replace(position, data.size(), data);
    position += data.size();
  }
  return message(Msg::FileChunk, payload + data);
}

Bytes FileScript::end() {
  uploads_.erase(transfer_);
  return message(Msg::FileTransferEnd, JsonWriter().add_int("transfer_id", transfer_).finish());
}

Bytes FileScript::download() {
  path_ = path();
  calls_.push_back("rb " + WideToUtf8(named(path_)));
  return message(Msg::DownloadRequest,
                 JsonWriter().add_int("transfer_id", transfer_).add_string("path", path_).finish());
}

Bytes FileScript::list() {
  path_ = path();
  if (!path_.empty()) {
    std::wstring folder = Utf8ToWide(path_);
    if (folder.back() != L'\\') folder += L'\\';
    calls_.push_back("list " + WideToUtf8(up_to_zero(folder + L'*')));
  }
  return message(Msg::DirListRequest, JsonWriter().add_string("path", path_).finish());
}

void FileScript::check() {
  REQUIRE(store_.calls == calls_);
  REQUIRE(store_.folders == folders_);
  REQUIRE(std::ranges::equal(store_.files, files_, [](const auto& real, const auto& expected) {
    return real.first == expected.first && *real.second == *expected.second;
  }));
  REQUIRE(store_.open() == uploads_.size() + abandoned_);
  for (const Envelope& envelope : sent_)
    REQUIRE(envelope.session_id == session_);
  if (type_ == Msg::DownloadRequest) {
    check_download();
  } else if (type_ == Msg::DirListRequest) {
    check_listing();
  } else {
    REQUIRE(sent_.empty());
  }
  store_.calls.clear();
  calls_.clear();
  sent_.clear();
  type_ = {};
}

// The chunks contain the file, and one message ends the transfer.
void FileScript::check_download() {
  const auto found = files_.find(named(path_));
  REQUIRE(!sent_.empty() && static_cast<Msg>(sent_.back().type) == Msg::FileTransferEnd);
  const auto end = nlohmann::json::parse(sent_.back().payload);
  sent_.pop_back();
  REQUIRE(end.at("transfer_id") == transfer_ && end.at("ok") == (found != files_.end()));
  REQUIRE(end.contains("error") == (found == files_.end()));
  std::string received;
  std::uint32_t index = 0;
  for (const Envelope& envelope : sent_) {
    const Bytes& payload = envelope.payload;
    REQUIRE(static_cast<Msg>(envelope.type) == Msg::FileChunk && payload.size() > kChunkHeaderSize);
    REQUIRE(get_u32_be(payload.data()) == transfer_ && get_u32_be(payload.data() + 4) == index++);
    REQUIRE(payload.size() == kChunkHeaderSize + kChunkSize || index == sent_.size());
    received.append(payload.begin() + kChunkHeaderSize, payload.end());
  }
  REQUIRE(received == (found == files_.end() ? std::string() : *found->second));
}

// The answer names the entries of the folder with their sizes. Text with control characters that the agent's
// JSON does not escape, or that is not UTF-8, is not read here.
void FileScript::check_listing() {
  REQUIRE(sent_.size() == 1 && static_cast<Msg>(sent_[0].type) == Msg::DirListResult);
  const std::string text = text_of(sent_[0].payload);
  REQUIRE(read_string(text, "path").value == path_);
  const auto answer = nlohmann::json::parse(text, nullptr, false);
  if (answer.is_discarded()) return;
  REQUIRE(answer.size() == 3 && path_.starts_with(answer.at("parent").get<std::string>()));
  std::map<std::string, std::pair<bool, std::size_t>> expected;
  std::string prefix = path_;
  if (!prefix.ends_with('\\')) prefix += '\\';
  const std::wstring folder = Utf8ToWide(prefix);
  const auto add = [&](const std::wstring& entry, bool dir, std::size_t size) {
    if (!entry.starts_with(folder)) return;
    const std::wstring name = entry.substr(folder.size());
    if (name.empty() || name == L"." || name == L".." || name.find(L'\\') != std::wstring::npos) return;
    expected[WideToUtf8(entry)] = {dir, size};
  };
  for (const std::wstring& entry : folders_)
    add(entry, true, 0);
  for (const auto& [entry, content] : files_)
    add(entry, false, content->size());
  if (path_.empty()) expected = {{"C:\\", {true, 0}}, {"Z:\\", {true, 0}}};
  REQUIRE(answer.at("entries").size() == expected.size());
  for (const auto& entry : answer.at("entries")) {
    const auto found = expected.find(entry.at("path").get<std::string>());
    REQUIRE(found != expected.end());
    REQUIRE(found->second == std::pair(entry.at("dir").get<bool>(), entry.at("size").get<std::size_t>()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlk::fuzz::Input input(data, size);
  vantelink_fakes::reset();
  FileScript(input).run({}, {});
  return 0;
}
