// RAII owner for C file streams.
#pragma once

#include <cstdio>
#include <memory>

namespace vlk {

struct StreamCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using UniqueStream = std::unique_ptr<std::FILE, StreamCloser>;

}  // namespace vlk
