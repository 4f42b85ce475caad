// Looks for the executable in the folder above that of the test program.
#include "tests/windows/support/agent_file.h"

#include <windows.h>

namespace vlk::test {

std::wstring agent_file() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  folder.resize(folder.find_last_of(L'\\'));
  folder.resize(folder.find_last_of(L'\\'));
  return folder + L"\\VantelinkAgent.exe";
}

}  // namespace vlk::test
