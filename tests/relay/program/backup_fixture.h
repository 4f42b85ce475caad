// A data folder with a database and keys, and backups of it, for the tests of backup and restore.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "relay/base/secrets.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/program/backup/backup.h"
#include "relay/program/backup/restore.h"
#include "relay/program/folder/exchange.h"
#include "relay/storage/store.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/key.h"
#include "support/temp_folder.h"

namespace vlk::relay {

class BackupTest : public testing::Test {
 protected:
  BackupTest() {
    start_sodium();
    const DataFolder folder(data_);
    static_cast<void>(OwnCertificate(data_, {"relay.example"}).prepare());
    write_pair(next_files(data_), make_authority({"relay.example"}, wall_seconds()));
    Store store(folder.database());
    for (const char* name : {"ada", "bjarni", "carla"})
      store.add_user(name, "hash of " + std::string(name));
    Transaction transaction(store.database());
    sign_head(store.database(), TrailKey::load_or_make(data_));
    transaction.commit();
  }

  BackupMade backup() { return make_backup(DataFolder(data_), file_); }
  BackupRestored restore(const std::string& data, bool replace = false) {
    return restore_backup(DataFolder(data, FileLock::Mode::Exclusive), file_, replace);
  }
  // Expects a restore to be refused for this reason, and the folder to be as it was.
  void expect_refused(const std::string& data, const std::string& reason, bool replace = true) {
    const auto before = content_of(data);
    try {
      static_cast<void>(restore(data, replace));
      ADD_FAILURE() << "was restored, but: " << reason;
    } catch (const std::runtime_error& refusal) {
      EXPECT_NE(std::string(refusal.what()).find(reason), std::string::npos) << refusal.what();
    }
    EXPECT_EQ(content_of(data), before);
  }

  // The names and contents of a folder's files, without those that any user of the folder changes.
  std::map<std::string, std::string> content_of(const std::string& folder) {
    std::map<std::string, std::string> content;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      const std::string name = entry.path().lexically_relative(folder);
      if (name != kRelayLockFile) content[name] = entry.is_directory() ? "" : bytes_of(entry.path());
    }
    return content;
  }
  std::string bytes_of(const std::filesystem::path& file) {
    return folder_.read(file.lexically_relative(folder_.path()));
  }
  // Changes a database, such as that of a backup, without the relay's rules.
  static void change(const std::string& file, const std::string& sql) {
    Database::draft(file).execute(sql.c_str());
  }
  static std::int64_t number_in(const std::string& data, const std::string& query) {
    Database database = Database::read_only(data + "/relay.db");
    Statement statement(database, query.c_str());
    return statement.step() ? statement.number(0) : -1;
  }

  vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path() / "data";
  const std::string other_ = folder_.path() / "other";
  const std::string file_ = folder_.path() / "relay.backup";
};

}  // namespace vlk::relay
