# shellcheck shell=bash
# Support for ./dev and the scripts of its verbs, sourced by them in the top folder: steps that report one line of
# progress each and keep their output in build/log/.

fail() { printf './dev: %s\n' "$*" >&2; exit 1; }

log_of() { printf 'build/log/%s.log' "${1//[^A-Za-z0-9]/-}"; }

# try NAME COMMAND...: runs the command and prints its name, result and seconds. When the command fails, the end of
# its output is printed and the status is 1.
try() {
  local name=$1 log start=$SECONDS
  shift
  log=$(log_of "$name")
  mkdir -p build/log
  printf '%s ... ' "$name"
  if "$@" > "$log" 2>&1 < /dev/null; then
    printf 'done (%d s)\n' $((SECONDS - start))
  else
    printf 'FAILED (%d s)\n' $((SECONDS - start))
    tail -n 60 "$log" >&2
    return 1
  fi
}

# step NAME COMMAND...: does the same as `try`, but a failure ends the script.
step() {
  try "$@" || fail "the step '$1' failed; fix the cause and run the command again. The step's whole output is in $(log_of "$1")"
}
