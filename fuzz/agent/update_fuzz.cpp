// Reads any bytes as the response of an update server, as its manifest and as a version.
#include <string>

#include "require.h"
#include "update/manifest.h"
#include "update/response.h"
#include "update/version.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vlk::agent;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto body = find_body(text);
  if (body) {
    REQUIRE(*body >= 16 && *body <= size && text.compare(0, 12, "HTTP/1.1 200") == 0);
    REQUIRE(text.find("\r\n\r\n") == *body - 4);
  }
  const std::string manifest = body ? text.substr(*body) : text;
  if (const auto offer = read_manifest(manifest)) {
    REQUIRE(!offer->file.empty() && is_newer(kUpdateVersion, offer->version));
    REQUIRE(!is_newer(offer->version, kUpdateVersion));
  }
  REQUIRE(!is_newer(text, text));
  REQUIRE(!(is_newer(text, "0.1.6") && is_newer("0.1.6", text)));
  return 0;
}
