// Counts the events, and finds clients that wait for an event that will not come.
#include "tests/doubles/h264/event_counts.h"

#include <mfapi.h>

#include <set>

#include "tests/doubles/h264/transform.h"

namespace vantelink_doubles {
namespace {

std::mutex all_lock;  // guards `all`

std::set<EventCounts*>& all() {
  static std::set<EventCounts*> counts;
  return counts;
}

}  // namespace

EventCounts::EventCounts() {
  MFCreateEventQueue(queue_.GetAddressOf());
  const std::lock_guard guard(all_lock);
  all().insert(this);
}

EventCounts::~EventCounts() {
  {
    const std::lock_guard guard(all_lock);
    all().erase(this);
  }
  ShutDown();
}

HRESULT EventCounts::Next(DWORD flags, IMFMediaEvent** event) {
  {
    const std::lock_guard guard(lock_);
    waiting_ = (flags & MF_EVENT_FLAG_NO_WAIT) == 0;
    RecordStall();
  }
  const HRESULT result = queue_->GetEvent(flags, event);
  const std::lock_guard guard(lock_);
  waiting_ = false;
  if (SUCCEEDED(result)) --unread_;
  RecordStall();
  return result;
}

void EventCounts::RequestInput() {
  const std::lock_guard guard(lock_);
  ++requests_;
  Queue(METransformNeedInput, S_OK);
}

void EventCounts::AnnounceOutput() {
  const std::lock_guard guard(lock_);
  ++outputs_;
  Queue(METransformHaveOutput, S_OK);
}

void EventCounts::ReportError(HRESULT status) {
  const std::lock_guard guard(lock_);
  Queue(MEError, status);
}

void EventCounts::Cancel() {
  const std::lock_guard guard(lock_);
  requests_ = outputs_ = 0;
}

void EventCounts::SetWorking(bool working) {
  const std::lock_guard guard(lock_);
  working_ = working;
  RecordStall();
}

bool EventCounts::Use(int& count) {
  const std::lock_guard guard(lock_);
  if (count > 0) {
    --count;
    return true;
  }
  ++codec_board().misuses;
  return false;
}

void EventCounts::Queue(MediaEventType type, HRESULT status) {
  ++unread_;
  RecordStall();
  queue_->QueueEventParamVar(type, GUID_NULL, status, nullptr);
}

void EventCounts::RecordStall() {
  codec_board().stalled = waiting_ && !working_ && unread_ == 0;
}

void shut_down_events() {
  const std::lock_guard guard(all_lock);
  for (EventCounts* const counts : all())
    counts->ShutDown();
}

}  // namespace vantelink_doubles
