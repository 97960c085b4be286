# Run by CPack: packs what was staged. CPack's own archives list files as the file system happens to
# return them; here two builds of one commit give the same bytes: sorted names, one time, no owner.
set(archive "${CPACK_PACKAGE_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}${CPACK_EXTERNAL_SUFFIX}")
set(folder "${CPACK_PACKAGE_FILE_NAME}")
get_filename_component(staged "${CPACK_TEMPORARY_DIRECTORY}" DIRECTORY)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  message(FATAL_ERROR "SOURCE_DATE_EPOCH is not set; ./dev package sets it to the commit's time")
endif()
file(REMOVE "${archive}")

if(CPACK_EXTERNAL_SUFFIX STREQUAL ".zip")
  set(pack "find ${folder} -exec touch -h -d @$SOURCE_DATE_EPOCH {} + && \
            find ${folder} -print | LC_ALL=C sort | TZ=UTC zip -q -X -9 -@ '${archive}'")
else()
  set(pack "tar --sort=name --mtime=@$SOURCE_DATE_EPOCH --owner=0 --group=0 --numeric-owner \
            --format=gnu -c ${folder} | gzip -9n >'${archive}'")
endif()
execute_process(COMMAND bash -c "set -o pipefail; ${pack}" WORKING_DIRECTORY "${staged}"
  COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_EXTERNAL_BUILT_PACKAGES "${archive}")
