// Thumbnails of scripted monitors: one message for each monitor, by its number.
#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Envelope;
using vlk::Msg;

class ThumbnailTest : public StreamTest {
 protected:
  static constexpr std::size_t kHeaderSize = 6;

  void SetUp() override {
    StreamTest::SetUp();
    register_encoders("");
  }

  // Reads the next thumbnail, whose payload must start with this header. Its picture must have the same size.
  void expect_thumbnail(int id, int count, int width, int height) {
    const Envelope envelope = peer_->read_until(Msg::Thumbnail);
    EXPECT_EQ(envelope.session_id, kSession);
    EXPECT_EQ(envelope.flags, 0);
    ASSERT_GT(envelope.payload.size(), kHeaderSize);
    const auto begin = envelope.payload.begin();
    EXPECT_EQ((std::vector<int>(begin, begin + kHeaderSize)),
              (std::vector<int>{id, count, width & 0xFF, width >> 8, height & 0xFF, height >> 8}));
    VideoDecoder decoder(VideoCodec::Jpeg);
    const Picture picture = decoder.decode(Bytes(begin + kHeaderSize, envelope.payload.end()));
    EXPECT_EQ(picture.width, width);
    EXPECT_EQ(picture.height, height);
  }

  // Checks that no further thumbnail was sent.
  void expect_no_more() {
    send(Msg::Heartbeat);
    for (;;) {
      const auto type = static_cast<Msg>(peer_->read_envelope(kPatience).type);
      EXPECT_NE(type, Msg::Thumbnail);
      if (type == Msg::Heartbeat) return;
    }
  }

  void request_thumbnails() {
    if (!peer_) {
      peer_ = start({}, environment_);
      peer_->read_until(Msg::Hello);
    }
    send(Msg::ThumbnailRequest);
  }
};

TEST_F(ThumbnailTest, ThreeMonitorsAreSentByNumberWithTheirSizes) {
  set_outputs({{0, 0, 1280, 720}, {1280, -300, 1080, 1920}, {-300, 0, 300, 200}});
  request_thumbnails();
  expect_thumbnail(0, 3, 320, 180);
  expect_thumbnail(1, 3, 180, 320);
  expect_thumbnail(2, 3, 300, 200);
  expect_no_more();
}

TEST_F(ThumbnailTest, MonitorsAreCountedAgainForEachRequest) {
  set_outputs({{0, 0, 1280, 720}, {1280, 0, 640, 480}, {1920, 0, 300, 200}});
  (*desktop)->outputs[1].unattached = 1;
  request_thumbnails();
  expect_thumbnail(0, 2, 320, 180);
  expect_thumbnail(1, 2, 300, 200);
  (*desktop)->outputs[0].unattached = (*desktop)->outputs[2].unattached = 1;
  request_thumbnails();
  expect_thumbnail(0, 1, 320, 180);
  expect_no_more();
  EXPECT_EQ((*desktop)->live, 0);
}

}  // namespace
