// Reads the console's folder and answers requests for its files.
#include "relay/http/files.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "relay/base/secrets.h"

namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

// The console has 100 files of 0.4 MiB together. The limits guard against a wrong folder.
constexpr std::uintmax_t kMostBytes = 32u << 20;
constexpr std::size_t kMostFiles = 4096;
constexpr std::size_t kTagBytes = 16;  // of the content's hash
constexpr std::string_view kWeak = "W/";

constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kContentTypes = {{
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".webmanifest", "application/manifest+json"},
}};

// The content type of a file. Empty for file types that the console does not use.
std::string_view content_type(const std::filesystem::path& path) {
  for (const auto& [ending, type] : kContentTypes) {
    if (path.extension() == ending) return type;
  }
  return {};
}

std::string entity_tag(const std::string& content) {
  constexpr char kDigits[] = "0123456789abcdef";
  const Bytes hash = hash_secret(content);
  std::string tag = "\"";
  for (std::size_t i = 0; i < kTagBytes; ++i)
    tag.append({kDigits[hash[i] >> 4], kDigits[hash[i] & 15]});
  return tag + '"';
}

// True if the browser's If-None-Match header lists the tag (RFC 9110, 13.1.2). Tags that this relay gives
// have no comma inside.
bool knows(std::string_view header, std::string_view tag) {
  if (header == "*") return true;
  while (!header.empty()) {
    const std::size_t comma = header.find(',');
    std::string_view one = header.substr(0, comma);
    one.remove_prefix(std::min(one.find_first_not_of(" \t"), one.size()));
    one = one.substr(0, one.find_last_not_of(" \t") + 1);
    if (one.starts_with(kWeak)) one.remove_prefix(kWeak.size());
    if (one == tag) return true;
    header = comma == std::string_view::npos ? std::string_view() : header.substr(comma + 1);
  }
  return false;
}

bool only_reads(const Request& request) {
  return request.method() == http::verb::get || request.method() == http::verb::head;
}

Reply method_error(const Request& request) {
  Reply reply = error_reply(request, HttpStatus::method_not_allowed, "Files can only be read.");
  reply.set(http::field::allow, "GET, HEAD");
  return reply;
}

}  // namespace

bool plain_name(std::string_view name) {
  return !name.empty() && name.front() != '.' && std::ranges::all_of(name, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
  });
}

Reply file_reply(const Request& request, std::string_view content_type,
                 std::shared_ptr<const std::string> content) {
  if (!only_reads(request)) return method_error(request);
  Reply reply = make_reply(request, HttpStatus::ok, content_type, {});
  reply.body().shared = std::move(content);
  reply.prepare_payload();
  return reply;
}

ConsoleFiles::ConsoleFiles(const std::string& folder) {
  namespace fs = std::filesystem;
  std::error_code error;
  std::uintmax_t bytes = 0;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!plain_name(entry->path().filename().string())) {
      entry.disable_recursion_pending();
      continue;
    }
    const std::string_view type = content_type(entry->path());
    if (type.empty() || !entry->is_regular_file(error)) continue;
    bytes += entry->file_size(error);
    if (bytes > kMostBytes || files_.size() == kMostFiles)
      throw std::runtime_error("the console's folder " + folder +
                               " has too many files or bytes; check --console");
    std::ifstream stream(entry->path(), std::ios::binary);
    std::string content(std::istreambuf_iterator<char>(stream), {});
    if (!stream.good() && !stream.eof()) throw std::runtime_error("cannot read " + entry->path().string());
    File file{type, entity_tag(content), std::make_shared<const std::string>(std::move(content))};
    files_['/' + fs::relative(entry->path(), folder, error).generic_string()] = std::move(file);
  }
  const auto first = files_.find("/index.html");
  if (error || first == files_.end())
    throw std::runtime_error("the console's folder " + folder + " has no index.html; check --console");
  files_["/"] = first->second;
}

Reply ConsoleFiles::answer(const Request& request) const {
  if (!only_reads(request)) return method_error(request);
  const auto found = files_.find(path_of(request));
  if (found == files_.end()) return error_reply(request, HttpStatus::not_found, "There is no such page.");
  const File& file = found->second;
  const bool known = knows(request[http::field::if_none_match], file.tag);
  Reply reply = known ? make_reply(request, HttpStatus::not_modified, file.type, {})
                      : file_reply(request, file.type, file.content);
  // The length in a reply of this kind would be that of the file, not 0 (RFC 9110, 8.6).
  if (known) reply.erase(http::field::content_length);
  // Browsers keep the file, and ask each time whether it is still the same.
  reply.set(http::field::cache_control, "no-cache");
  reply.set(http::field::etag, file.tag);
  return reply;
}

}  // namespace vlk::relay
