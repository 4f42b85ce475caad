// The encoder transform. It encodes with a real encoder and has the failures and oddities set on the board.
#pragma once

#include <windows.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "tests/doubles/h264/engine.h"
#include "tests/doubles/h264/event_counts.h"
#include "tests/doubles/h264/session_slot.h"
#include "tests/doubles/h264/transform.h"
#include "tests/doubles/h264/unsupported.h"

namespace vantelink_doubles {

using Microsoft::WRL::ComPtr;

struct Input {
  Bytes nv12;
  int number = 0;   // counts the inputs of the transform, from 1
  int flushes = 0;  // number of flushes before the input
  bool force_key = false;
  LONGLONG time = 0, duration = 0;
};

struct Output {
  EncodedFrame frame;
  LONGLONG time = 0, duration = 0;
};

class EncoderTransform final : public UnsupportedTransform,
                               public UnsupportedCodecApi,
                               public IMFMediaEventGenerator,
                               public IMFShutdown {
 public:
  // `slot` is null if the transform takes its session of the card later.
  EncoderTransform(Transform kind, std::unique_ptr<SessionSlot> slot);

  // IUnknown
  STDMETHODIMP QueryInterface(REFIID iid, void** result) override;
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
  STDMETHODIMP_(ULONG) Release() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

  // IMFTransform
  STDMETHODIMP GetAttributes(IMFAttributes** attributes) override { return attributes_.CopyTo(attributes); }
  STDMETHODIMP GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) override;
  STDMETHODIMP SetOutputType(DWORD, IMFMediaType* type, DWORD) override;
  STDMETHODIMP SetInputType(DWORD, IMFMediaType* type, DWORD) override;
  STDMETHODIMP GetOutputAvailableType(DWORD stream, DWORD index, IMFMediaType** type) override;
  STDMETHODIMP GetOutputCurrentType(DWORD, IMFMediaType** type) override;
  STDMETHODIMP ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR) override;
  STDMETHODIMP ProcessInput(DWORD, IMFSample* sample, DWORD) override;
  STDMETHODIMP ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* output, DWORD* status) override;

  // ICodecAPI
  STDMETHODIMP SetValue(const GUID* key, VARIANT* value) override;

  // IMFMediaEventGenerator
  STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override { return events_->Next(flags, event); }
  STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override {
    return events_->queue().BeginGetEvent(callback, state);
  }
  STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override {
    return events_->queue().EndGetEvent(result, event);
  }
  STDMETHODIMP QueueEvent(MediaEventType type, REFGUID extended, HRESULT status,
                          const PROPVARIANT* value) override {
    return events_->queue().QueueEventParamVar(type, extended, status, value);
  }

  // IMFShutdown
  STDMETHODIMP Shutdown() override;
  STDMETHODIMP GetShutdownStatus(MFSHUTDOWN_STATUS* status) override;

 private:
  ~EncoderTransform() override;

  bool async() const { return kind_ == Transform::Async; }
  // The failure of all calls to a transform that is shut down, or asynchronous and not unlocked.
  HRESULT Refusal() const;
  // Opens the encoder for the type, whose size and rate are on the board.
  HRESULT OpenEncoder(IMFMediaType& type);
  void PutHeaderIntoType();
  // Continues with the output type that the client sets after a stream change. False if there was no change.
  bool ContinueWithNewType();
  // Starts the requests for input.
  void StartOfStream();
  // Copies the caller's sample into `input`.
  HRESULT ReadSample(IMFSample* sample, Input& input) const;
  // Accepts the input, or refuses it while outputs wait.
  HRESULT Accept(Input& input);
  // Keeps the encoded frame. Returns the number of outputs that became ready. `lock_` is held.
  std::size_t Keep(EncodedFrame frame, const Input& input);
  // Encodes the pending inputs on the asynchronous transform's own thread.
  void Work();
  // Sends the events that follow an encoded input. `lock_` is held.
  void Report(const Input& input, EncodedFrame frame);
  // Whether no output is returned before the client sets the output type again. `lock_` is held.
  bool needs_new_type() const { return codec_board().stream_change != 0 && !type_renewed_; }
  // Puts the output into the caller's sample, or into a new sample if the transform provides samples.
  HRESULT FillSample(const Output& output, MFT_OUTPUT_DATA_BUFFER& target) const;

  const Transform kind_;
  LONG references_ = 1;
  bool shut_down_ = false;
  std::unique_ptr<SessionSlot> slot_;
  ComPtr<IMFAttributes> attributes_;
  ComPtr<IMFMediaType> output_type_;
  std::unique_ptr<EventCounts> events_;  // null for a synchronous transform
  std::unique_ptr<Engine> engine_;       // used by a single thread after the types are set
  std::size_t picture_size_ = 0;         // bytes

  std::mutex lock_;  // guards all members below
  std::condition_variable changed_;
  bool stopping_ = false;
  bool streaming_ = false;  // inputs are requested: from the stream's start to its end or a flush
  bool force_key_ = false;
  bool type_requested_ = false;  // the client was told of the stream change
  bool type_renewed_ = false;    // the client has set the output type after it
  bool released_ = false;        // the frames buffered at the start have been released
  int inputs_ = 0, flushes_ = 0;
  std::deque<Input> pending_;
  std::deque<Output> held_;   // encoded and not yet ready
  std::deque<Output> ready_;  // waiting for ProcessOutput
  std::thread thread_;
};

}  // namespace vantelink_doubles
