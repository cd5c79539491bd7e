# The products: the libraries and the tool. Each is built once as static libraries, one a layer,
# which tests link to reach hidden names, and from their objects as the thing that is installed.
#
# Run paths are those of the installation in the build tree too: what CMake writes otherwise ends in
# an empty element, which the loader takes for the current directory.

find_package(Threads REQUIRED)
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

# The public headers: those of the database, which knows of the library only the records that both
# share, and all of them, as a client sees them.
add_library(rov_headers INTERFACE)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/roots/rov_headers)
file(CREATE_LINK ${PROJECT_SOURCE_DIR}/include/rov_types.h
  ${CMAKE_BINARY_DIR}/roots/rov_headers/rov_types.h SYMBOLIC)
target_include_directories(rov_headers INTERFACE
  ${PROJECT_SOURCE_DIR}/database/include ${CMAKE_BINARY_DIR}/roots/rov_headers)
add_library(qim_headers INTERFACE)
target_include_directories(qim_headers INTERFACE
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/database/include)

# What others than the library may know of its inside: the rows that describe the records.
add_library(qim_rows INTERFACE)
qim_include_root(qim_rows INTERFACE
  schema/rows.h schema/row_checks.h schema/names.h schema/args_field.h)

include(database)
include(library)
include(acl)
include(tool)
include(processes)
include(python)
