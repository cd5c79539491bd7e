# The two libraries and the command-line tool. Each is built once as a static library of objects,
# which tests link to reach hidden names, and from it as the thing that is installed.
#
# Run paths are those of the installation in the build tree too: what CMake writes otherwise ends in
# an empty element, which the loader takes for the current directory.

set(QIM_FOLDERS lib ids schema node link query dbg)
set(qim_sources "")
foreach(folder IN LISTS QIM_FOLDERS)
  file(GLOB found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  list(APPEND qim_sources ${found})
endforeach()
file(GLOB rov_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/*.cpp)
file(GLOB tool_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/*.cpp)
list(REMOVE_ITEM tool_sources ${PROJECT_SOURCE_DIR}/tools/main.cpp)

find_package(Threads REQUIRED)
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

# The public headers, as a client sees them.
add_library(qim_headers INTERFACE)
target_include_directories(qim_headers INTERFACE
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/platform/include)

if(rov_sources)
  add_library(rov_objects STATIC ${rov_sources})
  target_include_directories(rov_objects PUBLIC ${PROJECT_SOURCE_DIR})
  # Files beyond 2 GiB, and directories whose positions have 64 bits, on 32-bit targets too.
  target_compile_definitions(rov_objects PUBLIC _FILE_OFFSET_BITS=64)
  target_link_libraries(rov_objects PUBLIC qim_headers lmdb Threads::Threads PRIVATE qim_warnings)

  add_library(rovcommon SHARED $<TARGET_OBJECTS:rov_objects>)
  target_link_libraries(rovcommon PUBLIC qim_headers PRIVATE lmdb Threads::Threads)
  set_target_properties(rovcommon PROPERTIES
    LINKER_LANGUAGE CXX SOVERSION 1 VERSION ${PROJECT_VERSION})
  qim_use_version_script(rovcommon ${PROJECT_SOURCE_DIR}/packaging/rovcommon.map)
  # Threads that ran in the library call back into it when they end, so it can't be unloaded.
  target_link_options(rovcommon PRIVATE LINKER:-z,nodelete)
  # Its own calls of what it exports need no look-up at run time.
  target_link_options(rovcommon PRIVATE LINKER:-Bsymbolic-functions)
endif()

if(qim_sources)
  add_library(qim_objects STATIC ${qim_sources})
  target_include_directories(qim_objects PUBLIC ${PROJECT_SOURCE_DIR})
  # Functions of the same code stay apart: debug information would describe only one of them, and
  # the description of what is exported (packaging/abi.*.xml) is made of it.
  target_compile_options(qim_objects PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics
    $<$<CXX_COMPILER_ID:GNU>:-fno-ipa-icf>)
  if(QIM_SANITIZE MATCHES undefined)
    # This check reads run-time type information, which this code has none of.
    target_compile_options(qim_objects PRIVATE -fno-sanitize=vptr)
  endif()
  # By default this compiler clears an open node's block by an instruction that takes longer to start
  # than the rest of opening one takes.
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86)$")
    target_compile_options(qim_objects PRIVATE
      -mmemset-strategy=unrolled_loop:256:noalign,libcall:-1:noalign)
  endif()
  target_link_libraries(qim_objects PUBLIC qim_headers PRIVATE qim_warnings)
endif()

if(qim_sources AND rov_sources)
  # Linked by the C driver from the bare objects and without the libraries that CMake would add for
  # their language, so that the C++ runtime can't enter; a stray reference to it is an error through
  # -z defs.
  add_library(qimcommon SHARED $<TARGET_OBJECTS:qim_objects>)
  target_link_libraries(qimcommon PUBLIC qim_headers PRIVATE rovcommon)
  set_target_properties(qimcommon PROPERTIES
    LINKER_LANGUAGE C SOVERSION 1 VERSION ${PROJECT_VERSION}
    INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
  set(qim_map ${CMAKE_BINARY_DIR}/qimcommon.map)
  qim_version_script(${PROJECT_SOURCE_DIR}/packaging/qimcommon.exports QIMCOMMON_1 ${qim_map})
  qim_use_version_script(qimcommon ${qim_map})
endif()

if(tool_sources)
  add_library(qimctl_objects STATIC ${tool_sources})
  target_include_directories(qimctl_objects PUBLIC ${PROJECT_SOURCE_DIR})
  # Mostly templates of the JSON libraries, whose full optimisation costs minutes and gains nothing
  # that anybody waits for. Where lines are counted none of it may come into ours, so none at all.
  if(QIM_COVERAGE)
    target_compile_options(qimctl_objects PRIVATE -O0 -g1)
  else()
    target_compile_options(qimctl_objects PRIVATE -O1 -g1)
  endif()
  target_link_libraries(qimctl_objects PUBLIC qim_headers PRIVATE qim_warnings)
  include(${PROJECT_SOURCE_DIR}/tools/embed_schema.cmake)
endif()

if(TARGET qimcommon AND TARGET qimctl_objects AND EXISTS ${PROJECT_SOURCE_DIR}/tools/main.cpp)
  add_executable(qimctl ${PROJECT_SOURCE_DIR}/tools/main.cpp)
  target_link_libraries(qimctl PRIVATE qim_warnings qimctl_objects qimcommon rovcommon)
  set(qimctl_rpath "$ORIGIN/../lib" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  list(REMOVE_DUPLICATES qimctl_rpath)
  set_target_properties(qimctl PROPERTIES
    INSTALL_RPATH "${qimctl_rpath}" BUILD_WITH_INSTALL_RPATH ON)
endif()
