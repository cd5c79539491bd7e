# Layers: a layer is a folder, a target, and an include root.
#
# Sources name a header by its path from the top of the tree, "database/store/snapshot.h", and find it
# only when their own layer, or one that it uses, is the one that holds it: what a target puts on the
# search path is not the tree but a root of its own, in the build tree, that holds a link to its
# folder and nothing else.

# qim_include_root(<target> <PUBLIC|INTERFACE> <path>...): makes files or folders, given from the top
# of the tree, known to the target by these paths.
function(qim_include_root target scope)
  set(root ${CMAKE_BINARY_DIR}/roots/${target})
  foreach(path IN LISTS ARGN)
    cmake_path(GET path PARENT_PATH parent)
    file(MAKE_DIRECTORY ${root}/${parent})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${path} ${root}/${path} SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${scope} ${root})
  if(QIM_COVERAGE)
    # Counters tell where a file is, not how it was found, whether it was named from the top of the
    # file system or from the folder in which compilers run.
    foreach(found ${root} roots/${target})
      target_compile_options(${target} ${scope} -ffile-prefix-map=${found}/=${PROJECT_SOURCE_DIR}/)
    endforeach()
  endif()
endfunction()

# The description of all layers, "<target> <folder> <used target>..." a line, for those who draw or
# check it.
set(QIM_LAYERS_FILE ${CMAKE_BINARY_DIR}/layers.txt)
file(WRITE ${QIM_LAYERS_FILE} "")

# qim_layer(<target> <folder> [USES <layer>...] [LIBRARIES <target>...] [OPTIONS <option>...] [APART])
# The sources of a folder as a static library that sees the layers it uses, and what these use.
# LIBRARIES are what it needs besides, unseen by those who use it. With QIM_UNITY they are compiled as
# one, unless APART says otherwise: names of a file's own must differ from those of its neighbours.
function(qim_layer target folder)
  cmake_parse_arguments(PARSE_ARGV 2 arg "APART" "" "USES;LIBRARIES;OPTIONS")
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT sources)
    message(FATAL_ERROR "The layer ${target} has no sources in ${folder}")
  endif()
  add_library(${target} STATIC ${sources})
  if(QIM_UNITY AND NOT arg_APART)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  endif()
  qim_include_root(${target} PUBLIC ${folder})
  target_compile_options(${target} PRIVATE ${arg_OPTIONS})
  target_link_libraries(${target} PUBLIC ${arg_USES} PRIVATE ${arg_LIBRARIES} qim_warnings qim_hardening)
  list(JOIN arg_USES " " uses)
  file(APPEND ${QIM_LAYERS_FILE} "${target} ${folder} ${uses}\n")
endfunction()

# qim_layers_archive(<target> <layer>...): all objects of several layers as one static library, for
# those who link what lies below a layer from somewhere else, and see all that these layers see.
function(qim_layers_archive target)
  set(objects "")
  add_library(${target} STATIC)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  foreach(layer IN LISTS ARGN)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${layer}>)
    foreach(what INCLUDE_DIRECTORIES COMPILE_OPTIONS COMPILE_DEFINITIONS)
      set_property(TARGET ${target} APPEND PROPERTY
        INTERFACE_${what} $<TARGET_PROPERTY:${layer},INTERFACE_${what}>)
    endforeach()
  endforeach()
endfunction()
