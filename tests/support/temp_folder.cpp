// Makes the folder with mkdtemp and removes it with all it contains.
#include "support/temp_folder.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "support/bytes/file_bytes.h"

namespace vantelink_test {

TempFolder::TempFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vlk-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make the folder " + pattern);
  path_ = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::windows_path(const std::string& below) const {
  std::string path = "C:" + path_.string();
  std::replace(path.begin(), path.end(), '/', '\\');
  return below.empty() ? path : path + '\\' + below;
}

std::string TempFolder::wine_path(const std::string& below) const {
  return 'Z' + windows_path(below).substr(1);
}

void TempFolder::write(const std::string& name, const std::string& bytes) const {
  std::ofstream(path_ / name, std::ios::binary) << bytes;
}

std::string TempFolder::read(const std::string& name) const {
  if (!std::filesystem::exists(path_ / name))
    throw std::runtime_error("there is no file " + name + " in the temporary folder");
  return file_bytes(path_ / name);
}

}  // namespace vantelink_test
