// Compares any three texts as versions. A line feed ends each text. "Later" must be a strict order of the
// versions.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "require.h"
#include "update/version.h"

using vlk::agent::is_newer;

namespace {

// The fields as numbers of 32 bits, without zeros at the end.
std::vector<std::int32_t> fields_of(const std::string& text) {
  std::vector<std::int32_t> fields(1);
  std::uint32_t number = 0;
  bool digits = true;  // only digits so far in this field
  for (const char c : text) {
    if (c == '.') {
      fields.push_back(0);
      number = 0;
      digits = true;
      continue;
    }
    digits = digits && c >= '0' && c <= '9';
    if (!digits) continue;
    number = number * 10 + static_cast<std::uint32_t>(c - '0');
    fields.back() = static_cast<std::int32_t>(number);
  }
  while (!fields.empty() && fields.back() == 0)
    fields.pop_back();
  return fields;
}

// Compares the lists as if the shorter one went on with zeros.
bool is_less(std::vector<std::int32_t> first, std::vector<std::int32_t> second) {
  const std::size_t size = std::max(first.size(), second.size());
  first.resize(size);
  second.resize(size);
  return first < second;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::array<std::string, 3> texts;
  std::size_t index = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n' && index < 2) {
      ++index;
    } else {
      texts[index] += static_cast<char>(data[i]);
    }
  }
  const auto& [a, b, c] = texts;
  for (const std::string& text : texts) {
    REQUIRE(!is_newer(text, text));
    REQUIRE(!is_newer(text, text + ".0") && !is_newer(text + ".0", text));
  }
  for (const std::string& first : texts) {
    for (const std::string& second : texts) {
      REQUIRE(is_newer(first, second) == is_less(fields_of(first), fields_of(second)));
      REQUIRE(!(is_newer(first, second) && is_newer(second, first)));
    }
  }
  if (is_newer(a, b) && is_newer(b, c)) REQUIRE(is_newer(a, c));
  const auto same = [](const std::string& first, const std::string& second) {
    return !is_newer(first, second) && !is_newer(second, first);
  };
  if (same(a, b) && same(b, c)) REQUIRE(same(a, c));
  return 0;
}
