# The storage engine as the target `lmdb`: the target system's own package where there is one, else a
# static library from the distribution's source package, which scripts/setup unpacks into .deps/.

set(QIM_LMDB_SOURCE ${PROJECT_SOURCE_DIR}/.deps/lmdb CACHE PATH
  "Sources of the storage engine, used when the target system has no package of it")

find_library(QIM_LMDB_LIBRARY lmdb
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT CMAKE_CROSSCOMPILING)
  find_library(QIM_LMDB_LIBRARY lmdb)
endif()

if(QIM_LMDB_LIBRARY)
  add_library(lmdb SHARED IMPORTED GLOBAL)
  set_target_properties(lmdb PROPERTIES IMPORTED_LOCATION ${QIM_LMDB_LIBRARY})
elseif(EXISTS ${QIM_LMDB_SOURCE}/mdb.c)
  add_library(lmdb STATIC ${QIM_LMDB_SOURCE}/mdb.c ${QIM_LMDB_SOURCE}/midl.c)
  target_include_directories(lmdb SYSTEM INTERFACE ${QIM_LMDB_SOURCE})
  # With its assertions, as the packages have it: the database answers for what they find.
  target_compile_options(lmdb PRIVATE -w -UNDEBUG)
  set_target_properties(lmdb PROPERTIES C_EXTENSIONS ON)
  find_package(Threads REQUIRED)
  target_link_libraries(lmdb PUBLIC Threads::Threads)
else()
  message(FATAL_ERROR
    "LMDB was not found for ${CMAKE_SYSTEM_PROCESSOR}, neither as a library nor as sources in "
    "${QIM_LMDB_SOURCE}. Run scripts/setup with the name of the preset.")
endif()
