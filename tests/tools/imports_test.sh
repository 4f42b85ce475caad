#!/usr/bin/env bash
# Checks that the agent's executable imports only DLLs that every 64-bit Windows has, and no DLL of the compiler.
set -euo pipefail
allowed='advapi32 bcrypt comctl32 comdlg32 crypt32 d3d11 dwmapi dxgi gdi32 gdiplus imm32 kernel32 mf mfplat msvcrt ole32
  oleaut32 secur32 shell32 shlwapi user32 userenv version winmm ws2_32 wtsapi32'
imports=$(x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/^\s*DLL Name: *//p' | tr '[:upper:]' '[:lower:]' | sort -u)
[ -n "$imports" ] || { echo "objdump found no imports in $1"; exit 1; }
foreign=0
for dll in $imports; do
  # shellcheck disable=SC2086
  if ! printf '%s.dll\n' $allowed | grep -qxF "$dll"; then echo "imported, but not a part of Windows: $dll"; foreign=1; fi
done
exit $foreign
