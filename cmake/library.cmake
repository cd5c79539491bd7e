# libqimcommon: its layers, from the lowest up, and the shared library.

# Functions of the same code stay apart: debug information would describe only one of them, and the
# description of what is exported (packaging/abi.*.xml) is made of it.
set(qim_options -fno-exceptions -fno-rtti -fno-threadsafe-statics
  $<$<CXX_COMPILER_ID:GNU>:-fno-ipa-icf>)
if(QIM_SANITIZE MATCHES undefined)
  # These checks read run-time type information, which this code has none of.
  list(APPEND qim_options -fno-sanitize=vptr $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
endif()
# By default this compiler clears an open node's block by an instruction that takes longer to start
# than the rest of opening one takes.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86)$")
  list(APPEND qim_options -mmemset-strategy=unrolled_loop:256:noalign,libcall:-1:noalign)
endif()

set(qim_layers "")

# qim_library_layer(<folder> [USES <folder>...]); a slash in a folder's name is a line in its target's.
function(qim_library_layer folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "USES")
  string(REPLACE "/" "_" name ${folder})
  list(TRANSFORM arg_USES PREPEND qim_)
  # What is exported is described source by source (packaging/abi.*.xml).
  qim_layer(qim_${name} ${folder} USES qim_headers ${arg_USES} OPTIONS ${qim_options} APART)
  list(APPEND qim_layers qim_${name})
  set(qim_layers ${qim_layers} PARENT_SCOPE)
endfunction()

qim_library_layer(lib)
qim_library_layer(ids USES lib)
qim_library_layer(schema USES lib)
qim_library_layer(link USES ids schema)
qim_library_layer(node USES link)
qim_library_layer(query USES node)
qim_library_layer(dbg USES ids schema)
qim_library_layer(lib/start USES dbg)

qim_layers_archive(qim_objects ${qim_layers})
target_link_libraries(qim_objects PUBLIC qim_headers)

# Linked by the C driver from the bare objects and without the libraries that CMake would add for
# their language, so that the C++ runtime can't enter; a stray reference to it is an error through
# -z defs.
list(TRANSFORM qim_layers REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE qim_parts)
# Its own copy of two functions whose names other libraries have, too: whichever of them a process
# loads first, this library calls neither.
add_library(qim_platform OBJECT ${PROJECT_SOURCE_DIR}/database/memory/platform.cpp)
target_compile_options(qim_platform PRIVATE ${qim_options})
target_link_libraries(qim_platform PRIVATE rov_headers qim_warnings qim_hardening)
add_library(qimcommon SHARED ${qim_parts} $<TARGET_OBJECTS:qim_platform>)
# Given as a file, so that those who link this library look for the other one at its own place.
target_link_libraries(qimcommon PUBLIC qim_headers
  PRIVATE $<TARGET_LINKER_FILE:rovcommon_unversioned>)
add_dependencies(qimcommon rovcommon rovcommon_unversioned)
set_target_properties(qimcommon PROPERTIES
  LINKER_LANGUAGE C SOVERSION 1 VERSION ${PROJECT_VERSION}
  INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
set(qim_map ${CMAKE_BINARY_DIR}/qimcommon.map)
qim_version_script(${PROJECT_SOURCE_DIR}/packaging/qimcommon.exports QIMCOMMON_1 ${qim_map})
qim_hardened(qimcommon)
qim_use_version_script(qimcommon ${qim_map})
