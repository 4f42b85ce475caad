// The encoder of the scripted Media Foundation.
#pragma once

#include <windows.h>

#include "tests/doubles/h264/unsupported.h"
#include "tests/windows/stream/encode/session/media_foundation_seam.h"

namespace vlk::test::mf {

class Encoder final : public vantelink_doubles::UnsupportedTransform,
                      public vantelink_doubles::UnsupportedCodecApi,
                      public IMFMediaEventGenerator {
 public:
  explicit Encoder(bool async);

  // IUnknown
  STDMETHODIMP QueryInterface(REFIID iid, void** result) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
  STDMETHODIMP_(ULONG) Release() override;

  // IMFTransform
  STDMETHODIMP GetAttributes(IMFAttributes** attributes) override;
  STDMETHODIMP SetOutputType(DWORD stream, IMFMediaType* type, DWORD flags) override;
  STDMETHODIMP SetInputType(DWORD stream, IMFMediaType* type, DWORD flags) override;
  STDMETHODIMP GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) override;
  STDMETHODIMP ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR parameter) override;
  STDMETHODIMP GetOutputCurrentType(DWORD, IMFMediaType** type) override;
  STDMETHODIMP ProcessInput(DWORD stream, IMFSample* sample, DWORD flags) override;
  STDMETHODIMP ProcessOutput(DWORD flags, DWORD count, MFT_OUTPUT_DATA_BUFFER* buffer,
                             DWORD* status) override;

  // ICodecAPI
  STDMETHODIMP SetValue(const GUID* key, VARIANT* value) override;

  // IMFMediaEventGenerator
  STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override;
  STDMETHODIMP BeginGetEvent(IMFAsyncCallback*, IUnknown*) override { return E_NOTIMPL; }
  STDMETHODIMP EndGetEvent(IMFAsyncResult*, IMFMediaEvent**) override { return E_NOTIMPL; }
  STDMETHODIMP QueueEvent(MediaEventType, REFGUID, HRESULT, const PROPVARIANT*) override { return E_NOTIMPL; }

 private:
  ~Encoder() override;

  const bool async_;
  ULONG references_ = 1;
  ComPtr<IMFAttributes> attributes_;
};

}  // namespace vlk::test::mf
