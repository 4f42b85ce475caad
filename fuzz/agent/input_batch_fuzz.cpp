// Parses any bytes as an input batch.
#include "input/batch.h"
#include "require.h"

using namespace vlk::agent;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::size_t keys = 0;
  // Rectangles at the limits of the integer range. The batch's last byte chooses which limit.
  const std::int32_t edge = data[size - 1] % 2 == 0 ? 0x7FFFFFFF : -0x7FFFFFFF - 1;
  const auto records = ParseInputBatch(data, size,
                                       {[&] {
                                          return DesktopRect{edge, 0, data[0] % 3, 1080};
                                        },
                                        [&] {
                                          return DesktopRect{-1920, edge, edge, 1200};
                                        },
                                        [&](const KeyEvent&) { ++keys; }});
  REQUIRE(keys <= data[0]);
  if (!records) return 0;
  REQUIRE(records->size() <= data[0]);
  std::size_t keyboard = 0;
  for (const InputRecord& record : *records)
    keyboard += record.kind == InputKind::Keyboard ? 1 : 0;
  REQUIRE(keyboard == keys);
  return 0;
}
