// Frames through an open H.264 encoder on a scripted Media Foundation, synchronous and asynchronous.
#include <mferror.h>

#include "stream/encode/colour.h"
#include "tests/windows/stream/encode/session/session_fixture.h"

namespace vlk::agent {
namespace {

using H264EncoderTest = H264Fixture;

TEST_F(H264EncoderTest, EncoderReceivesTheConvertedFrame) {
  EXPECT_TRUE(Init());
  Encode();
  ASSERT_EQ(machine.inputs.size(), 1u);
  std::string expected(kNv12Size, '\0');
  auto* const planes = reinterpret_cast<std::uint8_t*>(expected.data());
  Bytes converted(kNv12Size + 1);
  ConvertBgraToNv12Plainly(frame_.pixels.data(), kWidth, kHeight, frame_.stride, converted.data(),
                           converted.data() + kWidth * kHeight);
  std::copy(converted.begin(), converted.end() - 1, planes);
  EXPECT_EQ(machine.inputs[0].bytes, expected);
}

TEST_F(H264EncoderTest, SampleTimeAdvancesEvenIfAFrameIsRefused) {
  EXPECT_TRUE(Init(15));
  machine.failures["ProcessInput"] = E_FAIL;
  EXPECT_TRUE(EncodeFails());
  machine.failures.clear();
  Encode();
  EXPECT_EQ(machine.inputs.at(0).time, 666666);
}

TEST_F(H264EncoderTest, KeyFrameIsForcedOnlyOnRequest) {
  EXPECT_TRUE(Init());
  EXPECT_EQ(CallsOf([&] { Encode(true); }), (Strings{"SetValue ForceKeyFrame u32 1", "ProcessInput 0 0",
                                                     "GetOutputStreamInfo", "ProcessOutput 0 1 0"}));
  EXPECT_EQ(CallsOf([&] { Encode(false); }),
            (Strings{"ProcessInput 0 0", "GetOutputStreamInfo", "ProcessOutput 0 1 0"}));
}

TEST_F(H264EncoderTest, EncodingWorksWithoutTheCodecApi) {
  machine.has_codec_api = false;
  EXPECT_TRUE(Init());
  AnswerEachInput("x");
  EXPECT_EQ(Encode(true), "x");
  for (const auto& call : machine.calls)
    EXPECT_FALSE(call.starts_with("SetValue")) << call;
}

TEST_F(H264EncoderTest, EveryOutputIsReadAfterEachSynchronousInput) {
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) { m.outputs = {plain("one"), plain("two"), plain("three")}; };
  EXPECT_EQ(Encode(), "onetwothree");
  EXPECT_TRUE(machine.outputs.empty());
}

TEST_F(H264EncoderTest, DelayedOutputOfAFrameIsNotAFailure) {
  EXPECT_TRUE(Init());
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Encode(), ""); }), "");
  machine.on_input = [](Machine& m) { m.outputs = {key("first"), plain("second")}; };
  EXPECT_EQ(Encode(), "<sets>firstsecond");
}

TEST_F(H264EncoderTest, ParameterSetsAreWrittenOnlyBeforeCleanPoints) {
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) {
    m.outputs = {key("K"), plain("p"), {"z", 0, true, 1}, {"Q", 7, true, 1}};
  };
  EXPECT_EQ(Encode(), "<sets>Kpz<sets>Q");
}

TEST_F(H264EncoderTest, CleanPointIsWrittenUnchangedIfThereAreNoParameterSets) {
  machine.header.clear();
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) { m.outputs = {key("K")}; };
  EXPECT_EQ(Encode(), "K");
}

TEST_F(H264EncoderTest, HugeParameterSetsAreKeptWhole) {
  machine.header.assign(std::size_t{16} << 20, 's');
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) { m.outputs = {key("K")}; };
  EXPECT_EQ(Encode().size(), machine.header.size() + 1);
}

TEST_F(H264EncoderTest, SampleOfSeveralBuffersIsJoined) {
  machine.stream_flags = MFT_OUTPUT_STREAM_PROVIDES_SAMPLES;
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) { m.outputs = {{"abc", 0, false, 3}}; };
  EXPECT_EQ(Encode().size(), 5u);
}

TEST_F(H264EncoderTest, SampleWithoutABufferGivesOnlyTheParameterSets) {
  machine.stream_flags = MFT_OUTPUT_STREAM_PROVIDES_SAMPLES;
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) { m.outputs = {{"", 1, true, 0}, plain("x")}; };
  EXPECT_EQ(Encode(), "<sets>x");
}

TEST_F(H264EncoderTest, CallerPassesAnOutputSampleUnlessTheEncoderProvidesSamples) {
  const struct {
    DWORD flags, size, capacity;
  } rows[] = {{0, 100, 100},
              {0, 0, kWidth * kHeight},
              {MFT_OUTPUT_STREAM_WHOLE_SAMPLES, 64, 64},
              {MFT_OUTPUT_STREAM_PROVIDES_SAMPLES, 100, 0},
              {MFT_OUTPUT_STREAM_CAN_PROVIDE_SAMPLES, 100, 0},
              {0x300, 0, 0}};
  for (const auto& row : rows) {
    machine = Machine();
    machine.stream_flags = row.flags;
    machine.buffer_size = row.size;
    EXPECT_TRUE(Init());
    AnswerEachInput("x");
    EXPECT_EQ(Encode(), "x") << row.flags << ' ' << row.size;
    EXPECT_EQ(machine.output_capacities.at(0), row.capacity) << row.flags << ' ' << row.size;
    encoder_->Shutdown();
  }
}

TEST_F(H264EncoderTest, AbsurdBufferSizeFailsWithoutACrash) {
  machine.buffer_size = 0xFFFFFFFF;
  EXPECT_TRUE(Init());
  AnswerEachInput("x");
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Encode(), ""); }), "encoder: ProcessOutput failed hr=0x80070057\n");
}

TEST_F(H264EncoderTest, FramesFailWithoutACrashIfMemoryRunsOut) {
  EXPECT_TRUE(Init());
  AnswerEachInput("x");
  machine.memory_short = true;
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(EncodeFails()); }), "encoder: ProcessInput(sync) failed hr=0x80004003\n");
  encoder_->Shutdown();
  EXPECT_TRUE(Init()) << "the result of creating a media type is not checked";
  EXPECT_TRUE(EncodeFails());
  machine.memory_short = false;
  machine.largest_buffer = 0;
  Encode();
  EXPECT_EQ(machine.inputs.back().bytes, "");
}

TEST_F(H264EncoderTest, SuccessWithoutASampleSilentlyEndsTheOutput) {
  machine.stream_flags = MFT_OUTPUT_STREAM_PROVIDES_SAMPLES;
  machine.null_sample = true;
  EXPECT_TRUE(Init());
  machine.on_input = [](Machine& m) { m.outputs = {plain("x"), plain("y")}; };
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Encode(), ""); }), "");
  EXPECT_EQ(machine.outputs.size(), 1u)
      << "reading stops, because an encoder that returns no samples could report success for ever";
}

TEST_F(H264EncoderTest, RefusedInputIsAFailureLoggedWithItsCode) {
  EXPECT_TRUE(Init());
  machine.failures["ProcessInput"] = MF_E_NOTACCEPTING;
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(EncodeFails()); }), "encoder: ProcessInput(sync) failed hr=0xc00d36b5\n");
  EXPECT_EQ(machine.Count("ProcessOutput 0 1 0"), 0);
  machine.failures.clear();
  AnswerEachInput("x");
  EXPECT_EQ(Encode(), "x") << "the session continues";
}

TEST_F(H264EncoderTest, RefusedOutputIsLoggedAndNotAFailure) {
  EXPECT_TRUE(Init());
  machine.failures["ProcessOutput"] = E_UNEXPECTED;
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Encode(), ""); }), "encoder: ProcessOutput failed hr=0x8000ffff\n");
  machine.failures["ProcessOutput"] = MF_E_TRANSFORM_STREAM_CHANGE;
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Encode(), ""); }), "encoder: ProcessOutput failed hr=0xc00d6d61\n");
}

TEST_F(H264EncoderTest, AsynchronousEncoderIsDrivenByItsEvents) {
  OpenAsync();
  EXPECT_EQ(CallsOf([&] { EXPECT_EQ(Encode(true), "x"); }),
            (Strings{"SetValue ForceKeyFrame u32 1", "GetEvent 0", "ProcessInput 0 0", "GetEvent 0",
                     "GetOutputStreamInfo", "ProcessOutput 0 1 0"}));
  EXPECT_EQ(CallsOf([&] { EXPECT_EQ(Encode(), "x"); }),
            (Strings{"GetEvent 0", "ProcessInput 0 0", "GetEvent 0", "GetOutputStreamInfo",
                     "ProcessOutput 0 1 0"}));
}

TEST_F(H264EncoderTest, PendingAsynchronousOutputIsReadBeforeTheInput) {
  OpenAsync();
  machine.outputs = {key("old"), plain("er")};
  machine.events = {METransformHaveOutput, MEError, METransformHaveOutput, METransformDrainComplete,
                    METransformNeedInput};
  EXPECT_EQ(Encode(), "<sets>olderx");
}

TEST_F(H264EncoderTest, AsynchronousCallReadsOneOutputAfterItsInput) {
  OpenAsync();
  machine.on_input = [](Machine& m) {
    m.outputs = {plain("a"), plain("b")};
    m.events = {METransformNeedInput, MEError, METransformHaveOutput, METransformHaveOutput,
                METransformNeedInput};
  };
  EXPECT_EQ(Encode(), "a");
  EXPECT_EQ(machine.events.size(), 2u);
  machine.on_input = [](Machine& m) { m.events = {METransformHaveOutput}; };
  EXPECT_EQ(Encode(), "b") << "the pending output; the new input has no output";
}

TEST_F(H264EncoderTest, EndOfEventsIsAFailureThatIsNotLogged) {
  machine.hardware = true;
  EXPECT_TRUE(Init());
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(EncodeFails()); }), "") << "the events end before the input";
  EXPECT_EQ(machine.Count("ProcessInput 0 0"), 0);
  machine.events = {METransformNeedInput, METransformNeedInput};
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(EncodeFails()); }), "") << "the events end after the input";
  EXPECT_EQ(machine.Count("ProcessInput 0 0"), 1);
}

TEST_F(H264EncoderTest, RefusedAsynchronousInputIsLoggedWithoutItsCode) {
  OpenAsync();
  machine.failures["ProcessInput"] = MF_E_NOTACCEPTING;
  EXPECT_EQ(LogOf([&] { EXPECT_TRUE(EncodeFails()); }),
            "encoder: ProcessInput(async) failed hr=0x00000000\n");
}

TEST_F(H264EncoderTest, RefusedAsynchronousOutputIsLoggedAndNotAFailure) {
  OpenAsync();
  machine.failures["ProcessOutput"] = E_FAIL;
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Encode(), ""); }), "encoder: ProcessOutput failed hr=0x80004005\n");
}

TEST_F(H264EncoderTest, AsynchronousEncoderWithoutEventsEncodesNothing) {
  machine.hardware = true;
  machine.has_events = false;
  EXPECT_TRUE(Init());
  EXPECT_TRUE(EncodeFails());
}

}  // namespace
}  // namespace vlk::agent
