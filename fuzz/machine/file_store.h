// The machine's disk: folders and files in memory. file_store.cpp implements platform/files/file_system.h
// with it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vlk::agent::fuzz {

// Exists for one run of an input; at most one object exists at a time. Used on one thread.
class FileStore {
 public:
  using Content = std::shared_ptr<std::string>;

  FileStore();
  // Closes the streams that the agent leaves open. The table of uploads must be empty.
  ~FileStore();
  FileStore(const FileStore&) = delete;
  FileStore& operator=(const FileStore&) = delete;

  // Paths with backslashes, as the agent passes them, up to the first character 0.
  std::map<std::wstring, Content> files;
  std::set<std::wstring> folders;
  // What the agent did, in order: "folder PATH", "wb PATH", "rb PATH" or "list PATTERN", in UTF-8.
  std::vector<std::string> calls;

  // How many streams are open.
  [[nodiscard]] std::size_t open() const { return streams_.size(); }

  std::FILE* open(const std::wstring& path, bool writes);

 private:
  struct Stream;

  std::map<const Stream*, std::FILE*> streams_;
};

}  // namespace vlk::agent::fuzz
