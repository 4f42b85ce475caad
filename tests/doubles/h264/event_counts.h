// The events of an asynchronous transform and the calls that they allow: each METransformNeedInput allows one
// ProcessInput, each METransformHaveOutput one ProcessOutput.
#pragma once

#include <windows.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <cstdint>
#include <mutex>

namespace vantelink_doubles {

class EventCounts {
 public:
  EventCounts();
  ~EventCounts();
  EventCounts(const EventCounts&) = delete;
  EventCounts& operator=(const EventCounts&) = delete;

  // Returns the next event. Waits for it unless the flags contain MF_EVENT_FLAG_NO_WAIT.
  HRESULT Next(DWORD flags, IMFMediaEvent** event);
  // The queue, for the other ways of reading events. `stalled` is not recorded for clients that use them.
  IMFMediaEventQueue& queue() { return *queue_.Get(); }

  void RequestInput();
  void AnnounceOutput();
  void ReportError(HRESULT status);

  // Use up one request or one announced output. False, and recorded as a misuse, if there is none.
  [[nodiscard]] bool UseRequest() { return Use(requests_); }
  [[nodiscard]] bool UseOutput() { return Use(outputs_); }
  // Cancels all requests and announced outputs. The events themselves stay in the queue.
  void Cancel();

  // Whether the transform has something to do before the client's next call.
  void SetWorking(bool working);
  // Ends all waits for events, now and later, with MF_E_SHUTDOWN.
  void ShutDown() { queue_->Shutdown(); }

 private:
  bool Use(int& count);
  void Queue(MediaEventType type, HRESULT status);  // `lock_` is held
  void RecordStall();                               // `lock_` is held

  Microsoft::WRL::ComPtr<IMFMediaEventQueue> queue_;
  std::mutex lock_;  // guards all members below
  int requests_ = 0, outputs_ = 0;
  std::int64_t unread_ = 0;  // events in the queue
  bool waiting_ = false;     // a client waits in Next
  bool working_ = false;
};

// Ends the waits for events of all asynchronous transforms in this process.
void shut_down_events();

}  // namespace vantelink_doubles
