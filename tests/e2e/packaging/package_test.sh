#!/usr/bin/env bash
# Tests packaging/make-package: its packages match their manifest and checksums and have the same bytes each time.
# Another program verifies their signatures, also that of the uninstaller. A wrong call makes no package.
set -euo pipefail
source_tree=$(cd "$(dirname "$0")/../../.." && pwd)
tools=$source_tree/packaging
agent=$source_tree/build/windows/VantelinkAgent.exe
relay=$(sed -n 's/^VANTELINK_DEFAULT_SERVER_HOST:STRING=//p' "$source_tree/build/windows/CMakeCache.txt")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

key=$work/update-key.pem
package() { "$tools/make-package" --update-key "$key" "$@"; }

failures=0
expect() {  # NAME COMMAND...
  if "${@:2}" > "$work/said" 2>&1; then printf 'ok      %s\n' "$1"; else
    printf 'FAILED  %s\n' "$1"; tail -n 20 "$work/said"; failures=$((failures + 1))
  fi
}

# Makes a second package from a copy of the executable with another time, name and folder, in another time zone and
# locale, and compares it with the first.
made_again() {
  cp "$agent" "$work/copy.exe"
  touch -d '2001-02-03' "$work/copy.exe"
  (cd / && TZ=Atlantic/Reykjavik LC_ALL=C package --agent "$work/copy.exe" --relay "$relay" --version 1.2.3 --out "$work/again/deeper")
  diff -r "$work/first" "$work/again/deeper"
}
# Two builds of one commit would differ if the executable contained the time (in the PE header) or folder of its build.
no_time_or_folder() {
  [ "$(od -A n -t u4 -j $((0x$(od -A n -t x4 -j 60 -N 4 "$agent" | tr -d ' ') + 8)) -N 4 "$agent" | tr -d ' ')" = 0 ] \
    && ! grep -qF "$source_tree" "$agent"
}
# OpenSSL would read a configuration from its compiled-in folders. All of them have to be the agent's own.
openssl_folders_are_the_agents() {
  local folders
  folders=$(grep -aoE '[A-Za-z]:/[ -~]*(SSL|engines|modules)|/openssl/[ -~]*' "$agent" | sort -u)
  [ -n "$folders" ] && ! grep -v '^C:/Program Files/Maravek/Vantelink/OpenSSL' <<< "$folders"
}
checksums_hold() {
  [ "$(wc -l < "$work/first/SHA256SUMS")" = 4 ] && (cd "$work/first" && sha256sum -c SHA256SUMS)
}
manifest_names_the_installer() {
  [ "$(< "$work/first/version.json")" = '{"agent_version":"1.2.3","agent_file":"VantelinkSetup-1.2.3.exe"}' ] \
    && [ -f "$work/first/VantelinkSetup-1.2.3.exe" ]
}

# OpenSSL alone verifies the signature of the list, and each file has the size and hash in it.
list_verifies() {
  local name file list=$work/first/version.json.signed
  head -n 1 "$list" | tr -d '\n' > "$work/line"
  sed -n 2p "$list" | base64 -d > "$work/signature"
  openssl pkeyutl -verify -pubin -inkey "${key%.pem}.pub.pem" -rawin -in "$work/line" -sigfile "$work/signature" || return 1
  for name in version.json VantelinkSetup-1.2.3.exe; do
    file=$work/first/$name
    grep -qF "{\"name\":\"$name\",\"bytes\":$(stat -c %s "$file"),\"sha256\":\"$(sha256sum < "$file" | cut -d ' ' -f 1)\"}" \
      "$work/line" || return 1
  done
  grep -q '"version":"1.2.3"' "$work/line"
}
key_is_private() { [ "$(stat -c %a "$key")" = 600 ] && ! grep -q PRIVATE "${key%.pem}.pub.pem"; }
key_is_not_replaced() {
  cp "$key" "$work/before.pem"
  ! "$tools/make-update-key" "$key" && cmp "$key" "$work/before.pem"
}
open_key_is_refused() {
  install -m 640 "$key" "$work/open.pem"
  refuses --agent "$agent" --relay "$relay" --version 1.2.3 --update-key "$work/open.pem"
}

make_certificate() {
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=Test' -addext extendedKeyUsage=codeSigning \
    -keyout "$work/key.pem" -out "$work/certificate.pem"
  cat "$work/certificate.pem" "$work/key.pem" > "$work/both.pem"
  openssl pkcs12 -export -passout pass:'a b"c' -inkey "$work/key.pem" -in "$work/certificate.pem" -out "$work/both.p12"
}
verifies() { osslsigncode verify -CAfile "$work/certificate.pem" -in "$1"; }
both_verify() { verifies "$1/VantelinkAgent.exe" && verifies "$1/VantelinkSetup-1.2.3.exe"; }
changed_fails() {
  cp "$work/pem/VantelinkAgent.exe" "$work/changed.exe"
  printf 'x' | dd of="$work/changed.exe" bs=1 seek=5000 conv=notrunc
  ! verifies "$work/changed.exe"
}
# The installer unpacks the signed executable and a signed uninstaller.
installed_files_verify() {
  local desk folder
  desk=$("$source_tree/tools/desk" start --owner $$)
  folder="$desk/prefix/drive_c/Program Files/Maravek/Vantelink"
  timeout 60 "$source_tree/tools/desk" exec "$desk" "$work/pem/VantelinkSetup-1.2.3.exe" /S
  cp "$folder/VantelinkAgent.exe" "$folder/Uninstall.exe" "$work"
  "$source_tree/tools/desk" stop "$desk"
  cmp "$work/VantelinkAgent.exe" "$work/pem/VantelinkAgent.exe" && verifies "$work/Uninstall.exe"
}

refuses() {
  ! package --out "$work/refused" "$@" && [ ! -e "$work/refused" ]
}

expect 'a key for updates is made' "$tools/make-update-key" "$key"
expect 'only its owner can read the key' key_is_private
expect 'a second call does not replace the key' key_is_not_replaced

expect 'a package is made' package --agent "$agent" --relay "$relay" --version 1.2.3 --out "$work/first"
expect 'the manifest names the installer' manifest_names_the_installer
expect 'the checksums hold' checksums_hold
expect 'the signed list verifies and fits the files' list_verifies
expect 'a second package has the same bytes' made_again

expect 'the executable contains neither its build time nor its build folder' no_time_or_folder
expect "OpenSSL's folders in the executable are the agent's own" openssl_folders_are_the_agents
expect 'the executable and the installer have the flags of the protections' \
  "$source_tree/tests/tools/image_flags_test.sh" --flags-only "$work/first/VantelinkAgent.exe" "$work/first/VantelinkSetup-1.2.3.exe"

expect 'a test certificate is made' make_certificate
expect 'a package is signed with a PEM file' package --agent "$agent" --relay "$relay" --version 1.2.3 --out "$work/pem" --sign-with "$work/both.pem"
expect 'signatures made with the PEM file verify' both_verify "$work/pem"
expect 'the signature of a changed file does not verify' changed_fails
expect 'the installed files are signed' installed_files_verify
expect 'a package is signed with a PKCS#12 file that has a password' env VANTELINK_SIGN_PASSWORD='a b"c' \
  "$tools/make-package" --update-key "$key" --agent "$agent" --relay "$relay" --version 1.2.3 --out "$work/p12" --sign-with "$work/both.p12"
expect 'signatures made with the PKCS#12 file verify' both_verify "$work/p12"

expect 'a wrong password is refused' refuses --agent "$agent" --relay "$relay" --version 1.2.3 --sign-with "$work/both.p12"
expect 'a version that is not numeric is refused' refuses --agent "$agent" --relay "$relay" --version 1.x
expect 'a missing executable is refused' refuses --agent "$work/none.exe" --relay "$relay" --version 1.2.3
expect 'a key for updates that others can read is refused' open_key_is_refused
expect 'a missing key for updates is refused' refuses --agent "$agent" --relay "$relay" --version 1.2.3 --update-key "$work/none.pem"
expect 'a missing certificate is refused' refuses --agent "$agent" --relay "$relay" --version 1.2.3 --sign-with "$work/none.pem"
expect 'a relay whose name the agent does not contain is refused' refuses --agent "$agent" --relay other.example --version 1.2.3
expect 'a call without a version is refused' refuses --agent "$agent" --relay "$relay"

[ $failures = 0 ] || { echo "$failures checks failed"; exit 1; }
