// Opening and closing the H.264 encoder on a scripted Media Foundation: every call in order, every failure,
// and the state that stays from one opening to the next.
#include <mfapi.h>
#include <mferror.h>

#include "tests/windows/stream/encode/session/session_fixture.h"

namespace vlk::agent {
namespace {

using H264SessionTest = H264Fixture;

std::string Describe(IMFMediaType* type, REFGUID attribute) {
  MF_ATTRIBUTE_TYPE kind = MF_ATTRIBUTE_UINT32;
  if (FAILED(type->GetItemType(attribute, &kind))) return "missing";
  if (kind == MF_ATTRIBUTE_UINT32) return "u32 " + std::to_string(MFGetAttributeUINT32(type, attribute, 0));
  if (kind == MF_ATTRIBUTE_UINT64) return "u64 " + hex(MFGetAttributeUINT64(type, attribute, 0));
  return "another type";
}

void ExpectPictureAttributes(IMFMediaType* type, REFGUID subtype, UINT32 count, const char* rate) {
  GUID major = {}, format = {};
  type->GetGUID(MF_MT_MAJOR_TYPE, &major);
  type->GetGUID(MF_MT_SUBTYPE, &format);
  EXPECT_TRUE(major == MFMediaType_Video);
  EXPECT_TRUE(format == subtype);
  EXPECT_EQ(Describe(type, MF_MT_FRAME_SIZE), "u64 0x1400000006");
  EXPECT_EQ(Describe(type, MF_MT_FRAME_RATE), rate);
  EXPECT_EQ(Describe(type, MF_MT_PIXEL_ASPECT_RATIO), "u64 0x100000001");
  EXPECT_EQ(Describe(type, MF_MT_INTERLACE_MODE), "u32 2");
  UINT32 items = 0;
  type->GetCount(&items);
  EXPECT_EQ(items, count);
}

TEST_F(H264SessionTest, OpeningMakesOnlyTheExpectedCallsInOrder) {
  EXPECT_TRUE(Init());
  EXPECT_EQ(
      machine.calls,
      (Strings{"MFStartup 0x20070 1", "MFTEnumEx 0x44", "MFTEnumEx 0x41", "ActivateObject(software)",
               "SetOutputType 0 0", "SetInputType 0 0", "SetValue RateControlMode u32 0",
               "SetValue MeanBitRate u32 4000000", "SetValue LowLatencyMode bool -1",
               "SetValue QualityVsSpeed u32 33", "GetOutputStreamInfo", "ProcessMessage 0x0 0x0",
               "ProcessMessage 0x10000000 0x0", "ProcessMessage 0x10000003 0x0", "GetOutputCurrentType"}));
}

TEST_F(H264SessionTest, MediaTypesContainTheSettings) {
  EXPECT_TRUE(Init());
  IMFMediaType* const output = machine.output_type.Get();
  ExpectPictureAttributes(output, MFVideoFormat_H264, 8, "u64 0xf00000001");
  EXPECT_EQ(Describe(output, MF_MT_AVG_BITRATE), "u32 4000000");
  EXPECT_EQ(Describe(output, MF_MT_MPEG2_PROFILE), "u32 77");
  ExpectPictureAttributes(machine.input_type.Get(), MFVideoFormat_NV12, 6, "u64 0xf00000001");
}

TEST_F(H264SessionTest, FrameRatesBelowOneCountAsThirty) {
  for (const std::int32_t fps : {0, -1}) {
    EXPECT_TRUE(Init(fps));
    EXPECT_EQ(Describe(machine.output_type.Get(), MF_MT_FRAME_RATE), "u64 0x1e00000001");
    EXPECT_EQ(Describe(machine.input_type.Get(), MF_MT_FRAME_RATE), "u64 0x1e00000001");
    Encode();
    EXPECT_EQ(machine.inputs.back().duration, 333333);
    encoder_->Shutdown();
  }
}

TEST_F(H264SessionTest, BitRatesBelowOneCountAsSixMillion) {
  for (const std::int32_t bitrate : {0, -5}) {
    machine.calls.clear();
    EXPECT_TRUE(Init(15, bitrate));
    EXPECT_EQ(Describe(machine.output_type.Get(), MF_MT_AVG_BITRATE), "u32 6000000");
    EXPECT_EQ(machine.Count("SetValue MeanBitRate u32 6000000"), 1);
    encoder_->Shutdown();
  }
}

TEST_F(H264SessionTest, SoftwareEncoderIsUsedIfThereIsNoHardwareEncoder) {
  encoder_->hardware = true;
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(Init()); }), "encoder: H.264 software encoder ready hr=0x00000000\n");
  EXPECT_FALSE(encoder_->hardware);
  AnswerEachInput("x");
  EXPECT_EQ(Encode(), "x");
  EXPECT_EQ(machine.Count("GetEvent 0"), 0);
}

TEST_F(H264SessionTest, HardwareEncoderIsPreferredAndUnlockedForAsynchronousUse) {
  machine.hardware = true;
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(Init()); }), "encoder: H.264 hardware encoder ready hr=0x00000000\n");
  EXPECT_TRUE(encoder_->hardware);
  EXPECT_EQ(machine.Count("MFTEnumEx 0x41"), 0);
  EXPECT_EQ(MFGetAttributeUINT32(machine.encoder_attributes.Get(), MF_TRANSFORM_ASYNC_UNLOCK, 0), 1u);
}

TEST_F(H264SessionTest, SoftwareEncoderIsUsedIfTheHardwareEncoderCannotBeActivated) {
  machine.hardware = true;
  machine.failures["ActivateObject(hardware)"] = static_cast<HRESULT>(0xC00D36B2);
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(Init()); }),
            "encoder: ActivateObject failed hr=0xc00d36b2\n"
            "encoder: H.264 software encoder ready hr=0x00000000\n");
  EXPECT_FALSE(encoder_->hardware);
}

TEST_F(H264SessionTest, EachFailureToOpenTheEncoderIsLogged) {
  const char* const none = "encoder: no H.264 encoder MFT found hr=0x00000000\n";
  const struct {
    const char* call;
    HRESULT result;
    std::string log;
  } rows[] = {
      {"MFStartup", E_FAIL, "encoder: MFStartup failed hr=0x00000000\n"},
      {"MFTEnumEx", E_FAIL, none},
      {"ActivateObject(software)", E_OUTOFMEMORY,
       std::string("encoder: ActivateObject failed hr=0x8007000e\n") + none},
      {"SetOutputType", MF_E_INVALIDMEDIATYPE, "encoder: SetOutputType failed hr=0xc00d36b4\n"},
      {"SetInputType", E_INVALIDARG, "encoder: SetInputType failed hr=0x80070057\n"},
  };
  for (const auto& row : rows) {
    machine.failures = {{row.call, row.result}};
    encoder_.emplace();
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(Init()); }), row.log) << row.call;
    encoder_.reset();
    EXPECT_EQ(machine.live, 0) << row.call;
    EXPECT_EQ(machine.startups, 0) << row.call;
  }
}

TEST_F(H264SessionTest, OnlyTheDestructorReleasesAHalfOpenedEncoder) {
  machine.failures["SetInputType"] = E_FAIL;
  EXPECT_FALSE(Init());
  EXPECT_EQ(machine.live, 1);
  EXPECT_FALSE(Init());
  EXPECT_EQ(machine.live, 1) << "the second encoder replaces the first";
  EXPECT_EQ(machine.startups, 2);
  EXPECT_EQ(CallsOf([&] { encoder_.reset(); }),
            (Strings{"ProcessMessage 0x10000002 0x0", "ProcessMessage 0x10000001 0x0", "MFShutdown"}));
  EXPECT_EQ(machine.startups, 1) << "only one MFStartup has its MFShutdown, deliberately";
  MFShutdown();
}

TEST_F(H264SessionTest, FailuresThatAreNotCheckedDoNotPreventOpening) {
  for (const char* const call :
       {"SetValue", "GetOutputStreamInfo", "ProcessMessage", "GetOutputCurrentType"}) {
    machine.failures = {{call, E_FAIL}};
    EXPECT_EQ(LogOf([&] { EXPECT_TRUE(Init()); }), "encoder: H.264 software encoder ready hr=0x00000000\n");
    AnswerEachInput("x");
    EXPECT_EQ(Encode(true), "x") << call;
    encoder_->Shutdown();
  }
}

TEST_F(H264SessionTest, EncoderWithoutAttributesIsUsedSynchronously) {
  machine.hardware = true;
  machine.has_attributes = false;
  EXPECT_TRUE(Init());
  AnswerEachInput("x");
  EXPECT_EQ(Encode(), "x");
  EXPECT_EQ(machine.Count("GetEvent 0"), 0);
}

TEST_F(H264SessionTest, OddSizesAreEncodedWithinTheirBuffers) {
  for (const auto& [width, height] : {std::pair(5, 4), std::pair(4, 5), std::pair(5, 5), std::pair(1, 1)}) {
    EXPECT_TRUE(encoder_->Init(width, height, 15, 1));
    EXPECT_EQ(Describe(machine.output_type.Get(), MF_MT_FRAME_SIZE),
              "u64 " + hex(static_cast<std::uint64_t>(width) << 32 | static_cast<std::uint64_t>(height)));
    Bytes out;
    EXPECT_TRUE(encoder_->Encode(
        MakeFrame(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)), out, false));
    EXPECT_EQ(machine.inputs.back().bytes.size(), static_cast<std::size_t>(width * height * 3 / 2));
    encoder_->Shutdown();
  }
}

TEST_F(H264SessionTest, SampleTimesCountFramesAcrossSessions) {
  EXPECT_TRUE(Init(15));
  for (int i = 0; i < 3; ++i)
    Encode();
  encoder_->Shutdown();
  EXPECT_TRUE(Init(30));
  Encode();
  const LONGLONG expected[][2] = {{0, 666666}, {666666, 666666}, {1333332, 666666}, {999999, 333333}};
  ASSERT_EQ(machine.inputs.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(machine.inputs[i].time, expected[i][0]) << i;
    EXPECT_EQ(machine.inputs[i].duration, expected[i][1]) << i;
  }
}

TEST_F(H264SessionTest, ParameterSetsOfAnEarlierSessionAreUsedIfTheNewSessionHasNone) {
  machine.on_input = [](Machine& m) { m.outputs = {key("K")}; };
  EXPECT_TRUE(Init());
  encoder_->Shutdown();
  machine.header.clear();
  EXPECT_TRUE(Init());
  EXPECT_EQ(Encode(), "<sets>K");
  encoder_->Shutdown();
  machine.header = "<new>";
  EXPECT_TRUE(Init());
  EXPECT_EQ(Encode(), "<new>K");
}

// Deliberate: the encoder stays in asynchronous mode, so a later synchronous session waits for events that
// never come.
TEST_F(H264SessionTest, AsynchronousModeIsKeptInLaterSessions) {
  OpenAsync();
  encoder_->Shutdown();
  machine.hardware = false;
  EXPECT_TRUE(Init());
  EXPECT_FALSE(encoder_->hardware);
  EXPECT_TRUE(EncodeFails());
  encoder_.emplace();
  EXPECT_TRUE(Init());
  EXPECT_EQ(Encode(), "x") << "a new object starts in synchronous mode";
}

TEST_F(H264SessionTest, NothingIsEncodedWhileClosedOrWithoutPixels) {
  EXPECT_TRUE(EncodeFails());
  EXPECT_TRUE(Init());
  Bytes out;
  EXPECT_FALSE(encoder_->Encode(CapturedFrame(), out, true));
  encoder_->Shutdown();
  EXPECT_TRUE(EncodeFails());
  EXPECT_EQ(machine.Count("ProcessInput 0 0"), 0);
}

TEST_F(H264SessionTest, ShutdownMakesTheExpectedCallsOnce) {
  EXPECT_TRUE(Init());
  machine.outputs = {plain("lost")};
  EXPECT_EQ(CallsOf([&] { encoder_->Shutdown(); }),
            (Strings{"ProcessMessage 0x10000002 0x0", "ProcessMessage 0x10000001 0x0", "MFShutdown"}));
  EXPECT_EQ(machine.live, 0);
  EXPECT_TRUE(CallsOf([&] { encoder_->Shutdown(); }).empty());
  EXPECT_TRUE(CallsOf([&] { encoder_.reset(); }).empty());
}

TEST_F(H264SessionTest, NothingStaysOpenWhicheverCallFails) {
  for (const bool async : {false, true}) {
    const int runs = vantelink_test::fail_each_call([&](vantelink_test::FailNth& failure) {
      machine = Machine();
      machine.hardware = async;
      machine.nth_failure = &failure;
      encoder_.emplace();
      for (int session = 0; session < 2; ++session) {
        if (!Init()) continue;
        machine.events.push_back(METransformNeedInput);
        AnswerEachInput("x");
        Bytes out;
        for (int i = 0; i < 2; ++i)
          encoder_->Encode(frame_, out, true);
        encoder_->Shutdown();
      }
      encoder_.reset();
      EXPECT_EQ(machine.live, 0);
      while (machine.startups > 0)
        MFShutdown();
      machine.nth_failure = nullptr;
    });
    EXPECT_GT(runs, 35);
  }
}

}  // namespace
}  // namespace vlk::agent
