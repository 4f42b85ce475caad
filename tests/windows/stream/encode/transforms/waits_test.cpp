// Asynchronous encoders whose events the agent does not expect: which frames are output, and where the agent
// waits for an event that does not come. The names of the tests in which this ends the stream begin with
// "Known": the order in which the agent waits is deliberate.
#include "tests/windows/stream/encode/transforms/transforms_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

class AsyncTransformTest : public H264TransformsTest {};
INSTANTIATE_TEST_SUITE_P(Hardware, AsyncTransformTest, testing::Values(Transform::Async),
                         [](const auto&) { return "Async"; });

TEST_P(AsyncTransformTest, KnownEncoderThatAsksAgainAtOnceStopsAfterOneFrame) {
  board_.asks_at_once = 1;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  // The request for this frame came before the first output, where requests are ignored.
  ExpectWaitsForever(Picture(2));
  EXPECT_EQ(board_.inputs, 1);
}

TEST_P(AsyncTransformTest, KnownEncoderThatNeedsTwoFramesBeforeItsFirstOutputOutputsNothing) {
  board_.first_requests = 2;
  board_.lagging_frames = 1;
  ASSERT_TRUE(Init());
  ExpectWaitsForever(Picture(1), true);
  EXPECT_EQ(board_.inputs, 1);
  EXPECT_EQ(board_.outputs, 0);
}

TEST_P(AsyncTransformTest, EncoderThatAsksForTwoFramesAndOutputsEachWorks) {
  board_.first_requests = 2;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  for (std::uint32_t number = 1; number < 10; ++number)
    ExpectShown(decoder, number, number == 1);
  EXPECT_EQ(board_.inputs, 9);
}

TEST_P(AsyncTransformTest, KnownEncoderThatBuffersFramesOutputsNothing) {
  for (const auto cell :
       {&vantelink_doubles::CodecBoard::buffered_frames, &vantelink_doubles::CodecBoard::lagging_frames}) {
    (board_.*cell) = 1;
    ASSERT_TRUE(Init());
    ExpectWaitsForever(Picture(1), true);
    encoder_->Shutdown();
    (board_.*cell) = 0;
  }
  EXPECT_EQ(board_.inputs, 2);
  EXPECT_EQ(board_.outputs, 0);
}

TEST_P(AsyncTransformTest, KnownRefusedInputStopsTheStream) {
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  test::remove_debug_log();
  board_.process_input_result = E_FAIL;
  Bytes out;
  EXPECT_FALSE(encoder_->Encode(Picture(2), out, false));
  EXPECT_EQ(test::debug_log(), "encoder: ProcessInput(async) failed hr=0x00000000\n");
  board_.process_input_result = 0;
  // The refused call has used up the request.
  ExpectWaitsForever(Picture(3));
  EXPECT_EQ(board_.inputs, 1);
}

TEST_P(AsyncTransformTest, KnownErrorEventStopsTheStream) {
  board_.failing_input = 3;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  ExpectShown(decoder, 2, false);
  test::remove_debug_log();
  ExpectWaitsForever(Picture(3));
  EXPECT_EQ(test::debug_log(), "") << "the error is not logged";
}

TEST_P(AsyncTransformTest, KnownStreamChangeStopsTheStream) {
  board_.stream_change = 1;
  ASSERT_TRUE(Init());
  test::remove_debug_log();
  EXPECT_TRUE(Encode(Picture(1), true).empty());
  EXPECT_EQ(test::debug_log(), "encoder: ProcessOutput failed hr=0xc00d6d61\n");
  // The encoder requests nothing before its output type is set again.
  ExpectWaitsForever(Picture(2));
  EXPECT_EQ(board_.inputs, 1);
  EXPECT_EQ(board_.outputs, 0);
}

TEST_P(AsyncTransformTest, NewSessionAfterAWaitWorks) {
  board_.failing_input = 1;
  ASSERT_TRUE(Init());
  ExpectWaitsForever(Picture(1), true);
  encoder_->Shutdown();
  board_.failing_input = 0;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 2, true);
}

}  // namespace
}  // namespace vlk::agent
