# The warning options for this project's code. They are an interface library, so that third-party code is compiled
# without them.
add_library(vantelink_warnings INTERFACE)
target_compile_options(vantelink_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion)
# Clang checks the thread-safety annotations of agent/platform/threads/mutex.h. A violation is an error in every clang build.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(vantelink_warnings INTERFACE -Wthread-safety -Werror=thread-safety)
endif()
option(VANTELINK_WARNINGS_ARE_ERRORS "Fail the build on a warning" ON)
if(VANTELINK_WARNINGS_ARE_ERRORS)
  target_compile_options(vantelink_warnings INTERFACE -Werror)
endif()
