#!/usr/bin/env bash
# tools/check-includes passes the agent's sources and finds each kind of wrong include in a tree made for it.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

# finds NAME TEXT FILE CONTENT [FILE CONTENT]...: the tree of these files yields exactly one complaint, with TEXT in it;
# none at all when TEXT is empty.
finds() {
  local name=$1 text=$2 said
  shift 2
  rm -rf "${tree:?}"/*
  while [ $# -gt 0 ]; do
    mkdir -p "$tree/$(dirname "$1")"
    printf '%b\n' "$2" > "$tree/$1"
    shift 2
  done
  said=$("$root/tools/check-includes" "$tree") || true
  # An empty text and no complaint are equal; else one line must hold the text.
  if [ "$said" = "$text" ] || [[ -n $text && $said == *"$text"* && $said != *$'\n'* ]]; then
    printf 'ok      %s\n' "$name"
  else
    printf 'FAILED  %s: %s\n' "$name" "$said"
    failures=$((failures + 1))
  fi
}

finds 'includes downward are right' '' \
  shell/a.cpp '#include "core/dispatch.h"' core/dispatch.h '#include "input/b.h"' \
  input/b.h '#include "core/json.h"\n#include <string>' core/json.h '#include "platform/c.h"' platform/c.h ''
finds 'the wire must not know a feature' 'core/json.h:2' core/json.h '\n#include "input/b.h"' input/b.h ''
finds 'a feature must not know the client' 'input/b.cpp:1' input/b.cpp '#include "core/agent_client.h"' core/agent_client.h ''
finds 'the floor must not know the wire' 'platform/c.h:1' platform/c.h '#include "core/json.h"' core/json.h ''
finds 'nobody below may know the shell' 'core/dispatch_win32.cpp:1' \
  core/dispatch_win32.cpp '#include "shell/a.h"' shell/a.h ''
finds 'headers must not include each other' 'input/a.h -> input/b.h -> input/a.h' \
  input/a.h '#include "input/b.h"' input/b.h '#include "input/a.h"'
finds 'native code must not see a Windows header' 'input/b.h:1' \
  input/a.cpp '#include "input/b.h"' input/b.h '#include <windows.h>'
finds 'Windows code may' '' input/a_win32.cpp '#include "input/b.h"' input/b.h '#include <windows.h>'

if "$root/tools/check-includes"; then echo 'ok      the agent'; else failures=$((failures + 1)); fi
[ $failures = 0 ]
