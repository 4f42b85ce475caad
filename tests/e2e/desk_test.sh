#!/usr/bin/env bash
# The desk passes exit statuses and output through, keeps desks apart, and leaves nothing running behind it.
# Wine's own programs serve as subjects, so that the test needs no build.
set -euo pipefail
desk=$(cd "$(dirname "$0")/../.." && pwd)/tools/desk
# A folder of our own for the desks: what is left in it was left by this test.
TMPDIR=$(mktemp -d)
export TMPDIR
unset VANTELINK_DESK
trap 'rm -rf "$TMPDIR"' EXIT

failures=0
expect() {  # NAME COMMAND...
  if "${@:2}"; then printf 'ok      %s\n' "$1"; else printf 'FAILED  %s\n' "$1"; failures=$((failures + 1)); fi
}
status() {  # WANTED COMMAND...
  local got=0
  timeout 60 "${@:2}" || got=$?
  [ "$got" = "$1" ] || { echo "exit status $got, not $1"; return 1; }
}
# A process whose environment names our folder was started by us, the Windows ones too.
none_left() {
  local deadline=$((SECONDS + 20)) left
  while :; do
    left=$(find "$TMPDIR" -mindepth 1 -maxdepth 1 -name 'vantelink-desk.*')
    left+=$(grep -lzs "^WINEPREFIX=$TMPDIR/" /proc/[0-9]*/environ || true)
    for pid in "$@"; do if kill -0 "$pid" 2> /dev/null; then left+=" $pid"; fi; done
    [ -n "$left" ] || return 0
    if [ $SECONDS -ge $deadline ]; then echo "left: $left"; return 1; fi
    sleep 0.1
  done
}

says_hello_alone() { [ "$(timeout 60 "$desk" run cmd /c 'echo hello' | tr -d '\r')" = hello ]; }
two_at_once() {
  local first second failed=0
  status 3 "$desk" run cmd /c 'exit 3' & first=$!
  status 4 "$desk" run cmd /c 'exit 4' & second=$!
  wait $first || failed=1
  wait $second || failed=1
  return $failed
}
no_wine() {
  local empty=$TMPDIR/bin tool
  mkdir "$empty"
  for tool in bash realpath dirname; do ln -s "$(command -v $tool)" "$empty/$tool"; done
  status 1 env PATH="$empty" "$(command -v bash)" "$desk" run cmd 2> "$TMPDIR/said"
  rm -r "$empty"
  [ "$(wc -l < "$TMPDIR/said")" = 1 ] && grep -q 'wine is not installed' "$TMPDIR/said"
}

expect 'success is passed through' status 0 "$desk" run cmd /c 'exit 0'
expect 'a failure is passed through' status 7 "$desk" run cmd /c 'exit 7'
expect 'a program that does not exist fails' status 53 "$desk" run "$TMPDIR/none.exe"
expect 'the output is the program'\''s' says_hello_alone
expect 'a program that hangs is ended' status 137 env VANTELINK_DESK_SECONDS=1 "$desk" run notepad
expect 'two desks work side by side' two_at_once
expect 'without Wine there is one clear line' no_wine
expect 'a wrong call is refused' status 2 "$desk" exec
expect 'no run leaves a thing behind' none_left

folder=$("$desk" start --owner $$)
display=$(< "$folder/xvfb.pid")
expect 'exec passes the exit status through' status 9 "$desk" exec "$folder" cmd /c 'exit 9'
expect 'a run can use a desk that is there' status 8 env VANTELINK_DESK="$folder" "$desk" run cmd /c 'exit 8'
expect 'a variable reaches one program' status 5 "$desk" exec --env WANTED=5 "$folder" cmd /c 'exit %WANTED%'
program=$("$desk" spawn "$folder" notepad)
expect 'a spawned program runs' kill -0 "$program"
"$desk" shot "$folder" "$TMPDIR/shot.png"
expect 'a shot is a picture of the display' [ "$(identify -format '%wx%h' "$TMPDIR/shot.png")" = 1280x720 ]
"$desk" stop "$folder"
expect 'stopping ends all, the display and spawned programs too' none_left "$display" "$program"
expect 'stopping twice is no error' status 0 "$desk" stop "$folder"

folder=$("$desk" start --owner $$ --tray)
expect 'a desk can have a notification area' grep -q trayer <<< "$(. "$folder/env" && xwininfo -root -tree)"
"$desk" stop "$folder"
expect 'window manager and notification area end with the desk' none_left

sleep 300 & owner=$!
folder=$("$desk" start --owner "$owner")
display=$(< "$folder/xvfb.pid")
program=$("$desk" spawn "$folder" notepad)
kill -9 "$owner"
wait "$owner" 2> /dev/null || true
expect 'a desk ends with its owner, even one that was killed' none_left "$display" "$program"

[ $failures = 0 ] || { echo "$failures failed"; exit 1; }
