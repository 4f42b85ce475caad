// Fetches the manifest and the installer.
#include "update/update.h"

#include "update/https.h"

namespace vlk::agent {
namespace {

constexpr char kManifestPath[] = "/version.json";
constexpr char kDownloadPath[] = "/download/";

}  // namespace

std::optional<UpdateOffer> check_for_update(const std::string& host, std::uint32_t port) {
  std::string manifest;
  if (!https_get(host, port, kManifestPath, manifest)) return std::nullopt;
  return read_manifest(manifest);
}

std::string fetch_installer(const std::string& host, std::uint32_t port, const std::string& file) {
  std::string installer;
  // If the fetch fails, `installer` stays empty.
  (void)https_get(host, port, kDownloadPath + file, installer);
  return installer;
}

}  // namespace vlk::agent
