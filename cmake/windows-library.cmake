# Sets the variable `result` to the folder of a library for Windows, which a script of tools/ builds once and keeps.
# It is asked at each configuring, so that a tree follows when the library becomes another.
function(windows_library result script)
  execute_process(
    COMMAND "${CMAKE_SOURCE_DIR}/tools/${script}"
    OUTPUT_VARIABLE root OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_VARIABLE log RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "tools/${script} failed:\n${log}")
  endif()
  set(${result} "${root}" PARENT_SCOPE)
endfunction()
