// The double's own rules: it refuses the calls that the documentation of asynchronous transforms forbids, and
// a client that keeps to the documentation gets every picture, whatever the mode.
#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <mftransform.h>
#include <wrl/client.h>

#include "stream/encode/h264_sample_win32.h"
#include "stream/encode/h264_transform_win32.h"
#include "tests/windows/stream/encode/transforms/transforms_fixture.h"

namespace vlk::agent {
namespace {

constexpr UINT32 kHardware = MFT_ENUM_FLAG_HARDWARE | MFT_ENUM_FLAG_SORTANDFILTER;
constexpr ULONGLONG kPatience = 10000;  // milliseconds
constexpr H264Format kFormat = {kWidth, kHeight, 30, 1000000};

// A client of one asynchronous transform.
class TransformRulesTest : public H264TransformsTest {
 protected:
  void SetUp() override {
    H264TransformsTest::SetUp();
    ASSERT_EQ(MFStartup(MF_VERSION, MFSTARTUP_LITE), S_OK);
    ASSERT_TRUE(ActivateEncoder(kHardware, transform_));
  }
  void TearDown() override {
    events_.Reset();
    transform_.Reset();
    MFShutdown();
    board_.misuses = 0;  // these tests misuse the transform deliberately
    H264TransformsTest::TearDown();
  }

  void Unlock() {
    ComPtr<IMFAttributes> attributes;
    ASSERT_EQ(transform_->GetAttributes(attributes.GetAddressOf()), S_OK);
    attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1);
  }
  void Open() {
    Unlock();
    ASSERT_EQ(transform_.As(&events_), S_OK);
    ASSERT_EQ(transform_->SetOutputType(0, MakeOutputType(kFormat).Get(), 0), S_OK);
    ASSERT_EQ(transform_->SetInputType(0, MakeInputType(kFormat).Get(), 0), S_OK);
    ASSERT_EQ(Message(MFT_MESSAGE_NOTIFY_START_OF_STREAM), S_OK);
  }
  HRESULT Message(MFT_MESSAGE_TYPE message) { return transform_->ProcessMessage(message, 0); }
  HRESULT Input() {
    const Bytes grey(Nv12Size(kWidth, kHeight), 0x80);
    const ComPtr<IMFSample> sample =
        MakeFilledSample(grey.data(), static_cast<DWORD>(grey.size()), 0, 333333);
    return transform_->ProcessInput(0, sample.Get(), 0);
  }
  HRESULT Output() {
    const ComPtr<IMFSample> sample = MakeEmptySample(kWidth * kHeight);
    MFT_OUTPUT_DATA_BUFFER buffer = {};
    buffer.pSample = sample.Get();
    DWORD status = 0;
    const HRESULT result = transform_->ProcessOutput(0, 1, &buffer, &status);
    buffer_status_ = buffer.dwStatus;
    return result;
  }
  // The type of the next event; MEUnknown if none comes within the time limit.
  MediaEventType Next() {
    ComPtr<IMFMediaEvent> event;
    MediaEventType type = MEUnknown;
    const ULONGLONG deadline = GetTickCount64() + kPatience;
    while (events_->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.ReleaseAndGetAddressOf()) ==
               MF_E_NO_EVENTS_AVAILABLE &&
           GetTickCount64() < deadline)
      Sleep(1);
    if (event) event->GetType(&type);
    return type;
  }
  bool Silent() {
    ComPtr<IMFMediaEvent> event;
    return events_->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.GetAddressOf()) == MF_E_NO_EVENTS_AVAILABLE;
  }

  ComPtr<IMFTransform> transform_;
  ComPtr<IMFMediaEventGenerator> events_;
  DWORD buffer_status_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Hardware, TransformRulesTest, testing::Values(Transform::Async),
                         [](const auto&) { return "Async"; });

TEST_P(TransformRulesTest, EveryCallIsRefusedBeforeTheUnlocking) {
  EXPECT_EQ(transform_->SetOutputType(0, MakeOutputType(kFormat).Get(), 0), MF_E_TRANSFORM_ASYNC_LOCKED);
  EXPECT_EQ(transform_->SetInputType(0, MakeInputType(kFormat).Get(), 0), MF_E_TRANSFORM_ASYNC_LOCKED);
  EXPECT_EQ(Message(MFT_MESSAGE_NOTIFY_START_OF_STREAM), MF_E_TRANSFORM_ASYNC_LOCKED);
  EXPECT_EQ(Input(), MF_E_TRANSFORM_ASYNC_LOCKED);
  EXPECT_EQ(Output(), MF_E_TRANSFORM_ASYNC_LOCKED);
}

TEST_P(TransformRulesTest, InputNeedsARequest) {
  Open();
  EXPECT_EQ(Next(), METransformNeedInput);
  board_.silent = 1;  // the next request follows the withheld output
  EXPECT_EQ(Input(), S_OK);
  EXPECT_EQ(board_.misuses, 0);
  EXPECT_EQ(Input(), MF_E_NOTACCEPTING);
  EXPECT_EQ(board_.misuses, 1);
  board_.silent = 0;
  EXPECT_EQ(Next(), METransformHaveOutput);
  EXPECT_EQ(Next(), METransformNeedInput);
  EXPECT_EQ(Input(), S_OK);
  EXPECT_EQ(board_.inputs, 2);
}

TEST_P(TransformRulesTest, NothingIsRequestedAfterTheEndOfTheStream) {
  Open();
  EXPECT_EQ(Next(), METransformNeedInput);
  board_.silent = 1;
  EXPECT_EQ(Input(), S_OK);
  EXPECT_EQ(Message(MFT_MESSAGE_NOTIFY_END_OF_STREAM), S_OK);
  board_.silent = 0;
  EXPECT_EQ(Next(), METransformHaveOutput);
  EXPECT_EQ(Message(MFT_MESSAGE_NOTIFY_END_STREAMING), S_OK);  // waits until all events are sent
  EXPECT_TRUE(Silent());
}

TEST_P(TransformRulesTest, OutputNeedsAnEvent) {
  Open();
  EXPECT_EQ(Output(), E_UNEXPECTED);
  EXPECT_EQ(Input(), S_OK);
  EXPECT_EQ(Next(), METransformNeedInput);
  EXPECT_EQ(Next(), METransformHaveOutput);
  EXPECT_EQ(Output(), S_OK);
  EXPECT_EQ(Output(), E_UNEXPECTED);
  EXPECT_EQ(board_.misuses, 2);
}

TEST_P(TransformRulesTest, RefusedInputUsesUpItsRequest) {
  Open();
  EXPECT_EQ(Next(), METransformNeedInput);
  board_.process_input_result = E_FAIL;
  EXPECT_EQ(Input(), E_FAIL);
  board_.process_input_result = 0;
  EXPECT_TRUE(Silent());
  EXPECT_EQ(Input(), MF_E_NOTACCEPTING);
}

TEST_P(TransformRulesTest, FlushCancelsRequestsUntilTheStreamStartsAgain) {
  Open();
  EXPECT_EQ(Next(), METransformNeedInput);
  EXPECT_EQ(Message(MFT_MESSAGE_COMMAND_FLUSH), S_OK);
  EXPECT_EQ(Input(), MF_E_NOTACCEPTING);
  EXPECT_TRUE(Silent());
  EXPECT_EQ(Message(MFT_MESSAGE_NOTIFY_START_OF_STREAM), S_OK);
  EXPECT_EQ(Next(), METransformNeedInput);
  EXPECT_EQ(Input(), S_OK);
}

TEST_P(TransformRulesTest, StreamChangeEndsWhenTheOutputTypeIsSet) {
  board_.stream_change = 1;
  Open();
  EXPECT_EQ(Next(), METransformNeedInput);
  EXPECT_EQ(Input(), S_OK);
  EXPECT_EQ(Next(), METransformHaveOutput);
  EXPECT_EQ(Output(), MF_E_TRANSFORM_STREAM_CHANGE);
  EXPECT_EQ(buffer_status_, DWORD{MFT_OUTPUT_DATA_BUFFER_FORMAT_CHANGE});
  ComPtr<IMFMediaType> type;
  ASSERT_EQ(transform_->GetOutputAvailableType(0, 0, type.GetAddressOf()), S_OK);
  EXPECT_EQ(transform_->SetOutputType(0, type.Get(), 0), S_OK);
  EXPECT_EQ(Next(), METransformHaveOutput);
  EXPECT_EQ(Output(), S_OK);
  EXPECT_EQ(Next(), METransformNeedInput);
}

TEST_P(TransformRulesTest, EncoderThatNeedsTwoFramesWorksForAClientThatAnswersEachRequest) {
  board_.first_requests = 2;
  board_.lagging_frames = 1;
  board_.asks_at_once = 1;
  Open();
  int outputs = 0;
  for (int inputs = 0; outputs < 5;) {
    const MediaEventType type = Next();
    ASSERT_NE(type, MEUnknown);
    if (type == METransformNeedInput && inputs < 6) {
      ++inputs;
      ASSERT_EQ(Input(), S_OK);
    } else if (type == METransformHaveOutput) {
      ++outputs;
      ASSERT_EQ(Output(), S_OK);
    }
  }
  EXPECT_EQ(board_.misuses, 0);
}

TEST_P(TransformRulesTest, ShutdownEndsWaitsAndAllFurtherCalls) {
  Open();
  EXPECT_EQ(Next(), METransformNeedInput);
  ComPtr<IMFShutdown> end;
  ASSERT_EQ(transform_.As(&end), S_OK);
  MFSHUTDOWN_STATUS status = MFSHUTDOWN_INITIATED;
  EXPECT_EQ(end->GetShutdownStatus(&status), MF_E_INVALIDREQUEST);
  EXPECT_EQ(end->Shutdown(), S_OK);
  EXPECT_EQ(end->GetShutdownStatus(&status), S_OK);
  EXPECT_EQ(status, MFSHUTDOWN_COMPLETED);
  EXPECT_EQ(board_.shutdowns, 1);
  EXPECT_EQ(board_.open_sessions, 0);
  ComPtr<IMFMediaEvent> event;
  EXPECT_EQ(events_->GetEvent(0, event.GetAddressOf()), MF_E_SHUTDOWN);
  EXPECT_EQ(Input(), MF_E_SHUTDOWN);
}

}  // namespace
}  // namespace vlk::agent
