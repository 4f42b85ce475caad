#!/usr/bin/env bash
# Checks that the agent's executable imports only DLLs that every 64-bit Windows 10 and 11 and every Windows Server has,
# also the editions without media features. Windows does not start an executable with a missing import, so a DLL that
# some machines lack is loaded at run time instead.
set -euo pipefail
allowed='advapi32 comctl32 crypt32 d3d11 dxgi gdi32 gdiplus kernel32 msvcrt ole32 shell32 user32 userenv ws2_32 wtsapi32'
imports=$(x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/^\s*DLL Name: *//p' | tr '[:upper:]' '[:lower:]' | sort -u)
[ -n "$imports" ] || { echo "objdump found no imports in $1"; exit 1; }
foreign=0
for dll in $imports; do
  # shellcheck disable=SC2086
  if ! printf '%s.dll\n' $allowed | grep -qxF "$dll"; then echo "imported, but not on the list of DLLs that every Windows has: $dll"; foreign=1; fi
done
exit $foreign
