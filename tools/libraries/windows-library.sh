# shellcheck shell=bash
# The common part of the scripts build-*-windows, which build a library for 64-bit Windows from a Debian source
# package. Each of these scripts defines four variables and the function `build`, then sources
# this file as its last step:
#   library   the name of the source package
#   suite     the Debian release that the source package comes from
#   recipe    the number of the script's version; increase it when the build options change
#   archive   the file in lib/ whose presence means that the result is complete
#   build     a function that runs in the unpacked source and leaves include/ and lib/ in the folder $1
#
# The last line printed is the folder of the result. The result is kept in ${VANTELINK_CACHE:-$HOME/.cache/vantelink} under a
# name that holds the version, so each version is built once.
cache="${VANTELINK_CACHE:-$HOME/.cache/vantelink}"
mkdir -p "$cache"

for tool in x86_64-w64-mingw32-g++-posix nasm; do
  command -v $tool > /dev/null && continue
  printf '%s is missing; install the packages g++-mingw-w64-x86-64-posix and nasm\n' $tool >&2
  exit 1
done

# A library that was built before is used without access to the network.
known="$cache/${library:?}-windows-${suite:?}-r${recipe:?}.current"
finish_if_built() {
  if [ -f "$known" ] && [ -f "$cache/$(cat "$known")/lib/${archive:?}" ]; then
    printf '%s\n' "$cache/$(cat "$known")"
    exit 0
  fi
}
finish_if_built
exec 9> "$cache/$library-windows.lock"
flock 9
finish_if_built

work=$(mktemp -d "$cache/$library-build.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/source"
upstream=$("$(dirname "${BASH_SOURCE[0]}")/source-package" "$library" "$suite" "$work/source")
version=$(basename "$upstream" | sed -E 's/^[^_]+_([0-9.]*[0-9]).*$/\1/')
name="$library-windows-$version-r$recipe"

tar -xf "$upstream" -C "$work/source"
cd "$work/source/$library"-*/ || exit
build "$work/root" >&2
rm -rf "${cache:?}/$name"
mv "$work/root" "$cache/$name"
printf '%s\n' "$name" > "$known"
printf '%s\n' "$cache/$name"
