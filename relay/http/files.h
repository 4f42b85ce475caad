// Serves the console's files from memory.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "relay/http/replies.h"

namespace vlk::relay {

// The files of the console's folder, which are read once, so that requests wait for no disk and always get
// files of one version.
class ConsoleFiles {
 public:
  // Reads the folder. Hidden files and files of types that the console does not use are left out. Throws
  // std::runtime_error with a sentence for the operator.
  explicit ConsoleFiles(const std::string& folder);

  // Replies with the file that the request's target names ("/" names index.html), with 304 if the browser has
  // the file already, or with an error.
  [[nodiscard]] Reply answer(const Request& request) const;

 private:
  struct File {
    std::string_view type;  // the content type
    std::string tag;        // the entity tag, from a hash of the content
    std::shared_ptr<const std::string> content;
  };
  std::map<std::string, File, std::less<>> files_;  // by path, such as "/base/dom.js"
};

// True if the text is a file name of letters, digits, "-", "_" and "." that does not begin with a dot.
[[nodiscard]] bool plain_name(std::string_view name);

// A reply with these bytes, or an error if the request's method is neither GET nor HEAD.
[[nodiscard]] Reply file_reply(const Request& request, std::string_view content_type,
                               std::shared_ptr<const std::string> content);

}  // namespace vlk::relay
