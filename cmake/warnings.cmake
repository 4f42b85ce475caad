# Compiler warnings for our own sources. A target gets them by linking this library, so that sources of other projects,
# GoogleTest for one, are compiled without them.
add_library(vantelink_warnings INTERFACE)
target_compile_options(vantelink_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Checks that what a lock guards is used under that lock, from the annotations in the sources.
  target_compile_options(vantelink_warnings INTERFACE -Wthread-safety)
endif()
option(VANTELINK_WARNINGS_ARE_ERRORS "Whether a warning fails the build" ON)
if(VANTELINK_WARNINGS_ARE_ERRORS)
  target_compile_options(vantelink_warnings INTERFACE -Werror)
endif()
