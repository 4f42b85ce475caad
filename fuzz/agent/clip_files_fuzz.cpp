// Reads any bytes as the file list of a clipboard message.
#include "clipboard/payload.h"
#include "require.h"

using namespace vlk::agent;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<ClipFile> files = ReadClipFiles(data, size);
  ClipFilePacker packer;
  const std::uint8_t* end = data;  // end of the bytes read so far
  for (const ClipFile& file : files) {
    REQUIRE(!file.name.empty());
    REQUIRE(file.name != "." && file.name != "..");
    REQUIRE(file.name.find_first_of("/\\") == std::string::npos);
    REQUIRE(file.data >= end && file.data + file.size <= data + size);
    end = file.data + file.size;
    packer.add(file.name, {file.data, end});
  }
  // Files must be unchanged after they are packed again and read again.
  const std::vector<std::uint8_t> payload = packer.payload();
  REQUIRE(payload.empty() == files.empty());
  if (payload.empty()) return 0;
  const std::vector<ClipFile> again = ReadClipFiles(payload.data() + 1, payload.size() - 1);
  REQUIRE(again.size() == files.size());
  for (std::size_t i = 0; i < files.size(); ++i)
    REQUIRE(again[i].name == files[i].name && again[i].size == files[i].size);
  return 0;
}
