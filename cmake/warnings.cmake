# Every target of ours links to this.
add_library(kestro_warnings INTERFACE)
if(MSVC)
  target_compile_options(kestro_warnings INTERFACE /W4 /WX)
else()
  target_compile_options(kestro_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                                   -Wno-cast-function-type -Werror)
endif()
