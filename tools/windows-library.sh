# What the scripts that build a library for 64-bit Windows from the distribution's own source package share. Such a
# script sets `library`, `suite`, `recipe` (raised when its options change: part of the cache's key) and `archive` (the
# file in lib/ that tells a whole result), defines `build`, which is run in the unpacked source and leaves include/ and
# lib/ in the folder $1, and sources this file last.
#
# Prints the result's folder on its last line. It is kept under ${VANTELINK_CACHE:-$HOME/.cache/vantelink}, keyed by
# version, and is built once for each version.
cache="${VANTELINK_CACHE:-$HOME/.cache/vantelink}"
mkdir -p "$cache"

for tool in x86_64-w64-mingw32-g++-posix nasm; do
  command -v $tool > /dev/null && continue
  printf '%s is missing; install the packages g++-mingw-w64-x86-64-posix and nasm\n' $tool >&2
  exit 1
done

# An earlier result is used without a look at the network.
known="$cache/$library-windows-$suite-r$recipe.current"
finish_if_built() {
  if [ -f "$known" ] && [ -f "$cache/$(cat "$known")/lib/$archive" ]; then
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
cd "$work/source/$library"-*/
build "$work/root" >&2
rm -rf "${cache:?}/$name"
mv "$work/root" "$cache/$name"
printf '%s\n' "$name" > "$known"
printf '%s\n' "$cache/$name"
