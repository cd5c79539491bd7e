# Processes that act on policy. Each needs libraries of the system that not every target has; where one
# of them is missing the process is left out.

# What they have in common needs the service manager's library.
find_library(QIM_LIB_systemd systemd
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT QIM_LIB_systemd)
  message(STATUS "No process is built: there is no libsystemd for this target")
  return()
endif()
qim_layer(process_base processes/base USES policy_base
  LIBRARIES ${QIM_LIB_systemd} OPTIONS ${tool_options})

set(enforce_libraries ${QIM_LIB_systemd})
foreach(library nftables nftnl mnl)
  find_library(QIM_LIB_${library} ${library}
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT QIM_LIB_${library})
    message(STATUS "qim-enforce is left out: there is no lib${library} for this target")
    return()
  endif()
  list(APPEND enforce_libraries ${QIM_LIB_${library}})
endforeach()

qim_layer(enforce_process processes/enforce USES policy_nft policy_store process_base
  LIBRARIES ${enforce_libraries} OPTIONS ${tool_options})

add_executable(qim-enforce ${PROJECT_SOURCE_DIR}/processes/enforce_main.cpp)
qim_include_root(qim-enforce PRIVATE processes/enforce_main.cpp)
qim_layers_archive(enforce_objects acl policy_base policy_model policy_trace policy_nft policy_store
  process_base enforce_process)
target_link_libraries(qim-enforce PRIVATE qim_warnings qim_hardening enforce_objects ${enforce_libraries}
  qim_headers qimcommon rovcommon)
set_target_properties(qim-enforce PROPERTIES
  INSTALL_RPATH "${qimctl_rpath}" BUILD_WITH_INSTALL_RPATH ON)
qim_hardened(qim-enforce)
