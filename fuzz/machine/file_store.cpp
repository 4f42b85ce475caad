// Implements platform/files/file_system.h in place of file_system_posix.cpp.
#include "machine/file_store.h"

#include <algorithm>

#include "platform/files/file_system.h"
#include "platform/text.h"
#include "require.h"

namespace vlk::agent {
namespace fuzz {
namespace {

FileStore* store = nullptr;
constexpr std::uint32_t kDrives = 1u << 2 | 1u << 25;  // C and Z

// The path as the system reads it.
std::wstring up_to_zero(const std::wstring& path) {
  return path.substr(0, path.find(L'\0'));
}

}  // namespace

// One open file, with a position of its own.
struct FileStore::Stream {
  FileStore& owner;
  Content content;
  std::size_t position = 0;
};

FileStore::FileStore() {
  REQUIRE(store == nullptr);
  store = this;
}

FileStore::~FileStore() {
  while (!streams_.empty())
    std::fclose(streams_.begin()->second);
  store = nullptr;
}

std::FILE* FileStore::open(const std::wstring& path, bool writes) {
  if (path.empty() || path.back() == L'\\' || folders.contains(path)) return nullptr;
  const auto found = files.find(path);
  if (!writes && found == files.end()) return nullptr;
  const Content content = found == files.end() ? std::make_shared<std::string>() : found->second;
  if (writes) {
    content->clear();
    files[path] = content;
  }
  cookie_io_functions_t functions = {};
  functions.read = [](void* cookie, char* buffer, std::size_t size) {
    auto& stream = *static_cast<Stream*>(cookie);
    const std::size_t count = stream.content->copy(buffer, size, stream.position);
    stream.position += count;
    return static_cast<ssize_t>(count);
  };
  functions.write = [](void* cookie, const char* data, std::size_t size) {
    auto& stream = *static_cast<Stream*>(cookie);
    std::string& bytes = *stream.content;
    bytes.resize(std::max(bytes.size(), stream.position + size));
    bytes.replace(stream.position, size, data, size);
    stream.position += size;
    return static_cast<ssize_t>(size);
  };
  functions.close = [](void* cookie) {
    const std::unique_ptr<Stream> stream(static_cast<Stream*>(cookie));
    stream->owner.streams_.erase(stream.get());
    return 0;
  };
  auto* const stream = new Stream{*this, content};
  std::FILE* const file = fopencookie(stream, writes ? "wb" : "rb", functions);
  REQUIRE(file != nullptr);
  if (writes) std::setvbuf(file, nullptr, _IONBF, 0);
  streams_[stream] = file;
  return file;
}

}  // namespace fuzz

using fuzz::store;

std::uint32_t LogicalDrives() {
  return fuzz::kDrives;
}

void VisitFolder(const std::wstring& pattern, const std::function<void(const FolderEntry&)>& visit) {
  const std::wstring whole = fuzz::up_to_zero(pattern);
  store->calls.push_back("list " + WideToUtf8(whole));
  if (!whole.ends_with(L"\\*")) return;
  const std::wstring prefix = whole.substr(0, whole.size() - 1);
  for (const wchar_t* const name : {L".", L".."})
    visit({name, kDirectoryAttribute, 0, 0, 0});
  const auto visit_path = [&](const std::wstring& path, std::uint32_t attributes, std::uint64_t size) {
    if (!path.starts_with(prefix) || path.size() == prefix.size()) return;
    const std::wstring_view name = std::wstring_view(path).substr(prefix.size());
    if (name.find(L'\\') != std::wstring_view::npos) return;
    visit({name, attributes, static_cast<std::uint32_t>(size >> 32), static_cast<std::uint32_t>(size), size});
  };
  for (const std::wstring& path : store->folders)
    visit_path(path, kDirectoryAttribute, 0);
  for (const auto& [path, content] : store->files)
    visit_path(path, 0, content->size());
}

void CreateFolder(const std::wstring& path) {
  const std::wstring whole = fuzz::up_to_zero(path);
  store->calls.push_back("folder " + WideToUtf8(whole));
  if (!store->files.contains(whole)) store->folders.insert(whole);
}

UniqueStream OpenFile(const std::wstring& path, const wchar_t* mode) {
  const std::wstring whole = fuzz::up_to_zero(path);
  store->calls.push_back(WideToUtf8(mode) + ' ' + WideToUtf8(whole));
  return UniqueStream(store->open(whole, mode[0] == L'w'));
}

}  // namespace vlk::agent
