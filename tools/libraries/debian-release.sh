# shellcheck shell=bash
# Gives apt and mmdebstrap access to another Debian release than the machine's own. To be sourced.

# Writes a copy of the machine's own apt entry for its Debian release that names the requested release, to a file in
# FOLDER, and prints the path of this file. The machine's entry can be in either of apt's two formats. The status is 1
# if the machine has no such entry.
write_release_entry() {  # deb|deb-src SUITE FOLDER
  local file entry=$3/release.sources
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] || continue
    awk -v RS= -v ORS='\n\n' '/Types:.*deb/ && /Suites:[^\n]*(bookworm|stable)/ && !/-security/ && /debian/' "$file" \
      | sed -e "s/^Types:.*/Types: $1/" -e "s/^Suites:.*/Suites: $2/" -e 's/^Components:.*/Components: main/' -e '/^#/d' \
      >> "$entry"
  done
  if ! grep -q '^URIs:' "$entry" 2> /dev/null && [ -f /etc/apt/sources.list ]; then
    rm -f "$entry"
    entry=$3/release.list
    sed -n -E "s/^deb( +\[[^]]*\])? +([^ ]+) +(bookworm|stable) .*/$1\1 \2 $2 main/p" /etc/apt/sources.list \
      | head -n 1 > "$entry"
  fi
  grep -qs . "$entry" || return 1
  printf '%s\n' "$entry"
}
