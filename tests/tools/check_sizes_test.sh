#!/usr/bin/env bash
# tools/check-sizes accepts folders and files within the limits and reports folders and files beyond the limits.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
check=$root/tools/check-sizes
# shellcheck source=tests/tools/expect_findings.sh
source "$root/tests/tools/expect_findings.sh"
git -C "$tree" init --quiet

# The names of N files in a folder with content, as arguments of `finds`.
files() {  # FOLDER N
  local number
  arguments=()
  for number in $(seq "$2"); do arguments+=("$1/file$number.h" ''); done
}
# N lines. The last has no line feed, because `finds` adds it.
lines() { seq -s '\n' "$1"; }

files folder 16
finds 'a folder of 16 entries is accepted' '' "${arguments[@]}"
finds 'a folder of 17 entries is found' 'folder/ has 17 entries' "${arguments[@]}" folder/file17.h ''
finds 'a subfolder is one entry' 'folder/ has 17 entries' "${arguments[@]}" folder/more/a.h '' folder/more/b.h ''
finds 'hidden entries are not counted' '' "${arguments[@]}" folder/.hidden ''
finds 'entries of the top folder are counted' './ has 17 entries' "${arguments[@]/#folder\//}" extra.h ''
finds 'files that git ignores are not counted' '' "${arguments[@]}" .gitignore 'ignored' folder/ignored ''
files fuzz/corpus/json 17
finds 'a corpus may be large' '' "${arguments[@]}"

for file in a.cpp a.h a.js a.mjs a.sh a.css a.nsi a.cmake CMakeLists.txt; do
  finds "$file of 320 lines is accepted" '' "$file" "$(lines 320)"
  finds "$file of 321 lines is found" "$file has 321 lines" "$file" "$(lines 321)"
done
finds 'a script without a suffix is a source' 'tools/run has 321 lines' tools/run "#!/bin/sh\n$(lines 320)"
finds 'a document may be longer' '' a.md "$(lines 400)"
finds 'a file that states a reason may be longer' '' \
  a.cpp "// A table.\n// Longer than 320 lines because a table is read by searching it.\n$(lines 400)"
finds 'a reason must not be empty' 'a.cpp has 401 lines' a.cpp "// Longer than 320 lines because\n$(lines 400)"
finds 'a reason must be among the first lines' 'a.cpp has 401 lines' \
  a.cpp "$(lines 400)\n// Longer than 320 lines because a table is read by searching it."

report
