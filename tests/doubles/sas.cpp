// The double of sas.dll, needed because Wine's own is only a stub. Each call adds a line with its argument to
// "vlk_sas.txt" in the temporary folder.
#include <windows.h>

#include <cstdio>
#include <cstring>

extern "C" __declspec(dllexport) void WINAPI SendSAS(BOOL as_user) {
  char path[MAX_PATH + 16] = {};
  GetTempPathA(MAX_PATH, path);
  std::strcat(path, "vlk_sas.txt");
  if (std::FILE* file = std::fopen(path, "a")) {
    std::fprintf(file, "SendSAS %d\n", static_cast<int>(as_user));
    std::fclose(file);
  }
}
