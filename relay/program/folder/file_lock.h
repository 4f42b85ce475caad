// Locks between processes, which end with the process that holds them.
#pragma once

#include <optional>
#include <string>

namespace vlk::relay {

// A lock on a file or folder. It is advisory: only programs that ask for it are kept out.
class FileLock {
 public:
  enum class Mode { Shared, Exclusive };

  // Locks an existing file or folder. Returns nothing if another process has a lock that does not go with
  // this one. Throws std::runtime_error if the file cannot be opened.
  [[nodiscard]] static std::optional<FileLock> take(const std::string& path, Mode mode);
  // The same for a file, which is made with mode 0600 if it is missing. A link is not followed.
  [[nodiscard]] static std::optional<FileLock> take_or_make(const std::string& file, Mode mode);

  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&& other) noexcept;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();

  // The locked file, as long as this object exists.
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  explicit FileLock(int descriptor) : descriptor_(descriptor) {}
  [[nodiscard]] static std::optional<FileLock> lock(int descriptor, const std::string& path, Mode mode);

  int descriptor_;
};

}  // namespace vlk::relay
