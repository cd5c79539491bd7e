# librovcommon: its layers, from the lowest up, and the shared library.

set(rov_layers "")

# qim_database_layer(<folder below database/> [USES <such folder>...] [LIBRARIES <target>...])
function(qim_database_layer folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "USES;LIBRARIES")
  list(TRANSFORM arg_USES PREPEND rov_)
  qim_layer(rov_${folder} database/${folder}
    USES rov_headers ${arg_USES} LIBRARIES ${arg_LIBRARIES} Threads::Threads)
  # What a thread has of its own are some words, which fit into the room that the loader keeps for
  # libraries that are opened later, so they are found without a call: a read looks at them dozens of
  # times.
  target_compile_options(rov_${folder} PRIVATE -ftls-model=initial-exec)
  # Files beyond 2 GiB, and directories whose positions have 64 bits, on 32-bit targets too.
  target_compile_definitions(rov_${folder} PUBLIC _FILE_OFFSET_BITS=64)
  list(APPEND rov_layers rov_${folder})
  set(rov_layers ${rov_layers} PARENT_SCOPE)
endfunction()

qim_database_layer(base)
qim_database_layer(memory)
qim_database_layer(codec USES base memory)
qim_database_layer(handle USES base)
qim_database_layer(record USES base)
qim_database_layer(file USES record)
qim_database_layer(store USES handle file LIBRARIES lmdb)
qim_database_layer(graph USES store)
qim_database_layer(session USES graph)
qim_database_layer(entry USES session codec)

# Tests put an allocator that refuses in its place.
set_source_files_properties(${PROJECT_SOURCE_DIR}/database/store/arena.cpp PROPERTIES
  SKIP_UNITY_BUILD_INCLUSION ON)

qim_layers_archive(rov_objects ${rov_layers})
target_link_libraries(rov_objects PUBLIC rov_headers lmdb Threads::Threads)

list(TRANSFORM rov_layers REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE rov_parts)
add_library(rovcommon SHARED ${rov_parts})
target_link_libraries(rovcommon PUBLIC rov_headers PRIVATE lmdb Threads::Threads)
set_target_properties(rovcommon PROPERTIES
  LINKER_LANGUAGE CXX SOVERSION 1 VERSION ${PROJECT_VERSION})
qim_hardened(rovcommon)
set(rov_exports ${PROJECT_SOURCE_DIR}/packaging/rovcommon.exports)
set(rov_map ${CMAKE_BINARY_DIR}/rovcommon.map)
qim_version_script(${rov_exports} ROVCOMMON_1 ${rov_map})
qim_use_version_script(rovcommon ${rov_map})
# Threads that ran in the library call back into it when they end, so it can't be unloaded.
target_link_options(rovcommon PRIVATE LINKER:-z,nodelete)
# Its own calls of what it exports need no look-up at run time.
target_link_options(rovcommon PRIVATE LINKER:-Bsymbolic-functions)

# What libqimcommon is linked against: the same names by the same library name, but without versions.
# Clients ask for the versions that they were linked with; libqimcommon must load against any library
# of this interface, and one of another version, or of none, would be refused or warned about.
file(STRINGS ${rov_exports} names REGEX "^[A-Za-z_]")
set(stand_ins "")
foreach(name IN LISTS names)
  string(APPEND stand_ins "void ${name}(void);\nvoid ${name}(void) {}\n")
endforeach()
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/unversioned/rovcommon.c CONTENT "${stand_ins}" @ONLY)
add_library(rovcommon_unversioned SHARED ${CMAKE_BINARY_DIR}/unversioned/rovcommon.c)
set_target_properties(rovcommon_unversioned PROPERTIES
  OUTPUT_NAME rovcommon SOVERSION 1 C_VISIBILITY_PRESET default
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/unversioned)
