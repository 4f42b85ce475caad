// Serves the console's files from memory.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "relay/http/replies.h"

namespace vlk::relay {

// One file of the console.
struct ConsoleFile {
  std::string path;  // such as "base/dom.js"
  std::string content;
};

// The files in a folder. Hidden files and files of types that the console does not use are left out. Throws
// std::runtime_error with a sentence for the operator.
[[nodiscard]] std::vector<ConsoleFile> console_files_in(const std::string& folder);

// The console's files of one version. Each file has two paths: its own, such as "/base/dom.js", which
// browsers ask for each time, and one with a hash of all files, such as "/v/0f..9a/base/dom.js", which
// browsers keep. The first page names its files by the second path, and the files name one another by
// relative paths.
class ConsoleFiles {
 public:
  // Throws std::runtime_error with a sentence for the operator if there is no index.html.
  explicit ConsoleFiles(std::vector<ConsoleFile> files);

  // Replies with the file that the request's target names ("/" names index.html), with 304 if the browser has
  // the file already, or with an error.
  [[nodiscard]] Reply answer(const Request& request) const;

 private:
  using Content = std::shared_ptr<const std::string>;
  struct File {
    std::string_view type;  // the content type
    std::string tag;        // the entity tag, from a hash of the content
    Content content;
    Content gzipped;  // null if this would not be shorter
  };
  void add(ConsoleFile file);

  std::string prefix_;                              // of the paths with the hash, such as "/v/0f..9a/"
  std::map<std::string, File, std::less<>> files_;  // by path, such as "base/dom.js"
};

}  // namespace vlk::relay
