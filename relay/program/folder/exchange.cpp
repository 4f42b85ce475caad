// Carries out the steps of an exchange.
#include "relay/program/folder/exchange.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "relay/net/private_files.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

// The list of the new files, in kCommitFolder. Its first line is the folder for the old ones.
constexpr char kList[] = "list";

// All files that an exchange removes from the data folder. A write-ahead log belongs to its database: with
// another database it would be applied to pages that it does not fit. The relay makes its leaf again.
std::vector<std::string> replaced_files() {
  std::vector<std::string> names = {"relay.db-wal", "relay.db-shm",   "relay.db-journal",
                                    "relay.db",     "first-password", "relay-leaf.pem"};
  for (const SmallFile& file : kSmallFiles)
    names.emplace_back(file.name);
  return names;
}

struct List {
  std::string kept;
  std::vector<std::string> names;
};

List read_list(const fs::path& file) {
  std::ifstream in(file);
  List list;
  std::string line;
  std::getline(in, list.kept);
  while (std::getline(in, line))
    list.names.push_back(line);
  const auto known = replaced_files();
  const bool good = in.eof() && !list.kept.empty() && list.kept.find('/') == std::string::npos &&
                    std::all_of(list.names.begin(), list.names.end(), [&](const std::string& name) {
                      return std::find(known.begin(), known.end(), name) != known.end();
                    });
  if (!good) throw std::runtime_error("cannot complete the restore: " + file.string() + " is damaged");
  return list;
}

class Exchange {
 public:
  Exchange(const fs::path& data, const std::function<void()>& before_step)
      : data_(data), commit_(data / kCommitFolder), before_step_(before_step) {}

  void complete() {
    // Without a list, all that was left to do is to remove the folder.
    if (fs::exists(commit_ / kList)) {
      const List list = read_list(commit_ / kList);
      for (const std::string& name : replaced_files())
        exchange(name, list);
      step([&] { fs::remove(commit_ / kList); });
    }
    step([&] { fs::remove_all(commit_); });
  }

 private:
  // A file that the list names is new in the data folder once it is gone from the commit folder.
  void exchange(const std::string& name, const List& list) {
    const bool has_new = std::find(list.names.begin(), list.names.end(), name) != list.names.end();
    if (has_new && !fs::exists(commit_ / name)) return;
    if (fs::exists(fs::symlink_status(data_ / name))) {
      if (!fs::exists(data_ / list.kept)) make_private_folder(data_ / list.kept);
      step([&] { rename_durably(data_ / name, data_ / list.kept / name); });
    }
    if (has_new) step([&] { rename_durably(commit_ / name, data_ / name); });
  }
  void make_private_folder(const fs::path& folder) {
    step([&] {
      fs::create_directory(folder);
      fs::permissions(folder, fs::perms::owner_all);
    });
  }
  template <class Work>
  void step(const Work& work) {
    if (before_step_) before_step_();
    work();
  }

  const fs::path data_;
  const fs::path commit_;
  const std::function<void()>& before_step_;
};

}  // namespace

std::string make_draft(const std::string& data) {
  remove_draft(data);
  const fs::path draft = fs::path(data) / kDraftFolder;
  fs::create_directory(draft);
  fs::permissions(draft, fs::perms::owner_all);
  return draft;
}

void remove_draft(const std::string& data) {
  std::error_code ignored;
  fs::remove_all(fs::path(data) / kDraftFolder, ignored);
}

void commit_draft(const std::string& data, const std::vector<std::string>& names, const std::string& kept) {
  std::string list = kept + '\n';
  for (const std::string& name : names)
    list += name + '\n';
  const fs::path draft = fs::path(data) / kDraftFolder;
  write_durably(draft / kList, list, 0600);
  rename_durably(draft, fs::path(data) / kCommitFolder);
}

bool exchange_is_cut_off(const std::string& data) {
  return fs::exists(fs::path(data) / kCommitFolder);
}

void complete_exchange(const std::string& data, const std::function<void()>& before_step) {
  if (exchange_is_cut_off(data)) Exchange(data, before_step).complete();
}

}  // namespace vlk::relay
