// Packs and reads clipboard payloads.
#include "clipboard/payload.h"

#include <optional>

namespace vlk::agent {
namespace {

constexpr std::uint64_t kMaxFileBytes = 0x4000000;  // limit for all files of one message together
constexpr std::size_t kNameLengthSize = 4;
constexpr std::size_t kFileSizeSize = 8;

void put_big_endian(std::vector<std::uint8_t>& bytes, std::uint64_t value, std::size_t size) {
  for (std::size_t i = size; i-- > 0;)
    bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
}

std::string_view after_last_separator(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

// Reads a payload from start to end. A read of more bytes than are left fails and consumes nothing.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t length) : data_(data), left_(length) {}

  std::optional<std::uint64_t> number(std::size_t size) {
    const std::uint8_t* const bytes = take(size);
    if (bytes == nullptr) return std::nullopt;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
      value = value << 8 | bytes[i];
    return value;
  }

  const std::uint8_t* take(std::uint64_t size) {
    if (left_ < size) return nullptr;
    const std::uint8_t* const bytes = data_;
    data_ += size;
    left_ -= static_cast<std::size_t>(size);
    return bytes;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// Reads the record of the next file, with its name unchanged. No value if the rest of the payload is too
// short.
std::optional<ClipFile> read_record(Reader& reader) {
  const std::optional<std::uint64_t> name_length = reader.number(kNameLengthSize);
  if (!name_length) return std::nullopt;
  const std::uint8_t* const name = reader.take(*name_length);
  if (name == nullptr) return std::nullopt;
  const std::optional<std::uint64_t> file_size = reader.number(kFileSizeSize);
  if (!file_size) return std::nullopt;
  const std::uint8_t* const data = reader.take(*file_size);
  if (data == nullptr) return std::nullopt;
  return ClipFile{std::string(reinterpret_cast<const char*>(name), static_cast<std::size_t>(*name_length)),
                  data, static_cast<std::size_t>(*file_size)};
}

}  // namespace

std::vector<std::uint8_t> PackClip(ClipboardKind kind, std::string_view content) {
  std::vector<std::uint8_t> payload;
  payload.reserve(1 + content.size());
  payload.push_back(static_cast<std::uint8_t>(kind));
  payload.insert(payload.end(), content.begin(), content.end());
  return payload;
}

std::vector<ClipFile> ReadClipFiles(const std::uint8_t* content, std::size_t length) {
  std::vector<ClipFile> files;
  Reader reader(content, length);
  const std::uint64_t count = reader.number(kClipCountSize).value_or(0);
  for (std::uint64_t i = 0; i < count; ++i) {
    std::optional<ClipFile> file = read_record(reader);
    if (!file) break;
    file->name = SafeClipFileName(file->name);
    if (!file->name.empty()) files.push_back(*std::move(file));
  }
  return files;
}

std::string SafeClipFileName(std::string_view name) {
  const std::string_view last = after_last_separator(name);
  return last == "." || last == ".." ? std::string() : std::string(last);
}

bool ClipFilePacker::fits(std::uint64_t size) const {
  return size <= kMaxFileBytes - total_;
}

void ClipFilePacker::add(std::string_view path, const std::vector<std::uint8_t>& bytes) {
  const std::string_view name = after_last_separator(path);
  put_big_endian(records_, name.size(), kNameLengthSize);
  records_.insert(records_.end(), name.begin(), name.end());
  put_big_endian(records_, bytes.size(), kFileSizeSize);
  records_.insert(records_.end(), bytes.begin(), bytes.end());
  total_ += bytes.size();
  ++packed_;
}

std::vector<std::uint8_t> ClipFilePacker::payload() const {
  std::vector<std::uint8_t> payload;
  if (packed_ == 0) return payload;
  payload.reserve(1 + kClipCountSize + records_.size());
  payload.push_back(static_cast<std::uint8_t>(ClipboardKind::Files));
  put_big_endian(payload, packed_, kClipCountSize);
  payload.insert(payload.end(), records_.begin(), records_.end());
  return payload;
}

}  // namespace vlk::agent
