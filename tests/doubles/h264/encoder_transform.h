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
#include "tests/doubles/h264/transform.h"
#include "tests/doubles/h264/unsupported.h"

namespace vantelink_doubles {

using Microsoft::WRL::ComPtr;

struct Input {
  Bytes nv12;
  bool force_key = false;
  LONGLONG time = 0, duration = 0;
};

struct Output {
  EncodedFrame frame;
  LONGLONG time = 0, duration = 0;
};

class EncoderTransform final : public UnsupportedTransform,
                               public UnsupportedCodecApi,
                               public IMFMediaEventGenerator {
 public:
  explicit EncoderTransform(Transform kind);

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
  STDMETHODIMP GetOutputCurrentType(DWORD, IMFMediaType** type) override;
  STDMETHODIMP ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR) override;
  STDMETHODIMP ProcessInput(DWORD, IMFSample* sample, DWORD) override;
  STDMETHODIMP ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* output, DWORD* status) override;

  // ICodecAPI
  STDMETHODIMP SetValue(const GUID* key, VARIANT* value) override;

  // IMFMediaEventGenerator
  STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override {
    return events_->GetEvent(flags, event);
  }
  STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override {
    return events_->BeginGetEvent(callback, state);
  }
  STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override {
    return events_->EndGetEvent(result, event);
  }
  STDMETHODIMP QueueEvent(MediaEventType type, REFGUID extended, HRESULT status,
                          const PROPVARIANT* value) override {
    return events_->QueueEventParamVar(type, extended, status, value);
  }

 private:
  ~EncoderTransform() override;

  bool async() const { return kind_ == Transform::Async; }
  bool locked() const;
  // Copies the caller's sample into `input`.
  HRESULT ReadSample(IMFSample* sample, Input& input) const;
  // Encodes one picture. Returns the number of outputs that became ready.
  std::size_t Encode(const Input& input);
  // Encodes the pending inputs on the asynchronous transform's own thread.
  void Work();
  void QueueSimpleEvent(MediaEventType type) { events_->QueueEventParamVar(type, GUID_NULL, S_OK, nullptr); }
  // Puts the output into the caller's sample, or into a new sample if the transform provides samples.
  HRESULT FillSample(const Output& output, MFT_OUTPUT_DATA_BUFFER& target) const;

  const Transform kind_;
  LONG references_ = 1;
  ComPtr<IMFAttributes> attributes_;
  ComPtr<IMFMediaType> output_type_;
  ComPtr<IMFMediaEventQueue> events_;
  std::unique_ptr<Engine> engine_;  // used by a single thread after the types are set
  std::size_t picture_size_ = 0;    // bytes

  std::mutex lock_;  // guards all members below
  std::condition_variable changed_;
  bool stopping_ = false;
  bool force_key_ = false;
  bool released_ = false;  // the frames buffered at the start have been released
  std::deque<Input> pending_;
  std::deque<Output> ready_;
  std::thread thread_;
};

}  // namespace vantelink_doubles
