# Cross-compiles for 64-bit Windows with Debian's Clang and lld, on the headers and the runtime of
# Debian's mingw-w64 g++ (its posix flavour): a second reading of the same sources.
include("${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-w64.cmake")

# Where the g++ of that flavour keeps its runtime: clang itself would look into the first one it finds.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++.a
  OUTPUT_VARIABLE mingw_runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(mingw_runtime "${mingw_runtime}" DIRECTORY)

foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET x86_64-w64-mingw32)
endforeach()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_FLAGS_INIT
  "-Wno-unused-command-line-argument -nostdinc++ -isystem ${mingw_runtime}/include/c++ -isystem ${mingw_runtime}/include/c++/x86_64-w64-mingw32 -isystem ${mingw_runtime}/include/c++/backward")
# The binary utilities stay the cross compiler's own.
foreach(tool ar dlltool objcopy ranlib strip)
  string(TOUPPER ${tool} variable)
  set(CMAKE_${variable} /usr/bin/x86_64-w64-mingw32-${tool})
endforeach()
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${mingw_runtime} -lpthread")
endforeach()
