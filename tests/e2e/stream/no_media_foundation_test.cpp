// The shipped executable on a Windows without Media Foundation, as the editions without media features and
// many servers are: it starts, connects and streams JPEG.
#include "e2e/support/agent_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

// Wine's setting that makes loading of mfplat.dll fail; the other settings are those of every desk.
constexpr char kNoMediaFoundation[] = "WINEDLLOVERRIDES=mscoree,mshtml,winedbg.exe=;mfplat=";

TEST_F(AgentTest, ConnectsAndStreamsJpegWithoutMediaFoundation) {
  const auto peer = start({}, {kNoMediaFoundation});
  peer->read_until(Msg::Hello);
  peer->send_envelope(Msg::StreamStart, 5, R"({"monitor_id":0,"max_fps":10})");
  EXPECT_EQ(text_of(peer->read_until(Msg::StreamConfig)),
            R"({"codec":"mjpeg","w":1280,"h":720,"monitor_id":0})");
  for (int i = 0; i < 3; ++i) {
    const std::string frame = text_of(peer->read_until(Msg::StreamFrame));
    ASSERT_GT(frame.size(), 1000u);
    EXPECT_EQ(frame.substr(8, 2), "\xFF\xD8");
    EXPECT_EQ(frame.substr(frame.size() - 2), "\xFF\xD9");
  }
  EXPECT_TRUE(logged("encoder: MFStartup failed hr=0x00000000\n"));
  EXPECT_FALSE(logged("no H.264 encoder MFT found")) << "mfplat.dll was loaded after all";
  peer->send_envelope(Msg::StreamStop, 5, "");
  peer->settle();
}

}  // namespace
}  // namespace vantelink_test
