// A program that does nothing but leave a mark: a file of its own name with ".mark" behind it, which holds
// the arguments that it was given, one a line. It stands in for an installer.
#include <windows.h>

#include <cstdio>
#include <string>

int wmain(int count, wchar_t** words) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::FILE* const mark = _wfopen((std::wstring(path) + L".mark").c_str(), L"wb");
  if (mark == nullptr) return 1;
  for (int i = 1; i < count; ++i)
    std::fwprintf(mark, L"%ls\n", words[i]);
  return std::fclose(mark);
}
