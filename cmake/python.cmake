# The Python package `qim`, as it is installed, in python/ of the build folder: its sources and what is
# compiled of it, for the distribution's own interpreter.

# A sanitizer, counters and foreign machines need an interpreter of their own.
if(CMAKE_CROSSCOMPILING OR QIM_SANITIZE OR QIM_COVERAGE OR NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  return()
endif()
set(QIM_PYTHON /usr/bin/python3 CACHE FILEPATH "The Python that the package is for")
set(Python3_EXECUTABLE ${QIM_PYTHON})
find_package(Python3 COMPONENTS Interpreter Development.Module)
if(NOT Python3_Development.Module_FOUND OR NOT EXISTS /usr/include/pybind11/pybind11.h)
  message(STATUS "No Python package: python3-dev or pybind11-dev is missing. Run scripts/setup.")
  return()
endif()

set(python_package ${CMAKE_BINARY_DIR}/python/qim)
file(GLOB python_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/bindings/python/module/*.cpp)
add_library(qim_python MODULE ${python_sources})
if(QIM_UNITY)
  set_target_properties(qim_python PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
endif()
qim_include_root(qim_python PRIVATE bindings/python/module)
target_include_directories(qim_python SYSTEM PRIVATE ${Python3_INCLUDE_DIRS})
target_compile_options(qim_python PRIVATE -O2 -g1)
target_link_libraries(qim_python PRIVATE
  qim_warnings qim_hardening qimctl_objects qimcommon rovcommon)
qim_hardened(qim_python)
# Beside the libraries of the build, of an installation, and those that a wheel carries.
set_target_properties(qim_python PROPERTIES
  PREFIX "" OUTPUT_NAME _qim SUFFIX ".${Python3_SOABI}.so" LIBRARY_OUTPUT_DIRECTORY ${python_package}
  INSTALL_RPATH "$ORIGIN/lib;$ORIGIN/../../lib;$ORIGIN/../../.." BUILD_WITH_INSTALL_RPATH ON)

file(MAKE_DIRECTORY ${python_package})
file(GLOB python_files CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/bindings/python/qim/*)
foreach(file IN LISTS python_files)
  cmake_path(GET file FILENAME name)
  file(CREATE_LINK ${file} ${python_package}/${name} SYMBOLIC)
endforeach()
