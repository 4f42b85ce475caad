# shellcheck shell=bash
# The choice of the Wine of a desk. To be sourced by tools/desk, whose variables and function `fail` it uses.

# Selects the Wine that VANTELINK_WINE names: sets `wine_programs`, `template` and PATH.
choose_wine() {
  local folder
  case ${VANTELINK_WINE:-} in
    '') ;;
    10)
      folder=$("$(dirname "${BASH_SOURCE[0]}")/build-wine10")
      # shellcheck disable=SC2034,SC2154  # variables of tools/desk
      template=$cache/$(basename "$folder")-template-r1
      wine_programs=$folder/bin
      PATH=$wine_programs:$PATH ;;
    *) fail "VANTELINK_WINE can only be 10, not $VANTELINK_WINE" ;;
  esac
}

# Changes what Wine 10 has and the machine's Wine has not, so that tests find one kind of desk: an H.264 encoder, which a
# test registers if it wants it, another folder for temporary files, and higher captions of windows.
make_like_the_machines_wine() {  # PREFIX
  local name home
  timeout 60 wine regsvr32 /u /s mfh264enc.dll || return 1
  home=$(dirname "$(echo "$1"/drive_c/users/*/AppData)")
  mkdir "$home/Temp"
  # The path is complete, because the environment that Wine makes for the child of a service does not expand it.
  for name in TEMP TMP; do
    timeout 60 wine reg add 'HKCU\Environment' /v $name /d "C:\\users\\${home##*/}\\Temp" /f || return 1
  done
  timeout 60 wine reg add 'HKCU\Control Panel\Desktop\WindowMetrics' /v CaptionHeight /d -270 /f  # 18 pixels
}
