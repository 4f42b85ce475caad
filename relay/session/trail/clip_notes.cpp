// Counts clipboards and writes their rows.
#include "relay/session/trail/clip_notes.h"

#include <optional>
#include <string_view>

namespace vlk::relay {

void ClipNotes::note(const Session& session, const char* direction, const ClipNote& clip,
                     Clock::time_point now) {
  Count& count = sessions_[session.number];
  if (now - count.since >= kInterval) {
    write_more(session, count);
    count = {.since = now};
  }
  if (count.rows == kRows) {
    ++count.more;
    count.more_bytes += clip.bytes;
    return;
  }
  ++count.rows;
  const bool files = std::string_view(clip.kind) == "files";
  audit_.note(session, trail_entry<TrailKind::ClipSent>({}, direction, clip.kind, clip.bytes,
                                                        files ? std::optional(clip.files) : std::nullopt,
                                                        files ? std::optional(clip.names) : std::nullopt));
}

void ClipNotes::end(const Session& session) {
  const auto found = sessions_.find(session.number);
  if (found == sessions_.end()) return;
  write_more(session, found->second);
  sessions_.erase(found);
}

void ClipNotes::write_more(const Session& session, Count& count) {
  if (count.more == 0) return;
  audit_.note(session, trail_entry<TrailKind::ClipsCounted>({}, count.more, count.more_bytes));
}

}  // namespace vlk::relay
