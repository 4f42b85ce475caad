# OpenH264 as the static library that tools/build-openh264-windows keeps, for the doubles of the tests.
if(NOT DEFINED VANTELINK_OPENH264)
  execute_process(
    COMMAND "${CMAKE_SOURCE_DIR}/tools/build-openh264-windows"
    OUTPUT_VARIABLE openh264_root OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_VARIABLE openh264_log RESULT_VARIABLE openh264_result)
  if(NOT openh264_result EQUAL 0)
    message(FATAL_ERROR "tools/build-openh264-windows failed:\n${openh264_log}")
  endif()
  set(VANTELINK_OPENH264 "${openh264_root}" CACHE PATH "OpenH264 for Windows")
endif()
add_library(openh264 STATIC IMPORTED)
set_target_properties(openh264 PROPERTIES
  IMPORTED_LOCATION "${VANTELINK_OPENH264}/lib/libopenh264.a"
  INTERFACE_INCLUDE_DIRECTORIES "${VANTELINK_OPENH264}/include")
