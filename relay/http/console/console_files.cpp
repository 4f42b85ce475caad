// Reads the console's folder, and answers requests for the console's files.
#include "relay/http/console/console_files.h"

#define ZLIB_CONST  // zlib does not change what it reads
#include <zlib.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "relay/base/secrets.h"
#include "relay/http/files.h"

namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

// The console has 160 files of 0.6 MiB together. The limits guard against a wrong folder.
constexpr std::uintmax_t kMostBytes = 32u << 20;
constexpr std::size_t kMostFiles = 4096;
constexpr std::size_t kTagBytes = 16;  // of a hash
constexpr std::string_view kWeak = "W/";
constexpr std::string_view kFirstPage = "index.html";

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

std::string hex_hash(const std::string& content) {
  constexpr char kDigits[] = "0123456789abcdef";
  const Bytes hash = hash_secret(content);
  std::string text;
  for (std::size_t i = 0; i < kTagBytes; ++i)
    text.append({kDigits[hash[i] >> 4], kDigits[hash[i] & 15]});
  return text;
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

// The text in the gzip format (RFC 1952).
std::string gzip(const std::string& text) {
  constexpr int kGzipHeader = 16;  // added to the size of the window
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, MAX_WBITS + kGzipHeader, MAX_MEM_LEVEL,
                   Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::runtime_error("cannot compress the console's files");
  std::string out(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<const Bytef*>(text.data());
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  (void)deflate(&stream, Z_FINISH);  // has room for everything
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// True if the browser takes gzip. A browser that refuses it ("gzip;q=0") is not known.
bool takes_gzip(const Request& request) {
  return request[http::field::accept_encoding].find("gzip") != boost::beast::string_view::npos;
}

// The first page with the prefix before each path of its own. A file that is served from a path with the hash
// names the others by relative paths, which lead to paths with the hash.
std::string with_prefix(std::string page, const std::string& prefix) {
  for (const std::string_view before : {"href=\"/", "src=\"/"}) {
    for (std::size_t at = 0; (at = page.find(before, at)) != std::string::npos; at += prefix.size())
      page.replace(at + before.size() - 1, 1, prefix);
  }
  return page;
}

}  // namespace

std::vector<ConsoleFile> console_files_in(const std::string& folder) {
  namespace fs = std::filesystem;
  std::vector<ConsoleFile> files;
  std::error_code error;
  std::uintmax_t bytes = 0;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!plain_name(entry->path().filename().string())) {
      entry.disable_recursion_pending();
      continue;
    }
    if (content_type(entry->path()).empty() || !entry->is_regular_file(error)) continue;
    bytes += entry->file_size(error);
    if (bytes > kMostBytes || files.size() == kMostFiles)
      throw std::runtime_error("the console's folder " + folder +
                               " has too many files or bytes; check --console");
    std::ifstream stream(entry->path(), std::ios::binary);
    std::string content(std::istreambuf_iterator<char>(stream), {});
    if (!stream.good() && !stream.eof()) throw std::runtime_error("cannot read " + entry->path().string());
    files.push_back({fs::relative(entry->path(), folder, error).generic_string(), std::move(content)});
  }
  const auto is_first = [](const ConsoleFile& file) { return file.path == kFirstPage; };
  if (error || std::ranges::none_of(files, is_first))
    throw std::runtime_error("the console's folder " + folder + " has no index.html; check --console");
  return files;
}

ConsoleFiles::ConsoleFiles(std::vector<ConsoleFile> files) {
  std::ranges::sort(files, {}, &ConsoleFile::path);
  std::string hashes;
  for (const ConsoleFile& file : files)
    hashes += file.path + ' ' + hex_hash(file.content) + '\n';
  prefix_ = "/v/" + hex_hash(hashes) + '/';
  for (ConsoleFile& file : files)
    add(std::move(file));
}

void ConsoleFiles::add(ConsoleFile file) {
  std::string content = std::move(file.content);
  if (file.path == kFirstPage) content = with_prefix(std::move(content), prefix_);
  std::string tag = '"' + hex_hash(content) + '"';
  std::string gzipped = gzip(content);
  File& made = files_[file.path];
  made = {content_type(file.path), std::move(tag), nullptr, nullptr};
  if (gzipped.size() < content.size()) made.gzipped = std::make_shared<const std::string>(std::move(gzipped));
  made.content = std::make_shared<const std::string>(std::move(content));
}

Reply ConsoleFiles::answer(const Request& request) const {
  if (!only_reads(request)) return file_reply(request, {}, nullptr);
  const std::string_view target = path_of(request);
  const bool versioned = target.starts_with(prefix_);
  std::string_view path;
  if (target.starts_with('/')) path = target.substr(versioned ? prefix_.size() : 1);
  const auto found = files_.find(target == "/" ? kFirstPage : path);
  if (found == files_.end() || (versioned && found->first == kFirstPage))
    return error_reply(request, HttpStatus::not_found, "There is no such page.");
  const File& file = found->second;
  const bool gzipped = file.gzipped && takes_gzip(request);
  // Another encoding of the same content has another tag (RFC 9110, 8.8.3.3).
  const std::string tag = gzipped ? file.tag.substr(0, file.tag.size() - 1) + "-gz\"" : file.tag;
  const bool known = knows(request[http::field::if_none_match], tag);
  Reply reply = known ? make_reply(request, HttpStatus::not_modified, file.type, {})
                      : file_reply(request, file.type, gzipped ? file.gzipped : file.content);
  // The length in a reply of this kind would be that of the file, not 0 (RFC 9110, 8.6).
  if (known) reply.erase(http::field::content_length);
  if (gzipped && !known) reply.set(http::field::content_encoding, "gzip");
  if (file.gzipped) reply.set(http::field::vary, "Accept-Encoding");
  // Browsers keep a file of this version, and ask each time whether another one is still the same.
  reply.set(http::field::cache_control, versioned ? "public, max-age=31536000, immutable" : "no-cache");
  reply.set(http::field::etag, tag);
  return reply;
}

}  // namespace vlk::relay
