# OpenH264 for tests/doubles: the static library that tools/libraries/build-openh264-windows builds.
windows_library(openh264_root build-openh264-windows)
add_library(openh264 STATIC IMPORTED GLOBAL)
set_target_properties(openh264 PROPERTIES
  IMPORTED_LOCATION "${openh264_root}/lib/libopenh264.a"
  INTERFACE_INCLUDE_DIRECTORIES "${openh264_root}/include")
