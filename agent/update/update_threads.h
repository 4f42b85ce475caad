// The two threads of updates: one looks for an offer, the other downloads the installer and starts it. Both
// are detached, own everything they use, and report by callbacks, which run on those threads.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "update/manifest.h"

namespace vlk::agent {

// Looks once for a newer agent and calls `on_offer` if there is one. Calls nothing otherwise. `host` and
// `port` name a server; empty and 0 do not stand for the default server here.
void start_update_check(const std::string& host, std::uint32_t port,
                        std::function<void(const UpdateOffer&)> on_offer);

struct DownloadCallbacks {
  std::function<void(const std::wstring&)> on_status;  // a text for the status line: progress or failure
  std::function<void()> on_installer_started;          // the agent must end now
};

// Downloads `file` from the server into the temporary folder and starts it. The name is used unchanged,
// including any folders in it.
void start_update_download(const std::string& host, std::uint32_t port, const std::string& file,
                           DownloadCallbacks callbacks);

}  // namespace vlk::agent
