// The headers that protect the console in a browser: of replies, and those that requests must have.
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using HeadersTest = RelayTest;

TEST_F(HeadersTest, RequestWithoutAnOriginIsRefusedUnlessItOnlyReads) {
  const std::string cookie = log_in();
  const auto answer = [&](const std::string& line, const std::string& more) {
    return Browser(port_)
        .raw(line + " HTTP/1.1\r\nHost: localhost\r\nCookie: __Host-vantelink_session=" + cookie + "\r\n" +
             more + "\r\n")
        .substr(0, 12);
  };
  const std::string close = "Connection: close\r\n";
  EXPECT_EQ(answer("POST /api/logout", close), "HTTP/1.1 403");
  EXPECT_EQ(answer("DELETE /api/agents/x", close), "HTTP/1.1 403");
  EXPECT_EQ(answer("POST /api/logout", close + "Origin: null\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(answer("POST /api/logout", close + "Origin: http://localhost\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(answer("GET /api/me", close), "HTTP/1.1 200");
  EXPECT_EQ(answer("GET /console",
                   "Connection: close, Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                   "Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg==\r\n"),
            "HTTP/1.1 403");
  EXPECT_EQ(answer("POST /api/logout", close + "Origin: https://localhost\r\n"), "HTTP/1.1 200");
}

TEST_F(HeadersTest, EveryReplyHasTheHeadersThatProtectTheConsole) {
  const auto reply = [&](const std::string& target) {
    return Browser(port_).raw("GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  };
  for (const char* target : {"/", "/nothing", "/api/me", "/version.json", "/link"}) {
    const std::string text = reply(target);
    for (const char* header :
         {"Strict-Transport-Security: max-age=63072000\r\n", "Cross-Origin-Opener-Policy: same-origin\r\n",
          "Cross-Origin-Resource-Policy: same-origin\r\n", "X-Content-Type-Options: nosniff\r\n",
          "Permissions-Policy: clipboard-read=(self), ", "Content-Security-Policy: default-src 'self';",
          "Referrer-Policy: no-referrer\r\n"})
      EXPECT_NE(text.find(header), std::string::npos) << target << " lacks " << header << text;
  }
  EXPECT_NE(reply("/api/me").find("\r\nCache-Control: no-store\r\n"), std::string::npos);
  EXPECT_NE(reply("/").find("\r\nCache-Control: no-cache\r\n"), std::string::npos);
}

TEST_F(HeadersTest, LogInCookieIsLimitedToThisHostAndToTls) {
  const std::string body = Json{{"name", "admin"}, {"password", kPassword}}.dump();
  const std::string reply = Browser(port_).raw(
      "POST /api/login HTTP/1.1\r\nHost: x\r\nOrigin: https://x\r\nConnection: close\r\nContent-Length: " +
      std::to_string(body.size()) + "\r\n\r\n" + body);
  const std::size_t at = reply.find("\r\nSet-Cookie: __Host-vantelink_session=");
  ASSERT_NE(at, std::string::npos) << reply;
  const std::string cookie = reply.substr(at + 2, reply.find("\r\n", at + 2) - at - 2);
  EXPECT_NE(cookie.find("; Path=/; HttpOnly; Secure; SameSite=Strict; Max-Age="), std::string::npos)
      << cookie;
  EXPECT_EQ(cookie.find("Domain"), std::string::npos) << cookie;
}

}  // namespace
}  // namespace vlk::relay
