# OpenSSL: the system's for native builds; for Windows the static libraries that tools/build-openssl-windows keeps.
if(WIN32)
  if(NOT DEFINED OPENSSL_ROOT_DIR)
    execute_process(
      COMMAND "${CMAKE_SOURCE_DIR}/tools/build-openssl-windows"
      OUTPUT_VARIABLE openssl_root OUTPUT_STRIP_TRAILING_WHITESPACE
      ERROR_VARIABLE openssl_log RESULT_VARIABLE openssl_result)
    if(NOT openssl_result EQUAL 0)
      message(FATAL_ERROR "tools/build-openssl-windows failed:\n${openssl_log}")
    endif()
    set(OPENSSL_ROOT_DIR "${openssl_root}" CACHE PATH "OpenSSL for Windows")
  endif()
  list(APPEND CMAKE_FIND_ROOT_PATH "${OPENSSL_ROOT_DIR}")
  set(OPENSSL_USE_STATIC_LIBS ON)
endif()
find_package(OpenSSL REQUIRED)
