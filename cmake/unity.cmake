# Most of a file's compile time is that of the headers it shares with its neighbours: a target's files go
# through the compiler in groups. Off for tools that read the commands file by file.
option(KESTRO_UNITY "Compile the files of a target in groups" ON)
function(kestro_compile_in_groups_of size)
  set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ${KESTRO_UNITY} UNITY_BUILD_BATCH_SIZE ${size})
endfunction()
