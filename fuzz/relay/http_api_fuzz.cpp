// Makes any requests to the relay's HTTP API in any order, with log-ins of each role and stage.
#include "world/api_script.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlk::relay::fuzz::Input input(data, size);
  vlk::relay::fuzz::ApiScript(input).run();
  return 0;
}
