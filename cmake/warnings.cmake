# Warnings of our own code, as an interface library so that other people's code is compiled without them.
add_library(vantelink_warnings INTERFACE)
target_compile_options(vantelink_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion)
option(VANTELINK_WARNINGS_ARE_ERRORS "Fail the build on a warning" ON)
if(VANTELINK_WARNINGS_ARE_ERRORS)
  target_compile_options(vantelink_warnings INTERFACE -Werror)
endif()
