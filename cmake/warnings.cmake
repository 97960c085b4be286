# Every target of ours links to this. A compiler that is newer than ours warns of things that ours does not:
# that stops a check, and nobody's build.
option(KESTRO_WARNINGS_AS_ERRORS "Stop the build at a warning; ./dev lint and .ci/run do" ON)
add_library(kestro_warnings INTERFACE)
if(MSVC)
  target_compile_options(kestro_warnings INTERFACE /W4 $<$<BOOL:${KESTRO_WARNINGS_AS_ERRORS}>:/WX>)
else()
  target_compile_options(kestro_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    -Wno-cast-function-type $<$<BOOL:${KESTRO_WARNINGS_AS_ERRORS}>:-Werror>)
endif()
