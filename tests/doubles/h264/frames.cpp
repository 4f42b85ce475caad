// Pictures that go into the encoder transform and frames that come out of it.
#include <mfapi.h>
#include <mferror.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "tests/doubles/h264/encoder_transform.h"

namespace vantelink_doubles {
namespace {

constexpr auto kSilenceStep = std::chrono::milliseconds(5);

}  // namespace

HRESULT EncoderTransform::ReadSample(IMFSample* sample, Input& input) const {
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD length = 0;
  HRESULT result = sample->ConvertToContiguousBuffer(buffer.GetAddressOf());
  if (FAILED(result) || FAILED(result = buffer->Lock(&bytes, nullptr, &length))) return result;
  if (length == picture_size_) input.nv12.assign(bytes, bytes + length);
  buffer->Unlock();
  if (length != picture_size_) return E_INVALIDARG;
  sample->GetSampleTime(&input.time);
  sample->GetSampleDuration(&input.duration);
  return S_OK;
}

HRESULT EncoderTransform::ProcessInput(DWORD, IMFSample* sample, DWORD) {
  if (locked()) return MF_E_TRANSFORM_ASYNC_LOCKED;
  if (const HRESULT result = codec_board().process_input_result; result != 0) {
    // The transform requests input again, because the failed call does not use up the earlier request.
    if (async()) QueueSimpleEvent(METransformNeedInput);
    return result;
  }
  if (!engine_) return MF_E_TRANSFORM_TYPE_NOT_SET;
  Input input;
  if (const HRESULT result = ReadSample(sample, input); FAILED(result)) return result;
  ++codec_board().inputs;
  // The cell overflows after some minutes of frames, which is longer than any test runs.
  codec_board().time = static_cast<std::int32_t>(input.time);
  codec_board().duration = static_cast<std::int32_t>(input.duration);
  {
    const std::lock_guard guard(lock_);
    if (!async() && released_ && !ready_.empty()) return MF_E_NOTACCEPTING;
    input.force_key = std::exchange(force_key_, false);
    if (async()) {
      pending_.push_back(std::move(input));
      changed_.notify_all();
      return S_OK;
    }
  }
  Encode(input);
  return S_OK;
}

std::size_t EncoderTransform::Encode(const Input& input) {
  EncodedFrame frame = engine_->encode(input.nv12.data(), input.force_key);
  const std::lock_guard guard(lock_);
  ready_.push_back({std::move(frame), input.time, input.duration});
  if (released_) return 1;
  released_ = ready_.size() > static_cast<std::size_t>(codec_board().buffered_frames);
  return released_ ? ready_.size() : 0;
}

void EncoderTransform::Work() {
  std::unique_lock guard(lock_);
  for (;;) {
    changed_.wait(guard, [this] { return stopping_ || !pending_.empty(); });
    if (stopping_) return;
    const Input input = std::move(pending_.front());
    pending_.pop_front();
    guard.unlock();
    const std::size_t outputs = Encode(input);
    guard.lock();
    // The test's process cannot notify the condition variable, so this thread polls the board.
    while (codec_board().silent != 0 && !stopping_) {
      codec_board().withheld = 1;
      changed_.wait_for(guard, kSilenceStep);
    }
    codec_board().withheld = 0;
    for (std::size_t i = 0; i < outputs; ++i)
      QueueSimpleEvent(METransformHaveOutput);
    QueueSimpleEvent(METransformNeedInput);
  }
}

HRESULT EncoderTransform::ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* output, DWORD* status) {
  if (locked()) return MF_E_TRANSFORM_ASYNC_LOCKED;
  if (count != 1) return E_INVALIDARG;
  *status = 0;
  Output next;
  {
    const std::lock_guard guard(lock_);
    if (!released_ || ready_.empty()) return MF_E_TRANSFORM_NEED_MORE_INPUT;
    next = std::move(ready_.front());
    ready_.pop_front();
  }
  if (codec_board().process_output_result != 0) return codec_board().process_output_result;
  ++codec_board().outputs;
  return FillSample(next, *output);
}

HRESULT EncoderTransform::FillSample(const Output& output, MFT_OUTPUT_DATA_BUFFER& target) const {
  const auto size = static_cast<DWORD>(output.frame.bytes.size());
  if (codec_board().sample_flags != 0) {
    target.pSample = nullptr;
    if (codec_board().null_sample != 0) return S_OK;
    MFCreateSample(&target.pSample);
    if (codec_board().empty_sample != 0) return S_OK;
    ComPtr<IMFMediaBuffer> own;
    MFCreateMemoryBuffer(size, own.GetAddressOf());
    target.pSample->AddBuffer(own.Get());
  }
  if (target.pSample == nullptr) return E_INVALIDARG;
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD capacity = 0;
  HRESULT result = target.pSample->GetBufferByIndex(0, buffer.GetAddressOf());
  if (FAILED(result) || FAILED(result = buffer->Lock(&bytes, &capacity, nullptr))) return result;
  if (size <= capacity) std::memcpy(bytes, output.frame.bytes.data(), size);
  buffer->Unlock();
  if (size > capacity) return MF_E_BUFFERTOOSMALL;
  buffer->SetCurrentLength(size);
  target.pSample->SetSampleTime(output.time);
  target.pSample->SetSampleDuration(output.duration);
  if (output.frame.key) target.pSample->SetUINT32(MFSampleExtension_CleanPoint, 1);
  return S_OK;
}

}  // namespace vantelink_doubles
