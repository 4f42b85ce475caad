# OpenSSL: the system's library for native builds; for Windows the static libraries that
# tools/libraries/build-openssl-windows builds.
if(WIN32)
  windows_library(OPENSSL_ROOT_DIR build-openssl-windows)
  # When the folder has changed, CMake must not use the results that it has cached for the earlier library.
  if(NOT "${OPENSSL_INCLUDE_DIR}" STREQUAL "${OPENSSL_ROOT_DIR}/include")
    foreach(found OPENSSL_INCLUDE_DIR LIB_EAY SSL_EAY)
      unset(${found} CACHE)
    endforeach()
  endif()
  list(APPEND CMAKE_FIND_ROOT_PATH "${OPENSSL_ROOT_DIR}")
  set(OPENSSL_USE_STATIC_LIBS ON)
endif()
find_package(OpenSSL REQUIRED)
