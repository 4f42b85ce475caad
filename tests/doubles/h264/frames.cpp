// Pictures that go into the encoder transform and frames that come out of it.
#include <mfapi.h>
#include <mferror.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "tests/doubles/h264/byte_stream.h"
#include "tests/doubles/h264/encoder_transform.h"

namespace vantelink_doubles {
namespace {

constexpr auto kSilenceStep = std::chrono::milliseconds(5);

}  // namespace

HRESULT EncoderTransform::ReadSample(IMFSample* sample, Input& input) const {
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD length = 0;
  if (sample == nullptr) return E_POINTER;
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
  if (const HRESULT refusal = Refusal(); FAILED(refusal)) return refusal;
  // The call uses up a request even if the input is refused.
  if (async() && !events_->UseRequest()) return MF_E_NOTACCEPTING;
  if (const HRESULT result = codec_board().process_input_result; result != 0) return result;
  if (!engine_) return MF_E_TRANSFORM_TYPE_NOT_SET;
  Input input;
  if (const HRESULT result = ReadSample(sample, input); FAILED(result)) return result;
  return Accept(input);
}

HRESULT EncoderTransform::Accept(Input& input) {
  CodecBoard& board = codec_board();
  const std::lock_guard guard(lock_);
  if (!async() && !ready_.empty()) return MF_E_NOTACCEPTING;
  ++board.inputs;
  // The cell overflows after some minutes of frames, which is longer than any test runs.
  board.time = static_cast<std::int32_t>(input.time);
  board.duration = static_cast<std::int32_t>(input.duration);
  input.number = ++inputs_;
  input.flushes = flushes_;
  input.force_key = std::exchange(force_key_, false);
  if (!async()) {
    Keep(engine_->encode(input.nv12.data(), input.force_key), input);
    return S_OK;
  }
  events_->SetWorking(true);
  pending_.push_back(std::move(input));
  changed_.notify_all();
  if (board.asks_at_once != 0) events_->RequestInput();
  return S_OK;
}

std::size_t EncoderTransform::Keep(EncodedFrame frame, const Input& input) {
  const CodecBoard& board = codec_board();
  add_delimiters(frame.bytes);
  held_.push_back({std::move(frame), input.time, input.duration});
  const auto buffered = static_cast<std::size_t>(board.buffered_frames);
  if (!released_ && held_.size() <= buffered) return 0;
  released_ = true;
  std::size_t outputs = 0;
  for (; held_.size() > static_cast<std::size_t>(board.lagging_frames); ++outputs) {
    ready_.push_back(std::move(held_.front()));
    held_.pop_front();
  }
  return outputs;
}

void EncoderTransform::Work() {
  std::unique_lock guard(lock_);
  for (;;) {
    changed_.wait(guard, [this] { return stopping_ || !pending_.empty(); });
    if (stopping_) return;
    const Input input = std::move(pending_.front());
    pending_.pop_front();
    guard.unlock();
    EncodedFrame frame = engine_->encode(input.nv12.data(), input.force_key);
    guard.lock();
    // The test's process cannot notify the condition variable, so this thread polls the board.
    while (codec_board().silent != 0 && !stopping_) {
      codec_board().withheld = 1;
      changed_.wait_for(guard, kSilenceStep);
    }
    codec_board().withheld = 0;
    if (input.flushes == flushes_) Report(input, std::move(frame));
    events_->SetWorking(!pending_.empty());
  }
}

void EncoderTransform::Report(const Input& input, EncodedFrame frame) {
  const CodecBoard& board = codec_board();
  if (input.number == board.failing_input) {
    streaming_ = false;
    events_->ReportError(E_FAIL);
    return;
  }
  for (std::size_t outputs = Keep(std::move(frame), input); outputs > 0; --outputs)
    events_->AnnounceOutput();
  if (streaming_ && board.asks_at_once == 0 && !needs_new_type()) events_->RequestInput();
}

HRESULT EncoderTransform::ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* output, DWORD* status) {
  if (const HRESULT refusal = Refusal(); FAILED(refusal)) return refusal;
  if (count != 1) return E_INVALIDARG;
  if (async() && !events_->UseOutput()) return E_UNEXPECTED;
  *status = 0;
  Output next;
  {
    const std::lock_guard guard(lock_);
    if (ready_.empty()) return MF_E_TRANSFORM_NEED_MORE_INPUT;
    if (needs_new_type()) {
      type_requested_ = true;
      output->dwStatus = MFT_OUTPUT_DATA_BUFFER_FORMAT_CHANGE;
      return MF_E_TRANSFORM_STREAM_CHANGE;
    }
    next = std::move(ready_.front());
    ready_.pop_front();
  }
  if (codec_board().process_output_result != 0) return codec_board().process_output_result;
  if (codec_board().late_header != 0) PutHeaderIntoType();
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
