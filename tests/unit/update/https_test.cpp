// The GET request against a scripted TLS server.
#include "update/https.h"

#include <future>

#include <gtest/gtest.h>

#include "support/peers/scripted_server.h"

namespace vlk::agent {
namespace {

using vantelink_test::kPatience;
using vantelink_test::ScriptedServer;
using vantelink_test::ServerConnection;
using vantelink_test::TestAuthority;

struct Fetched {
  bool good = false;
  std::string body = "untouched";
};

std::future<Fetched> fetch(const ScriptedServer& server, const std::string& path = "/version.json") {
  return std::async(std::launch::async, [port = server.port(), path] {
    Fetched result;
    result.good = https_get("localhost", port, path, result.body);
    return result;
  });
}

class HttpsTest : public testing::Test {
 protected:
  // Accepts a client and reads its request into `request_`.
  std::unique_ptr<ServerConnection> accept() {
    auto connection = server_.accept();
    if (!connection->handshake()) throw std::runtime_error("the handshake failed");
    request_ = connection->read_request();
    return connection;
  }
  // Sends a response, closes the connection, and returns the result of the client's request.
  Fetched fetch_response(std::string_view response) {
    auto fetched = fetch(server_);
    const auto connection = accept();
    connection->send(response);
    connection->close();
    return fetched.get();
  }

  const TestAuthority authority_;
  ScriptedServer server_{authority_};
  std::string request_;
};

TEST_F(HttpsTest, RequestHasTheFixedTextAndTheHostWithoutAPort) {
  auto fetched = fetch(server_, "/download/Set up \xC3\xA6.exe");
  auto connection = accept();
  EXPECT_EQ(request_,
            "GET /download/Set up \xC3\xA6.exe HTTP/1.1\r\nHost: localhost\r\nUser-Agent: Vantelink\r\n"
            "Connection: close\r\n\r\n");
  EXPECT_EQ(connection->server_name(), "localhost");
  connection.reset();
  EXPECT_FALSE(fetched.get().good);
}

TEST_F(HttpsTest, BodyIsEverythingAfterTheFirstBlankLine) {
  const std::string chunked = "2\r\nab\r\n0\r\n\r\n";
  const Fetched result =
      fetch_response("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\n" + chunked);
  EXPECT_TRUE(result.good);
  EXPECT_EQ(result.body, chunked) << "chunked encoding and Content-Length are not interpreted";
}

TEST_F(HttpsTest, BodyMayBeEmptyOrShorterThanItsContentLength) {
  const Fetched result = fetch_response("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
  EXPECT_TRUE(result.good);
  EXPECT_EQ(result.body, "");
}

TEST_F(HttpsTest, UnexpectedStatusLineFailsAndLeavesTheCallersBodyUnchanged) {
  for (const char* head : {"HTTP/1.0 200 OK", "HTTP/1.1 204", "HTTP/2 200", "HTTP/1.1 404 Not Found",
                           "HTTP/1.1 301 Moved\r\nLocation: /here", "nonsense"}) {
    const Fetched result = fetch_response(std::string(head) + "\r\n\r\nbody");
    EXPECT_FALSE(result.good) << head;
    EXPECT_EQ(result.body, "untouched") << head;
  }
}

TEST_F(HttpsTest, AnyCertificateIsAccepted) {
  const TestAuthority stranger;
  for (const bool self_signed : {false, true}) {
    ScriptedServer server(stranger, {.names = {"elsewhere.example"}, .self_signed = self_signed});
    auto fetched = fetch(server);
    const auto connection = server.accept();
    ASSERT_TRUE(connection->handshake());
    connection->read_request();
    connection->send("HTTP/1.1 200 OK\r\n\r\nbody");
    connection->close();
    EXPECT_EQ(fetched.get().body, "body");
  }
}

TEST_F(HttpsTest, ServerMayCloseAfterAnyByteOfTheResponse) {
  const std::string response = "HTTP/1.1 200 OK\r\nX: y\r\n\r\nbody";
  const std::size_t head = response.size() - 4;
  for (std::size_t size = 0; size <= response.size(); ++size) {
    for (const auto end : {&ServerConnection::close, &ServerConnection::cut_off, &ServerConnection::abort}) {
      auto fetched = fetch(server_);
      const auto connection = accept();
      connection->send(std::string_view(response).substr(0, size));
      (*connection.*end)();
      const Fetched result = fetched.get();
      EXPECT_EQ(result.good, size >= head) << size;
      EXPECT_EQ(result.body, size >= head ? response.substr(head, size - head) : "untouched") << size;
    }
  }
}

TEST_F(HttpsTest, ResponseReceivedByteByByteIsReadCompletely) {
  auto fetched = fetch(server_);
  const auto connection = accept();
  for (const char byte : std::string("HTTP/1.1 200 OK\r\n\r\nbody"))
    connection->send(std::string_view(&byte, 1));
  connection->close();
  EXPECT_EQ(fetched.get().body, "body");
}

TEST_F(HttpsTest, LargeBodiesAreReadCompletely) {
  std::string body((20 << 20) + 1, '\0');
  for (std::size_t i = 0; i < body.size(); ++i)
    body[i] = static_cast<char>(i * 2654435761u >> 13);
  auto fetched = fetch(server_);
  const auto connection = accept();
  connection->send("HTTP/1.1 200 OK\r\n\r\n");
  connection->send(body);
  connection->close();
  EXPECT_TRUE(fetched.get().body == body);
}

TEST_F(HttpsTest, ResponseOfTenMegabytesWithoutABlankLineFails) {
  std::string headers = "HTTP/1.1 200 OK\r\n";
  while (headers.size() < (10u << 20))
    headers += "X-Filler: " + std::string(1000, 'x') + "\r\n";
  EXPECT_FALSE(fetch_response(headers).good);
}

TEST_F(HttpsTest, RequestFailsIfTheServerClosesBeforeOrDuringTheHandshake) {
  for (const bool greeted : {false, true}) {
    auto fetched = fetch(server_);
    auto connection = server_.accept();
    // The handshake answers the client's first message and then stops.
    if (greeted) (void)connection->handshake(vantelink_test::Milliseconds(0));
    connection->abort();
    EXPECT_FALSE(fetched.get().good);
  }
}

TEST_F(HttpsTest, RequestFailsIfTheHostDoesNotResolveOrAnswer) {
  std::uint16_t closed_port = 0;
  { closed_port = ScriptedServer(authority_).port(); }
  std::string body = "untouched";
  EXPECT_FALSE(https_get("localhost", closed_port, "/", body));
  EXPECT_FALSE(https_get(std::string(300, 'x'), 443, "/", body));
  EXPECT_FALSE(https_get("", 443, "/", body));
  EXPECT_FALSE(https_get("localhost", 4'000'000'000u, "/", body)) << "not a valid port";
  EXPECT_EQ(body, "untouched");
}

TEST_F(HttpsTest, ConcurrentRequestsDoNotAffectEachOther) {
  std::vector<std::future<Fetched>> all;
  for (int i = 0; i < 8; ++i)
    all.push_back(fetch(server_, "/" + std::to_string(i)));
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto connection = accept();
    connection->send("HTTP/1.1 200 OK\r\n\r\nfor " + request_.substr(4, 2));
    connection->close();
  }
  for (std::size_t i = 0; i < all.size(); ++i)
    EXPECT_EQ(all[i].get().body, "for /" + std::to_string(i));
}

}  // namespace
}  // namespace vlk::agent
