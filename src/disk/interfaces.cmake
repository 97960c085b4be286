# The disk service's interfaces as a C++ header, for the library, its stand-in and the tests alike.
find_program(KESTRO_WIDL x86_64-w64-mingw32-widl REQUIRED)
set(vds_include "${PROJECT_BINARY_DIR}/generated")
file(MAKE_DIRECTORY "${vds_include}")
add_custom_command(OUTPUT "${vds_include}/vds_interfaces.h"
  COMMAND "${KESTRO_WIDL}" -I/usr/include/wine/wine/windows -h -o "${vds_include}/vds_interfaces.h"
          "${PROJECT_SOURCE_DIR}/src/disk/vds.idl"
  DEPENDS "${PROJECT_SOURCE_DIR}/src/disk/vds.idl" VERBATIM)
add_custom_target(vds_interfaces_header DEPENDS "${vds_include}/vds_interfaces.h")

add_library(vds_interfaces INTERFACE)
add_dependencies(vds_interfaces vds_interfaces_header)
target_include_directories(vds_interfaces SYSTEM INTERFACE "${vds_include}")
