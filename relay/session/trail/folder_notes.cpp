// Counts requests for the lists of folders, and writes their rows.
#include "relay/session/trail/folder_notes.h"

#include <nlohmann/json.hpp>

#include "relay/base/text.h"
#include "wire/messages.h"

namespace vlk::relay {
namespace {

// The path in the request; empty for the list of drives.
std::string path_in(const Bytes& request) {
  if (request.size() > FolderNotes::kLongestRequest) return "(too long)";
  const auto fields = nlohmann::json::parse(
      request.begin() + static_cast<std::ptrdiff_t>(kEnvelopeHeaderSize), request.end(), nullptr, false);
  const auto path = fields.is_object() ? fields.find("path") : fields.end();
  if (path == fields.end() || !path->is_string()) return {};
  return std::string(cut_utf8(path->get_ref<const std::string&>(), kLongestTrailText));
}

}  // namespace

void FolderNotes::note(AuditTrail& audit, const Session& session, const Bytes& request,
                       Clock::time_point now) {
  std::string path = path_in(request);
  if (folders_.size() >= kRemembered) forget_old(now);
  const auto [found, is_new] = folders_.try_emplace({session.number, path}, Folder{now, 0});
  Folder& folder = found->second;
  ++folder.requests;
  if (!is_new && now - folder.written < kInterval) return;
  audit.note(session, trail_entry<TrailKind::FolderListed>({}, std::move(path), folder.requests));
  folder = {now, 0};
}

// Rows about folders that are forgotten too early come more often, but none is left out.
void FolderNotes::forget_old(Clock::time_point now) {
  std::erase_if(folders_, [&](const auto& entry) { return now - entry.second.written >= kInterval; });
  if (folders_.size() >= kRemembered) folders_.clear();
}

}  // namespace vlk::relay
