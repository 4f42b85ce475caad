// The exchange of a data folder's files, cut off at each of its steps.
#include "relay/program/folder/exchange.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace fs = std::filesystem;

class ExchangeTest : public testing::Test {
 protected:
  struct Cut : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  // Makes a data folder with old files, and a draft with new ones.
  std::string prepare(int number) {
    const fs::path data = folder_.path() / std::to_string(number);
    fs::create_directory(data);
    for (const char* name : {"relay.db", "relay.db-wal", "trail-key.pem", "relay-cert.pem", "relay.lock"})
      std::ofstream(data / name) << "old " << name;
    const fs::path draft = make_draft(data);
    for (const char* name : {"relay.db", "trail-key.pem", "trail-key.pub"})
      std::ofstream(draft / name) << "new " << name;
    return data;
  }
  static void commit(const std::string& data) {
    commit_draft(data, {"relay.db", "trail-key.pem", "trail-key.pub"}, "kept");
  }
  static std::map<std::string, std::string> content_of(const std::string& folder) {
    std::map<std::string, std::string> content;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.is_directory()) continue;
      std::ifstream in(entry.path());
      std::getline(in, content[entry.path().lexically_relative(folder)]);
    }
    return content;
  }

  const std::map<std::string, std::string> after_{{"relay.db", "new relay.db"},
                                                  {"trail-key.pem", "new trail-key.pem"},
                                                  {"trail-key.pub", "new trail-key.pub"},
                                                  {"relay.lock", "old relay.lock"},
                                                  {"kept/relay.db", "old relay.db"},
                                                  {"kept/relay.db-wal", "old relay.db-wal"},
                                                  {"kept/trail-key.pem", "old trail-key.pem"},
                                                  {"kept/relay-cert.pem", "old relay-cert.pem"}};
  vantelink_test::TempFolder folder_;
};

TEST_F(ExchangeTest, NothingIsExchangedBeforeTheDecision) {
  const std::string data = prepare(0);
  EXPECT_FALSE(exchange_is_cut_off(data));
  complete_exchange(data);
  remove_draft(data);
  const auto content = content_of(data);
  EXPECT_EQ(content.size(), 5u);
  EXPECT_EQ(content.at("relay.db"), "old relay.db");
}

TEST_F(ExchangeTest, CutAtAnyStepIsCompletedByTheNextCaller) {
  int steps = 0;
  for (bool cut = true; cut; ++steps) {
    const std::string data = prepare(steps);
    commit(data);
    int left = steps;
    try {
      complete_exchange(data, [&] {
        if (left-- == 0) throw Cut("cut");
      });
      cut = false;
    } catch (const Cut&) {
      EXPECT_TRUE(exchange_is_cut_off(data)) << steps;
      complete_exchange(data);
    }
    EXPECT_FALSE(exchange_is_cut_off(data)) << steps;
    EXPECT_EQ(content_of(data), after_) << steps;
  }
  EXPECT_GE(steps, 10);
}

TEST_F(ExchangeTest, DamagedListIsRefused) {
  const std::string data = prepare(0);
  commit(data);
  std::ofstream(data + "/restore.commit/list") << "kept\n../../etc/passwd\n";
  EXPECT_THROW(complete_exchange(data), std::runtime_error);
  EXPECT_EQ(content_of(data).at("relay.db"), "old relay.db");
}

}  // namespace
}  // namespace vlk::relay
