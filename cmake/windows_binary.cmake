# What Kestro.dll and kestro.exe have in common: where they end up, their version resource, and in a
# release build the debug symbols beside the stripped file.
function(kestro_windows_binary target)
  cmake_parse_arguments(ARG "" "FILETYPE;FILENAME;DESCRIPTION" "" ${ARGN})

  set(KESTRO_FILETYPE "${ARG_FILETYPE}")
  set(KESTRO_FILENAME "${ARG_FILENAME}")
  set(KESTRO_DESCRIPTION "${ARG_DESCRIPTION}")
  configure_file("${PROJECT_SOURCE_DIR}/src/exports/version.rc.in" "${target}_version.rc" @ONLY)
  target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")

  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin"
    ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

  if(MINGW)
    # The runtime is linked in, so that nothing has to lie beside the file.
    # Builds of one commit are the same bytes: no times, no folders of the machine.
    target_compile_options(${target} PRIVATE -g -ffunction-sections -fdata-sections
                                             "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=kestro")
    target_link_options(${target} PRIVATE -static -Wl,--gc-sections -Wl,--no-insert-timestamp
                                          -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
    if(CMAKE_BUILD_TYPE STREQUAL "Release")
      add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --only-keep-debug $<TARGET_FILE:${target}>
                $<TARGET_FILE:${target}>.debug
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --strip-all
                --add-gnu-debuglink=$<TARGET_FILE:${target}>.debug $<TARGET_FILE:${target}>
        VERBATIM)
    endif()
  endif()
endfunction()
