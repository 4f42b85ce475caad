// An empty temporary folder, removed on destruction.
#pragma once

#include <filesystem>
#include <string>

namespace vantelink_test {

class TempFolder {
 public:
  TempFolder();  // throws std::runtime_error when no folder can be made
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // The path of a file in the folder, as the native build of the agent accepts it: drive C and backslashes.
  std::string windows_path(const std::string& below = {}) const;
  // The path of a file in the folder, as programs under Wine see it: drive Z and backslashes.
  std::string wine_path(const std::string& below = {}) const;
  void write(const std::string& name, const std::string& bytes) const;
  std::string read(const std::string& name) const;  // throws std::runtime_error when there is no such file

 private:
  std::filesystem::path path_;
};

}  // namespace vantelink_test
