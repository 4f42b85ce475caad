# Sets the variable that `result` names to the folder of a library for Windows. A script in tools/libraries/ builds the
# library unless it was built before. The script runs each time CMake configures, so a build tree picks up a new version of the library.
function(windows_library result script)
  execute_process(
    COMMAND "${CMAKE_SOURCE_DIR}/tools/libraries/${script}"
    OUTPUT_VARIABLE root OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_VARIABLE log RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "tools/libraries/${script} failed:\n${log}")
  endif()
  set(${result} "${root}" PARENT_SCOPE)
endfunction()
