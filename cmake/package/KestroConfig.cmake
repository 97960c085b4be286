# find_package(Kestro) gives
#   Kestro::Kestro     Kestro.dll with its import library, and kestro.h
#   Kestro::Companion  kestro.hpp: header-only, C++20, loads Kestro.dll at run time
get_filename_component(_kestro_root "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

if(NOT (WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 8))
  set(Kestro_FOUND FALSE)
  set(Kestro_NOT_FOUND_MESSAGE "Kestro is for 64-bit Windows programs only.")
  return()
endif()

if(NOT TARGET Kestro::Kestro)
  add_library(Kestro::Kestro SHARED IMPORTED)
  set_target_properties(Kestro::Kestro PROPERTIES
    IMPORTED_LOCATION "${_kestro_root}/bin/Kestro.dll"
    INTERFACE_INCLUDE_DIRECTORIES "${_kestro_root}/include")
  if(MINGW)
    set_target_properties(Kestro::Kestro PROPERTIES
      IMPORTED_IMPLIB "${_kestro_root}/lib/libKestro.dll.a")
  else()
    set_target_properties(Kestro::Kestro PROPERTIES IMPORTED_IMPLIB "${_kestro_root}/lib/Kestro.lib")
  endif()

  add_library(Kestro::Companion INTERFACE IMPORTED)
  set_target_properties(Kestro::Companion PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${_kestro_root}/include"
    INTERFACE_COMPILE_FEATURES cxx_std_20
    INTERFACE_LINK_LIBRARIES ole32)
endif()
unset(_kestro_root)
