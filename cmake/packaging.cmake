# What `./dev package` puts into the two archives. The Windows build packs what a host programmer needs;
# the native build packs the embedded platform together with the Windows build's programs.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(package_files "${PROJECT_SOURCE_DIR}/cmake/package")

# install_notice(LIBRARY PACKAGE): the licence of what is linked in, as Debian gives it.
function(install_notice library package)
  install(FILES "/usr/share/doc/${package}/copyright" DESTINATION licences RENAME "${library}.txt"
    COMPONENT runtime)
endfunction()

if(WIN32)
  install(TARGETS Kestro RUNTIME DESTINATION bin COMPONENT runtime
    ARCHIVE DESTINATION lib COMPONENT development)
  install(TARGETS kestro RUNTIME DESTINATION bin COMPONENT runtime)
  install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/LICENCES.md"
    "${PROJECT_SOURCE_DIR}/CHANGELOG.md" DESTINATION . COMPONENT runtime)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" DESTINATION . COMPONENT runtime
    FILES_MATCHING PATTERN "*.md" PATTERN "*.json")
  install_notice(mingw-w64 mingw-w64-common)
  install_notice(gcc gcc-mingw-w64-base)
  install_notice(CLI11 libcli11-dev)
  install_notice(nlohmann-json nlohmann-json3-dev)

  # For link.exe and lld-link: short import records, which the GNU tools do not write.
  find_program(KESTRO_LLVM_DLLTOOL llvm-dlltool)
  if(KESTRO_LLVM_DLLTOOL)
    set(import_library "${PROJECT_BINARY_DIR}/lib/Kestro.lib")
    set(definition "${PROJECT_SOURCE_DIR}/src/exports/kestro.def")
    add_custom_command(OUTPUT "${import_library}"
      COMMAND "${KESTRO_LLVM_DLLTOOL}" -m i386:x86-64 -D Kestro.dll -d "${definition}"
              -l "${import_library}"
      DEPENDS "${definition}" Kestro VERBATIM)
    add_custom_target(link_import_library ALL DEPENDS "${import_library}")
  endif()
  install(FILES "${PROJECT_BINARY_DIR}/lib/Kestro.lib" DESTINATION lib COMPONENT development)

  install(DIRECTORY "${PROJECT_SOURCE_DIR}/include" DESTINATION . COMPONENT development)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples" DESTINATION . COMPONENT development
    PATTERN "demo.sh" EXCLUDE PATTERN "fleet" EXCLUDE PATTERN "container" EXCLUDE)
  install(FILES $<TARGET_FILE:Kestro>.debug $<TARGET_FILE:kestro>.debug DESTINATION bin
    COMPONENT development)
  install(FILES "${package_files}/README.md" DESTINATION . COMPONENT development)

  include(CMakePackageConfigHelpers)
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/KestroConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
  install(FILES "${package_files}/KestroConfig.cmake"
    "${PROJECT_BINARY_DIR}/KestroConfigVersion.cmake"
    DESTINATION lib/cmake/Kestro COMPONENT development)

  set(CPACK_EXTERNAL_SUFFIX .zip)
  set(CPACK_PACKAGE_FILE_NAME "kestro-${PROJECT_VERSION}-windows-x64")
else()
  install(DIRECTORY "${PROJECT_BINARY_DIR}/wine" DESTINATION . USE_SOURCE_PERMISSIONS COMPONENT runtime)
  install(CODE "execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-unneeded
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/wine/x86_64-unix/dismapi.dll.so\"
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/wine/x86_64-unix/kestro-imagefs\"
    COMMAND_ERROR_IS_FATAL ANY)" COMPONENT runtime)
  install(PROGRAMS "${PROJECT_SOURCE_DIR}/platform/kestro-wine" DESTINATION bin COMPONENT runtime)
  install(PROGRAMS "${package_files}/set-up" DESTINATION . COMPONENT runtime)
  install(FILES "${package_files}/README-wine.md" DESTINATION . RENAME README.md COMPONENT runtime)
  install_notice(libwim libwim-dev)
  install_notice(openssl libssl-dev)
  install_notice(seccomp libseccomp-dev)
  install_notice(cap-ng libcap-ng-dev)

  set(CPACK_EXTERNAL_SUFFIX .tar.gz)
  set(CPACK_PACKAGE_FILE_NAME "kestro-${PROJECT_VERSION}-wine")
  set(CPACK_INSTALL_CMAKE_PROJECTS
    "${PROJECT_BINARY_DIR};Kestro;runtime;/"
    "${PROJECT_SOURCE_DIR}/build/release;Kestro;runtime;/")
endif()

set(CPACK_GENERATOR External)
set(CPACK_MONOLITHIC_INSTALL YES)
set(CPACK_EXTERNAL_ENABLE_STAGING YES)
set(CPACK_EXTERNAL_PACKAGE_SCRIPT "${package_files}/archive.cmake")
set(CPACK_PACKAGE_VENDOR "The Kestro developers")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_SOURCE_DIR}/build/packages")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_VERBATIM_VARIABLES YES)
include(CPack)
