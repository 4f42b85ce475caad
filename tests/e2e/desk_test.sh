#!/usr/bin/env bash
# Tests tools/desk: it passes on exit statuses and output, keeps desks apart, and leaves no process or file. The test runs
# programs that are part of Wine, so that it needs no build.
set -euo pipefail
desk=$(cd "$(dirname "$0")/../.." && pwd)/tools/desk
# The desks' folders are created in this folder, so whatever remains in it was left by this test.
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
# Waits until no desk, no process on a desk and none of these processes is left. A process whose Wine prefix is in
# this test's folder was started by this test.
none_left() {  # PID...
  local deadline=$((SECONDS + 20)) left
  while :; do
    left=$(find "$TMPDIR" -mindepth 1 -maxdepth 1 -name 'vantelink-desk.*')
    left+=$(grep -lzs "^WINEPREFIX=$TMPDIR/" /proc/[0-9]*/environ || true)
    for pid in "$@"; do if kill -0 "$pid" 2> /dev/null; then left+=" $pid"; fi; done
    [ -n "$left" ] || return 0
    if [ $SECONDS -ge $deadline ]; then echo "still there: $left"; return 1; fi
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
  status 1 env -u VANTELINK_WINE PATH="$empty" "$(command -v bash)" "$desk" run cmd 2> "$TMPDIR/said"
  rm -r "$empty"
  [ "$(wc -l < "$TMPDIR/said")" = 1 ] && grep -q 'wine is not installed' "$TMPDIR/said"
}
query() { "$desk" exec "$1" reg query "${@:2}"; }  # DESK KEY ARGUMENT...
renderer_of() { query "$1" 'HKCU\Software\Wine\Direct3D' /v renderer; }
has_no_renderer() { grep -q no3d <<< "$(renderer_of "$1")"; }
# The registry can be read, and has no value for the renderer.
has_default_renderer() { query "$1" 'HKCU\Software' > /dev/null && ! renderer_of "$1" > /dev/null 2>&1; }
shows() {  # DESK TITLE
  # shellcheck source=/dev/null
  (. "$1/env" && xdotool search --onlyvisible --name "$2" > /dev/null 2>&1)
}
hides() { ! shows "$@"; }
# A killed process remains in the table of processes until its parent has read its exit status.
ended() { ! kill -0 "$1" 2> /dev/null; }
wait_until() {  # COMMAND...
  local deadline=$((SECONDS + 20))
  until "$@"; do
    if [ $SECONDS -ge $deadline ]; then echo "not within 20 s: $*"; return 1; fi
    sleep 0.1
  done
}
# The desktop disappears when Windows shuts down and is back after the restart. A program can only be ended by the
# shutdown once it has opened its window.
restarts_after_shutdown() {
  wait_until shows "$1" Notepad || return 1
  "$desk" exec "$1" wineboot --end-session --shutdown || return 1
  wait_until hides "$1" 'Wine desktop' || return 1
  "$desk" restart "$1" && wait_until shows "$1" 'Wine desktop'
}

expect 'exit status 0 is passed on' status 0 "$desk" run cmd /c 'exit 0'
expect 'another exit status is passed on' status 7 "$desk" run cmd /c 'exit 7'
expect 'a program that does not exist fails' status 53 "$desk" run "$TMPDIR/none.exe"
expect 'the output is that of the program alone' says_hello_alone
expect 'a program that hangs is killed' status 137 env VANTELINK_DESK_SECONDS=1 "$desk" run notepad
expect 'two desks work at the same time' two_at_once
expect 'a missing Wine is reported in one line' no_wine
expect 'a wrong call is refused' status 2 "$desk" exec
expect 'no run leaves a desk or a process' none_left

folder=$("$desk" start --owner $$)
display=$(< "$folder/xvfb.pid")
expect 'exec passes on the exit status' status 9 "$desk" exec "$folder" cmd /c 'exit 9'
expect 'run can use a running desk' status 8 env VANTELINK_DESK="$folder" "$desk" run cmd /c 'exit 8'
expect 'exec sets a variable for one program' status 5 "$desk" exec --env WANTED=5 "$folder" cmd /c 'exit %WANTED%'
expect 'Direct3D has no renderer' has_no_renderer "$folder"
program=$("$desk" spawn "$folder" notepad)
expect 'a spawned program runs' kill -0 "$program"
expect 'restart starts Windows again after a shutdown' restarts_after_shutdown "$folder"
program=$("$desk" spawn "$folder" notepad)
expect 'restart ends the programs that run' status 0 "$desk" restart "$folder"
expect 'the program that ran before the restart has ended' wait_until ended "$program"
program=$("$desk" spawn "$folder" notepad)
expect 'a program runs after the restart' kill -0 "$program"
"$desk" shot "$folder" "$TMPDIR/shot.png"
expect 'shot saves a picture of the whole display' [ "$(identify -format '%wx%h' "$TMPDIR/shot.png")" = 1280x720 ]
"$desk" stop "$folder"
expect 'stop ends the desk, its display and its programs' none_left "$display" "$program"
expect 'stopping a stopped desk succeeds' status 0 "$desk" stop "$folder"

folder=$("$desk" start --owner $$ --tray)
# shellcheck source=/dev/null
expect 'a desk can have a notification area' grep -q trayer <<< "$(. "$folder/env" && xwininfo -root -tree)"
"$desk" stop "$folder"
expect 'the window manager and the notification area end with the desk' none_left

folder=$("$desk" start --owner $$ --3d)
expect 'a desk started with --3d has the default renderer' has_default_renderer "$folder"
"$desk" stop "$folder"

sleep 300 & owner=$!
folder=$("$desk" start --owner "$owner")
display=$(< "$folder/xvfb.pid")
program=$("$desk" spawn "$folder" notepad)
kill -9 "$owner"
wait "$owner" 2> /dev/null || true
expect 'a desk ends when its owner is killed' none_left "$display" "$program"

[ $failures = 0 ] || { echo "$failures checks failed"; exit 1; }
