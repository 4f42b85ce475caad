// The check of a response's status, and the position where its body begins.
#include "update/response.h"

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

TEST(ResponseTest, OnlyTheFirstTwelveBytesOfTheResponseAreComparedAsItsStatus) {
  for (const char* head : {"HTTP/1.1 200 OK", "HTTP/1.1 200", "HTTP/1.1 200 ", "HTTP/1.1 2000",
                           "HTTP/1.1 200 Anything at all", "HTTP/1.1 200\r\nTransfer-Encoding: chunked"}) {
    const std::string response = std::string(head) + "\r\n\r\nbody";
    EXPECT_EQ(find_body(response), response.size() - 4) << head;
  }
  for (const char* head :
       {"HTTP/1.0 200 OK", "HTTP/1.1 204", "HTTP/2 200", "http/1.1 200 OK", "HTTP/1.1 20", " HTTP/1.1 200",
        "HTTP/1.1  200", "HTTP/1.1 302 Found\r\nLocation: /elsewhere", "", "\r\nHTTP/1.1 200"}) {
    EXPECT_FALSE(find_body(std::string(head) + "\r\n\r\nbody")) << head;
  }
}

TEST(ResponseTest, ResponseWithoutABlankLineHasNoBody) {
  for (const char* response :
       {"", "\r", "\r\n\r", "HTTP/1.1 200", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\n\r",
        "HTTP/1.1 200 OK\n\nbody", "HTTP/1.1 200 OK\r\nA: b\r\n \r\nbody"}) {
    EXPECT_FALSE(find_body(response)) << response;
  }
  EXPECT_FALSE(find_body(std::string("HTTP/1.1 200 OK\r\n") + std::string(10 << 20, 'x')));
}

TEST(ResponseTest, BodyBeginsAfterTheFirstBlankLineAndMayBeEmpty) {
  EXPECT_EQ(find_body("HTTP/1.1 200\r\n\r\n"), 16u);
  EXPECT_EQ(find_body("HTTP/1.1 200\r\n\r\n\r\n\r\n"), 16u);
  EXPECT_FALSE(find_body("\r\n\r\n")) << "shorter than a status";
  EXPECT_FALSE(find_body("\r\n\r\nHTTP/1.1 200")) << "a status line in the body does not count";
}

}  // namespace
}  // namespace vlk::agent
