#!/usr/bin/env bash
# Tests the Debian package of the relay in a fresh Debian system: it is installed, started by its unit's command line,
# upgraded, removed and purged. The system is a folder; network and processes are the test's own.
set -euo pipefail
source_tree=$(cd "$(dirname "$0")/../../.." && pwd)
program=$source_tree/build/host/vantelink-relay

# The package's scripts make users, which only the superuser can, also in a namespace.
[ "$(id -u)" = 0 ] || { echo 'the test needs the superuser; it is left out'; exit 77; }
if [ "${1:-}" != inside ]; then
  unshare --mount --net --pid --fork true || { echo 'the test needs namespaces of its own; it is left out'; exit 77; }
  archive=$("$source_tree/tools/libraries/build-debian-root")
  exec unshare --mount --net --pid --fork --kill-child "$0" inside "$archive"
fi
archive=$2
work=$(mktemp -d)
trap 'kill $(jobs -p) 2> /dev/null || true; umount "$work/root/proc" 2> /dev/null || true; rm -rf "$work"' EXIT
ip link set lo up
root=$work/root
mkdir "$root"
tar -C "$root" -xf "$archive"
mount -t proc proc "$root/proc"
echo '127.0.0.1 localhost' > "$root/etc/hosts"

failures=0
expect() {  # NAME COMMAND...
  if "${@:2}" > "$work/said" 2>&1; then printf 'ok      %s\n' "$1"; else
    printf 'FAILED  %s\n' "$1"; tail -n 20 "$work/said"; failures=$((failures + 1))
  fi
}
package() { "$source_tree/packaging/relay/make-relay-package" --program "$program" "$@"; }
in_root() { DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"; }
install_package() { cp "$work/$1/vantelink-relay_$2_amd64.deb" "$root/tmp/relay.deb" && in_root dpkg -i /tmp/relay.deb; }

unit() { sed -n "s/^$1=//p" "$root/lib/systemd/system/vantelink-relay.service"; }
# Runs a command with the user and the rights that the unit gives to the service.
one_right='-all,+net_bind_service'
as_service=(chroot "$root" setpriv --reuid=vantelink-relay --regid=vantelink-relay --clear-groups --no-new-privs
  --bounding-set="$one_right" --inh-caps="$one_right" --ambient-caps="$one_right")
start() {
  # shellcheck disable=SC2046  # the words of the command line
  "${as_service[@]}" $(unit ExecStart) > "$work/log" 2>&1 &
  relay=$!
  for _ in $(seq 600); do
    if grep -q 'listening on' "$work/log"; then return 0; fi
    kill -0 "$relay" 2> /dev/null || break
    sleep 0.1
  done
  cat "$work/log"
  return 1
}
stop() { kill -TERM "$relay" && wait "$relay"; }
# The status of a request, with a body for a POST.
status_of() {  # PATH [JSON]
  python3 - "$@" <<'PYTHON'
import ssl, sys, urllib.error, urllib.request
context = ssl.create_default_context()
context.check_hostname = False
context.verify_mode = ssl.CERT_NONE
body = sys.argv[2].encode() if len(sys.argv) > 2 else None
request = urllib.request.Request('https://localhost' + sys.argv[1], body, {'Origin': 'https://localhost'})
try:
    print(urllib.request.urlopen(request, context=context).status)
except urllib.error.HTTPError as error:
    print(error.code)
PYTHON
}

same_bytes_again() {
  package --version 1.0.0 --out "$work/again" && cmp "$work/one/vantelink-relay_1.0.0_amd64.deb" "$work/again/vantelink-relay_1.0.0_amd64.deb"
}
has_mode() { [ "$(in_root stat -c '%a %U:%G' "$1")" = "$2" ]; }
files_are_there() {
  in_root vantelink-relay --version \
    && has_mode /usr/bin/vantelink-relay '755 root:root' \
    && has_mode /var/lib/vantelink-relay '700 vantelink-relay:vantelink-relay' \
    && has_mode /etc/vantelink-relay/relay.conf '640 root:vantelink-relay' \
    && grep -q '^port = 443$' "$root/etc/vantelink-relay/relay.conf" \
    && [ -f "$root/usr/share/man/man8/vantelink-relay.8.gz" ]
}
# A relay that runs notices a new person within a second.
log_in_works() {
  for _ in $(seq 50); do
    if [ "$(status_of /api/login '{"name":"anna","password":"correct horse battery"}')" = 200 ]; then return 0; fi
    sleep 0.2
  done
  return 1
}
add_anna() { echo 'correct horse battery' | "${as_service[@]}" vantelink-relay --data /var/lib/vantelink-relay --add-user anna; }
nothing_is_wrong() { "${as_service[@]}" vantelink-relay check --config /etc/vantelink-relay/relay.conf --data /var/lib/vantelink-relay; }
change_settings() { sed -i 's/^#consent = .*/consent = 45/' "$root/etc/vantelink-relay/relay.conf"; }
settings_are_kept() { grep -q '^consent = 45$' "$root/etc/vantelink-relay/relay.conf"; }
program_is_gone() { [ ! -e "$root/usr/bin/vantelink-relay" ]; }
data_is_kept() { [ -s "$root/var/lib/vantelink-relay/relay.db" ] && settings_are_kept; }
nothing_is_left() {
  [ -z "$(find "$root" -xdev -path "$root/proc" -prune -o -name '*vantelink*' ! -path '*/var/lib/dpkg/*' -print)" ] \
    && ! in_root getent passwd vantelink-relay
}

package --version 1.0.0 --out "$work/one" > /dev/null
package --version 1.0.1 --out "$work/two" > /dev/null
expect 'the same program gives the same package' same_bytes_again
expect 'it is installed without other packages' install_package one 1.0.0
expect 'program, settings, data folder and manual are there' files_are_there
expect 'the unit starts it on port 443' start
expect 'it makes a one-time password' test -s "$root/var/lib/vantelink-relay/first-password"
expect 'the console is in the program' test "$(status_of /)" = 200
expect 'a person is added' add_anna
expect 'the person logs in' log_in_works
expect 'nothing is wrong with the set-up' nothing_is_wrong
expect 'settings are changed' change_settings
expect 'it stops' stop
expect 'it is upgraded' install_package two 1.0.1
expect 'the settings are kept' settings_are_kept
expect 'the new program starts' start
expect 'the data is kept' log_in_works
expect 'the new program stops' stop
expect 'it is removed' in_root dpkg -r vantelink-relay
expect 'the program is gone' program_is_gone
expect 'data and settings are kept' data_is_kept
expect 'it is purged' in_root dpkg -P vantelink-relay
expect 'nothing is left' nothing_is_left
if command -v systemd-analyze > /dev/null; then
  systemd-analyze security --no-pager --offline=yes "$source_tree/packaging/relay/debian/vantelink-relay.service" | tail -n 1
fi
exit $((failures > 0))
