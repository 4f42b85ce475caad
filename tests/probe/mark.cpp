// A program that replaces an installer in tests: it writes its arguments, one per line, to a file named after
// the program with ".mark" appended. The file appears only when it is complete.
#include <windows.h>

#include <cstdio>
#include <string>

int wmain(int count, wchar_t** words) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring name = std::wstring(path) + L".mark";
  const std::wstring unfinished = name + L"ing";
  std::FILE* const mark = _wfopen(unfinished.c_str(), L"wb");
  if (mark == nullptr) return 1;
  for (int i = 1; i < count; ++i)
    std::fwprintf(mark, L"%ls\n", words[i]);
  if (std::fclose(mark) != 0) return 1;
  return MoveFileExW(unfinished.c_str(), name.c_str(), MOVEFILE_REPLACE_EXISTING) ? 0 : 1;
}
