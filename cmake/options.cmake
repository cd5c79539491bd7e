# Switches of the build and the flags they stand for.

set(QIM_SANITIZE "" CACHE STRING "Sanitizers for everything built, as in -fsanitize=")
option(QIM_TESTS "Build the tests" OFF)
option(QIM_BENCH "Build the benchmarks" OFF)
option(QIM_COVERAGE "Count executed lines and branches" OFF)
option(QIM_FUZZ "Make everything ready for fuzzers, and build these" OFF)
option(QIM_UNITY "Compile the sources of a layer as one, which takes half as long" ON)
option(QIM_FLEET "Build what keeps one policy on many devices" OFF)
option(QIM_GROWTH "Build what tries the field and the node type that scripts/try-growth adds" OFF)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/archive)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

find_program(QIM_CCACHE ccache)
if(QIM_CCACHE)
  foreach(lang C CXX)
    if(NOT CMAKE_${lang}_COMPILER_LAUNCHER)
      set(CMAKE_${lang}_COMPILER_LAUNCHER ${QIM_CCACHE})
    endif()
  endforeach()
endif()

if(QIM_SANITIZE)
  add_compile_options(-fsanitize=${QIM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QIM_SANITIZE})
endif()
if(QIM_SANITIZE MATCHES address AND CMAKE_CXX_COMPILER_ID STREQUAL Clang AND NOT QIM_FUZZ)
  # This compiler's checks lie in programs only unless told otherwise, and a shared library that is
  # linked by itself would miss them.
  set(qim_checks libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${qim_checks}
    OUTPUT_VARIABLE qim_checks OUTPUT_STRIP_TRAILING_WHITESPACE)
  cmake_path(GET qim_checks PARENT_PATH qim_checks)
  add_link_options(-shared-libasan LINKER:-rpath,${qim_checks})
  add_compile_options(-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/checked-elsewhere.list)
endif()
if(QIM_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(QIM_COVERAGE)
  # Nothing is counted of what comes from outside and of the tests themselves: it would make every
  # program that is built here larger, and slower to end.
  add_compile_options(--coverage -fprofile-update=atomic
    "-fprofile-exclude-files=^/usr/|^(${PROJECT_SOURCE_DIR}|[./]+)/tests/")
  add_link_options(--coverage)
endif()

# Our own targets link this; third-party code that is compiled here does not.
add_library(qim_warnings INTERFACE)
target_compile_options(qim_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wpedantic -Werror)
# Among sources that are compiled as one, a local name that a neighbour has too is no mistake. One by
# one they are all seen by the second compiler.
target_compile_options(qim_warnings INTERFACE
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow>)
if(QIM_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # The checks' own code leads gcc's flow analysis to false alarms, in the standard library above all.
  target_compile_options(qim_warnings INTERFACE -Wno-error=maybe-uninitialized)
endif()

# What makes a mistake harder to use for an attacker, in all that is installed: canaries on the stack,
# checks of lengths where the compiler knows them, and, where the processor has them, targets of
# indirect jumps and a second stack for return addresses. Checks of a sanitizer are stricter, and stand
# in the way of the second.
add_library(qim_hardening INTERFACE)
if(NOT QIM_SANITIZE)
  target_compile_options(qim_hardening INTERFACE -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i.86")
    target_compile_options(qim_hardening INTERFACE -fcf-protection)
  endif()
endif()

# qim_hardened(<target>): what is linked: all names are looked up at its start, and what was looked up
# can't be written to afterwards. A program lies somewhere else each time.
function(qim_hardened target)
  target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now,-z,noexecstack)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    target_link_options(${target} PRIVATE -pie)
  endif()
endfunction()
