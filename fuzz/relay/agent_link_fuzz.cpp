// Lets a machine send any messages in any order, while a browser has or asks for a session with it.
#include "world/session_script.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlk::relay::fuzz::Input input(data, size);
  vlk::relay::fuzz::SessionScript(input, true).run();
  return 0;
}
