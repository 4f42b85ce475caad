// How many connections there may be, and which of them go first.
#include "relay/net/connections.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

class ConnectionsTest : public testing::Test {
 protected:
  // 8 places of strangers, 2 of them for one source; 4 of waiting machines, one of them for one source.
  ConnectionsTest() { limits_.connections = 64; }

  // A stranger whose end adds `name` to cut_. Null if there was no place.
  std::unique_ptr<Connections::Place> admit(const std::string& source, const std::string& name) {
    auto place = connections_.admit(source, source + ":1");
    if (place)
      place->on_cut([this, name](const std::string& reason) { cut_.push_back(name + ": " + reason); });
    return place;
  }

  Limits limits_;
  std::string log_text_;
  const Log log_{[this](std::string_view line) { log_text_.append(line).append("\n"); }};
  Connections connections_{limits_, log_};
  std::vector<std::string> cut_;
};

using Names = std::vector<std::string>;

TEST_F(ConnectionsTest, SourceWithItsShareLosesItsOldestStrangerToANewOne) {
  const auto first = admit("a", "first"), second = admit("a", "second"), other = admit("b", "other");
  const auto third = admit("a", "third");
  ASSERT_TRUE(third);
  EXPECT_EQ(cut_, Names{"first: too many connections"});
  EXPECT_NE(log_text_.find("peer=a:1 agent=- connection closed to make room"), std::string::npos)
      << log_text_;
}

TEST_F(ConnectionsTest, StrangerThatHasShownSomethingLaterGoesLater) {
  const auto first = admit("a", "first"), second = admit("a", "second");
  first->expires_after(&Limits::handshake);
  const auto third = admit("a", "third");
  EXPECT_EQ(cut_, Names{"second: too many connections"});
}

TEST_F(ConnectionsTest, SourceWithMostStrangersMakesRoomForOneOfAnotherSource) {
  std::vector<std::unique_ptr<Connections::Place>> places;
  for (const char* source : {"a", "b", "c", "d", "e", "f", "f", "g"})
    places.push_back(admit(source, source));
  EXPECT_EQ(cut_, Names{});
  EXPECT_TRUE(admit("h", "h"));
  EXPECT_EQ(cut_, Names{"f: too many connections"});
}

TEST_F(ConnectionsTest, StrangersDoNotTakeThePlacesOfKnownPeers) {
  std::vector<std::unique_ptr<Connections::Place>> known, strangers;
  for (int i = 0; i < 52; ++i) {
    known.push_back(admit("known", "known"));
    EXPECT_TRUE(known.back()->rise(Standing::Known));
  }
  for (int i = 0; i < 20; ++i)
    strangers.push_back(admit(std::to_string(i), "stranger"));
  EXPECT_EQ(cut_.size(), 12u) << "8 strangers have places";
  EXPECT_EQ(std::ranges::count(cut_, "known: too many connections"), 0);
  EXPECT_FALSE(strangers.back()->rise(Standing::Known)) << "all places of known peers are taken";
}

TEST_F(ConnectionsTest, WaitingMachinesOfOneSourceHaveAShare) {
  const auto first = admit("a", "first"), second = admit("a", "second"), other = admit("b", "other");
  EXPECT_TRUE(first->rise(Standing::Waiting));
  EXPECT_TRUE(other->rise(Standing::Waiting));
  EXPECT_TRUE(second->rise(Standing::Waiting));
  EXPECT_EQ(cut_, Names{"first: too many connections"});
  EXPECT_FALSE(first->rise(Standing::Known)) << "the connection that was cut does not come back";
}

TEST_F(ConnectionsTest, ConnectionWhoseProxyNamesAnotherSourceCountsThere) {
  const auto first = admit("a", "first"), second = admit("a", "second"),
             proxied = admit("proxy:7", "proxied");
  EXPECT_TRUE(proxied->move("a", "a:9"));
  EXPECT_EQ(cut_, Names{"first: too many connections"});
  EXPECT_EQ(proxied->source(), "a");
  EXPECT_EQ(proxied->peer(), "a:9");
}

TEST_F(ConnectionsTest, ConnectionThatWasCutKeepsItsDescriptorUntilItsEnd) {
  std::vector<std::unique_ptr<Connections::Place>> places;
  for (int i = 0; i < 72; ++i) {
    places.push_back(admit("a", "stranger"));
    EXPECT_TRUE(places.back()) << i;
  }
  EXPECT_FALSE(admit("b", "newcomer")) << "no descriptor is left";
  places.pop_back();
  EXPECT_TRUE(admit("b", "newcomer"));
}

TEST_F(ConnectionsTest, ConnectionThatIsTooSlowIsCutOnce) {
  const auto slow = admit("a", "slow"), never = admit("a", "never");
  slow->expires_after(&Limits::handshake);
  never->expires_after(&Limits::handshake);
  never->never_expires();
  const auto now = Clock::now();
  connections_.tick(now + limits_.handshake / 2);
  EXPECT_EQ(cut_, Names{});
  connections_.tick(now + limits_.handshake + std::chrono::seconds(1));
  connections_.tick(now + 2 * limits_.handshake);
  EXPECT_EQ(cut_, Names{"slow: too slow"});
}

}  // namespace
}  // namespace vlk::relay
