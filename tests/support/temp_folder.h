// A folder of a test's own, gone with the object.
#pragma once

#include <filesystem>
#include <string>

namespace vantelink_test {

class TempFolder {
 public:
  TempFolder();  // throws std::runtime_error
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // As a representative would name it: the drive C and backslashes.
  std::string windows_path(const std::string& below = {}) const;
  // As programs under Wine see it: the drive Z.
  std::string wine_path(const std::string& below = {}) const;
  void write(const std::string& name, const std::string& bytes) const;
  std::string read(const std::string& name) const;

 private:
  std::filesystem::path path_;
};

}  // namespace vantelink_test
