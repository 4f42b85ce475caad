// Transforms with missing parts or failures: sessions continue, and nothing crashes.
#include <string>

#include "tests/windows/stream/encode/transforms/transforms_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

INSTANTIATE_TEST_SUITE_P(Both, H264TransformsTest, testing::Values(Transform::Sync, Transform::Async),
                         [](const auto& kind) { return kind.param == Transform::Sync ? "Sync" : "Async"; });

TEST_P(H264TransformsTest, OddSizeIsRefusedAndTheNextSizeIsAccepted) {
  EXPECT_FALSE(Init(kWidth + 1, kHeight));
  EXPECT_EQ(test::debug_log(), "encoder: SetOutputType failed hr=0xc00d36b4\n");
  EXPECT_EQ(board_.live, 1) << "the encoder is left half open, deliberately";
  ASSERT_TRUE(Init());
  EXPECT_EQ(board_.live, 1);
  test::H264Decoder decoder;
  ExpectShown(decoder, 3, true);
}

TEST_P(H264TransformsTest, ParameterSetsAreInTheStreamWithoutASequenceHeader) {
  board_.no_header = 1;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  ExpectShown(decoder, 2, false);
}

TEST_P(H264TransformsTest, HugeSequenceHeaderIsKeptWhole) {
  board_.header_bytes = 1 << 20;
  ASSERT_TRUE(Init());
  const Bytes bytes = Encode(Picture(9), true);
  EXPECT_GT(bytes.size(), std::size_t{1} << 20);
  EXPECT_EQ(test::nal_types(bytes).size(), 4u) << "two parameter sets, the filler and the picture";
}

TEST_P(H264TransformsTest, SamplesAllocatedByTheEncoderWorkLikeSamplesAllocatedByTheCaller) {
  for (const std::int32_t flags : {0x100, 0x200, 0x300}) {
    board_.sample_flags = flags;
    ASSERT_TRUE(Init());
    test::H264Decoder decoder;
    ExpectShown(decoder, 1, true);
    ExpectShown(decoder, 2, false);
    encoder_->Shutdown();
  }
}

TEST_P(H264TransformsTest, MissingBufferSizeIsReplacedByThePictureSize) {
  board_.no_buffer_size = 1;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
}

TEST_P(H264TransformsTest, MissingOrEmptySamplesGiveNoPicture) {
  board_.sample_flags = 0x100;
  ASSERT_TRUE(Init());
  board_.null_sample = 1;
  EXPECT_TRUE(Encode(Picture(0), true).empty());
  board_.null_sample = 0;
  board_.empty_sample = 1;
  EXPECT_TRUE(Encode(Picture(1)).empty());
  board_.empty_sample = 0;
  test::H264Decoder decoder;
  ExpectShown(decoder, 2, true);
}

TEST_P(H264TransformsTest, KeyFramesAreNotForcedWithoutTheCodecApi) {
  board_.no_codec_api = 1;
  ASSERT_TRUE(Init());
  EXPECT_EQ(test::nal_types(Encode(Picture(1), true)), kKeyFrame);
  for (std::uint32_t number = 2; number < 10; ++number)
    EXPECT_EQ(test::nal_types(Encode(Picture(number), true)), kOtherFrame);
  EXPECT_EQ(board_.forced, 0);
}

TEST_P(H264TransformsTest, RefusedInputAndRefusedOutputAreLoggedAndTheSessionContinues) {
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  test::remove_debug_log();
  board_.process_output_result = E_FAIL;
  EXPECT_TRUE(Encode(Picture(2)).empty());
  board_.process_output_result = 0;
  ExpectShown(decoder, 3, true);
  board_.process_input_result = E_FAIL;
  Bytes out;
  EXPECT_FALSE(encoder_->Encode(Picture(4), out, false));
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(test::debug_log(), std::string("encoder: ProcessOutput failed hr=0x80004005\n") +
                                   (async() ? "encoder: ProcessInput(async) failed hr=0x00000000\n"
                                            : "encoder: ProcessInput(sync) failed hr=0x80004005\n"));
  if (async()) return;  // the refused input has used up the request; waits_test.cpp tests what follows
  board_.process_input_result = 0;
  ExpectShown(decoder, 5, true);
}

}  // namespace
}  // namespace vlk::agent
