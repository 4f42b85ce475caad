# shellcheck shell=bash
# Support for the tests of tools/check-*, sourced by them: runs a check on small source trees.
# The test sets `check` to the program under test first, and ends with `report`.
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

# finds NAME TEXT FILE CONTENT [FILE CONTENT]...: expects that the check reports exactly one finding, with TEXT in it,
# for a tree of these files; expects no finding when TEXT is empty.
finds() {
  local name=$1 text=$2 output status=0 expected_status=0
  shift 2
  rm -rf "${tree:?}"/*
  while [ $# -gt 0 ]; do
    mkdir -p "$tree/$(dirname "$1")"
    printf '%b\n' "$2" > "$tree/$1"
    shift 2
  done
  output=$("${check:?}" "$tree" 2>&1) || status=$?
  if [ -n "$text" ]; then expected_status=1; fi
  # Without a text the output must be empty; otherwise it must be one line that contains the text.
  if [ $status = $expected_status ] && [[ $output == *"$text"* && $output != *$'\n'* && (-n $text || -z $output) ]]; then
    printf 'ok      %s\n' "$name"
  else
    printf 'FAILED  %s (status %s): %s\n' "$name" "$status" "$output"
    failures=$((failures + 1))
  fi
}

report() {
  printf '%s failed\n' "$failures"
  [ "$failures" = 0 ]
}
