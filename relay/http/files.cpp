// Serves the files of a folder by their names.
#include "relay/http/files.h"

#include <array>
#include <filesystem>
#include <utility>

namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

// The paths that agents request.
constexpr char kManifest[] = "/version.json";
constexpr std::string_view kDownloads = "/download/";

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

// True for paths of letters, digits, "/", "-", "_" and "." in which no component begins with a dot. Without
// ".." and escapes, a path cannot name anything outside the folder; hidden files are excluded too.
bool plain_path(std::string_view path) {
  if (path.empty() || path.front() != '/') return false;
  char before = 0;
  for (const char c : path) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (!letter && c != '/' && c != '.' && c != '-' && c != '_') return false;
    if ((c == '.' || c == '/') && before == '/') return false;
    before = c;
  }
  return true;
}

// A reply with the file, or with an error if there is no such file. An empty path or type counts as no file.
Reply reply_with(const std::filesystem::path& file, std::string_view type, const Request& request) {
  if (request.method() != http::verb::get && request.method() != http::verb::head) {
    Reply reply = error_reply(request, HttpStatus::method_not_allowed, "Files can only be read.");
    reply.set(http::field::allow, "GET, HEAD");
    return reply;
  }
  std::error_code none;
  boost::beast::error_code error;
  ReplyBody::value_type body;
  if (!type.empty() && std::filesystem::is_regular_file(file, none))
    body.file.open(file.c_str(), boost::beast::file_mode::scan, error);
  if (body.file.is_open()) body.file_size = body.file.size(error);
  if (!body.file.is_open() || error)
    return error_reply(request, HttpStatus::not_found, "There is no such page.");
  Reply reply = make_reply(request, HttpStatus::ok, type, {});
  reply.body() = std::move(body);
  reply.prepare_payload();
  return reply;
}

}  // namespace

Reply serve_file(const std::string& folder, const Request& request) {
  const std::string_view path = path_of(request);
  const std::filesystem::path file =
      plain_path(path) ? std::filesystem::path(folder) / (path == "/" ? "index.html" : path.substr(1)) : "";
  return reply_with(file, content_type(file), request);
}

bool names_update(std::string_view path) {
  return path == kManifest || path.starts_with(kDownloads);
}

Reply serve_update(const std::string& folder, const Request& request) {
  const std::string_view path = path_of(request);
  if (path == kManifest) return reply_with(folder + kManifest, "application/json", request);
  const std::string name(path.substr(kDownloads.size()));
  const bool plain = !name.empty() && name.find('/') == std::string::npos && plain_path('/' + name);
  return reply_with(plain ? folder + '/' + name : "", "application/octet-stream", request);
}

}  // namespace vlk::relay
