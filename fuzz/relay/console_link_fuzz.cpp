// Lets a browser send any messages in any order, while it has or asks for a session with a machine.
#include "world/session_script.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlk::relay::fuzz::Input input(data, size);
  vlk::relay::fuzz::SessionScript(input, false).run();
  return 0;
}
