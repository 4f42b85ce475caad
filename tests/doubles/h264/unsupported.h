// The methods of a transform that the agent does not call. Each returns E_NOTIMPL.
#pragma once

#include <mftransform.h>
#include <strmif.h>

namespace vantelink_doubles {

class UnsupportedTransform : public IMFTransform {
 public:
  virtual ~UnsupportedTransform() = default;

  STDMETHODIMP GetStreamLimits(DWORD*, DWORD*, DWORD*, DWORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetStreamCount(DWORD*, DWORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetStreamIDs(DWORD, DWORD*, DWORD, DWORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetInputStreamInfo(DWORD, MFT_INPUT_STREAM_INFO*) override { return E_NOTIMPL; }
  STDMETHODIMP GetInputStreamAttributes(DWORD, IMFAttributes**) override { return E_NOTIMPL; }
  STDMETHODIMP GetOutputStreamAttributes(DWORD, IMFAttributes**) override { return E_NOTIMPL; }
  STDMETHODIMP DeleteInputStream(DWORD) override { return E_NOTIMPL; }
  STDMETHODIMP AddInputStreams(DWORD, DWORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetInputAvailableType(DWORD, DWORD, IMFMediaType**) override { return E_NOTIMPL; }
  STDMETHODIMP GetOutputAvailableType(DWORD, DWORD, IMFMediaType**) override { return E_NOTIMPL; }
  STDMETHODIMP GetInputCurrentType(DWORD, IMFMediaType**) override { return E_NOTIMPL; }
  STDMETHODIMP GetInputStatus(DWORD, DWORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetOutputStatus(DWORD*) override { return E_NOTIMPL; }
  STDMETHODIMP SetOutputBounds(LONGLONG, LONGLONG) override { return E_NOTIMPL; }
  STDMETHODIMP ProcessEvent(DWORD, IMFMediaEvent*) override { return E_NOTIMPL; }
};

class UnsupportedCodecApi : public ICodecAPI {
 public:
  virtual ~UnsupportedCodecApi() = default;

  STDMETHODIMP IsSupported(const GUID*) override { return E_NOTIMPL; }
  STDMETHODIMP IsModifiable(const GUID*) override { return E_NOTIMPL; }
  STDMETHODIMP GetParameterRange(const GUID*, VARIANT*, VARIANT*, VARIANT*) override { return E_NOTIMPL; }
  STDMETHODIMP GetParameterValues(const GUID*, VARIANT**, ULONG*) override { return E_NOTIMPL; }
  STDMETHODIMP GetDefaultValue(const GUID*, VARIANT*) override { return E_NOTIMPL; }
  STDMETHODIMP GetValue(const GUID*, VARIANT*) override { return E_NOTIMPL; }
  STDMETHODIMP RegisterForEvent(const GUID*, LONG_PTR) override { return E_NOTIMPL; }
  STDMETHODIMP UnregisterForEvent(const GUID*) override { return E_NOTIMPL; }
  STDMETHODIMP SetAllDefaults() override { return E_NOTIMPL; }
  STDMETHODIMP SetValueWithNotify(const GUID*, VARIANT*, GUID**, ULONG*) override { return E_NOTIMPL; }
  STDMETHODIMP SetAllDefaultsWithNotify(GUID**, ULONG*) override { return E_NOTIMPL; }
  STDMETHODIMP GetAllSettings(IStream*) override { return E_NOTIMPL; }
  STDMETHODIMP SetAllSettings(IStream*) override { return E_NOTIMPL; }
  STDMETHODIMP SetAllSettingsWithNotify(IStream*, GUID**, ULONG*) override { return E_NOTIMPL; }
};

}  // namespace vantelink_doubles
