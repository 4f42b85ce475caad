#!/usr/bin/env bash
# Checks that executables have the flags by which Windows protects them: DYNAMIC_BASE and HIGH_ENTROPY_VA (a random
# address) and NX_COMPAT (data is not executable). A random address also needs relocations; --flags-only leaves this
# check out, for installers, whose program part comes with makensis and has none.
set -euo pipefail
export LC_ALL=C
relocations=yes
if [ "$1" = --flags-only ]; then relocations=; shift; fi
missing=0
for image in "$@"; do
  headers=$(x86_64-w64-mingw32-objdump -p "$image")
  for flag in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
    if ! grep -qE "^[[:space:]]+$flag\$" <<< "$headers"; then echo "$image does not have $flag"; missing=1; fi
  done
  # Without relocations, Windows loads an image at its preferred address although it has DYNAMIC_BASE.
  if [ -n "$relocations" ] \
    && ! grep -qE '^Entry 5 [0-9a-f]*[1-9a-f][0-9a-f]* [0-9a-f]*[1-9a-f][0-9a-f]* Base Relocation' <<< "$headers"; then
    echo "$image has no relocations"
    missing=1
  fi
done
exit $missing
