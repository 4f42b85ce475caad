// Encoders that differ from the plain ones in their byte stream, their settings or their limits. A name that
// begins with "Known" belongs to a case in which the picture is missing or worse, deliberately.
#include "tests/windows/stream/encode/transforms/transforms_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

using test::kDelimiter;
using test::kInformation;
using test::kKeySlice;
using test::kPictureSet;
using test::kSequenceSet;
using test::kSlice;
using vantelink_doubles::LateHeader;

INSTANTIATE_TEST_SUITE_P(Both, H264TransformsTest, testing::Values(Transform::Sync, Transform::Async),
                         [](const auto& kind) { return kind.param == Transform::Sync ? "Sync" : "Async"; });

TEST_P(H264TransformsTest, SeveralSlicesOfAPictureStayTogether) {
  board_.slices = 3;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, {kSequenceSet, kPictureSet, kKeySlice, kKeySlice, kKeySlice}, true);
  ExpectShown(decoder, 2, {kSlice, kSlice, kSlice}, false);
}

TEST_P(H264TransformsTest, KnownDelimiterOfAKeyFrameFollowsTheParameterSets) {
  board_.delimiters = 1;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, {kSequenceSet, kPictureSet, kDelimiter, kInformation, kKeySlice}, true);
  ExpectShown(decoder, 2, {kDelimiter, kInformation, kSlice}, false);
  ExpectShown(decoder, 3, {kSequenceSet, kPictureSet, kDelimiter, kInformation, kKeySlice}, true);
}

TEST_P(H264TransformsTest, HeaderThatIsKnownAfterTheFirstOutputIsSentOnlyByTheEncoder) {
  board_.late_header = static_cast<int>(LateHeader::InStream);
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  for (std::uint32_t number = 1; number < 5; ++number)
    ExpectShown(decoder, number, number % 2 == 1);
}

TEST_P(H264TransformsTest, KnownHeaderThatOnlyTheTypeHasAfterTheFirstOutputIsNeverSent) {
  board_.late_header = static_cast<int>(LateHeader::NotInStream);
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  for (std::uint32_t number = 1; number < 4; ++number) {
    const Bytes bytes = Encode(Picture(number), true);
    EXPECT_EQ(test::nal_types(bytes), Types{kKeySlice});
    EXPECT_EQ(decoder.decode(bytes).width, 0) << "a picture without parameter sets cannot be decoded";
  }
}

TEST_P(H264TransformsTest, KnownHeaderOfAnEarlierSessionPrecedesKeyFramesOfAnEncoderWithALateHeader) {
  ASSERT_TRUE(Init(640, 480));
  test::H264Decoder first;
  ExpectShown(first, 1, true, 640, 480);
  encoder_->Shutdown();
  board_.late_header = static_cast<int>(LateHeader::InStream);
  ASSERT_TRUE(Init());
  test::H264Decoder second;
  const Types kTwoHeaders = {kSequenceSet, kPictureSet, kSequenceSet, kPictureSet, kKeySlice};
  ExpectShown(second, 2, kTwoHeaders, true);
  ExpectShown(second, 3, kOtherFrame, false);
}

TEST_P(H264TransformsTest, KnownPropertiesAreRefusedByAnEncoderThatAcceptsThemOnlyBeforeTheTypes) {
  board_.fixed_properties = 1;
  ASSERT_TRUE(encoder_->Init(kWidth, kHeight, 30, 1234567));
  EXPECT_EQ(board_.refused_properties, 4);
  EXPECT_EQ(board_.bitrate, 0);
  EXPECT_EQ(board_.low_latency, 0);
  EXPECT_EQ(board_.speed, 0);
  EXPECT_EQ(board_.type_bitrate, 1234567) << "the type's bit rate is set nevertheless";
  test::H264Decoder decoder;
  for (std::uint32_t number = 1; number < 5; ++number)
    ExpectShown(decoder, number, number % 2 == 1);
  EXPECT_EQ(board_.refused_properties, 4);
}

TEST_P(H264TransformsTest, Direct3DAwareEncoderIsFedFromMemoryWithoutADeviceManager) {
  board_.d3d_aware = 1;
  board_.sample_flags = 0x100;
  ASSERT_TRUE(Init());
  EXPECT_EQ(board_.messages, 0x123);
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  ExpectShown(decoder, 2, false);
}

class SyncTransformTest : public H264TransformsTest {};
INSTANTIATE_TEST_SUITE_P(Software, SyncTransformTest, testing::Values(Transform::Sync),
                         [](const auto&) { return "Sync"; });

TEST_P(SyncTransformTest, LaggingEncoderReturnsEachFrameSomeCallsLater) {
  board_.lagging_frames = 2;
  ASSERT_TRUE(Init());
  EXPECT_TRUE(Encode(Picture(1), true).empty());
  EXPECT_TRUE(Encode(Picture(2)).empty());
  EXPECT_EQ(test::nal_types(Encode(Picture(3), true)), kKeyFrame);
  EXPECT_EQ(test::nal_types(Encode(Picture(4))), kOtherFrame);
  EXPECT_EQ(test::nal_types(Encode(Picture(5))), kKeyFrame);
  encoder_->Shutdown();
  EXPECT_EQ(board_.outputs, 3) << "the last two frames are not drained";
}

TEST_P(SyncTransformTest, KnownStreamChangeEndsTheOutput) {
  board_.stream_change = 1;
  ASSERT_TRUE(Init());
  test::remove_debug_log();
  EXPECT_TRUE(Encode(Picture(1), true).empty());
  EXPECT_EQ(test::debug_log(), "encoder: ProcessOutput failed hr=0xc00d6d61\n");
  test::remove_debug_log();
  Bytes out;
  EXPECT_FALSE(encoder_->Encode(Picture(2), out, true));
  EXPECT_EQ(test::debug_log(), "encoder: ProcessInput(sync) failed hr=0xc00d36b5\n");
  EXPECT_TRUE(out.empty());
}

}  // namespace
}  // namespace vlk::agent
