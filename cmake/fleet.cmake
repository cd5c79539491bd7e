# What keeps one policy on many devices; an option, for it needs gRPC and others besides.

foreach(name grpc++ grpc gpr absl_synchronization protobuf zstd crypto)
  find_library(QIM_LIB_${name} ${name}
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_library(QIM_LIB_${name} ${name})
  if(NOT QIM_LIB_${name})
    message(FATAL_ERROR "lib${name} was not found for ${CMAKE_SYSTEM_PROCESSOR}. Run scripts/setup fleet.")
  endif()
endforeach()
find_program(QIM_PROTOC protoc)
find_program(QIM_GRPC_PLUGIN grpc_cpp_plugin)
if(NOT QIM_PROTOC OR NOT QIM_GRPC_PLUGIN)
  message(FATAL_ERROR "protoc or grpc_cpp_plugin is missing. Run scripts/setup fleet.")
endif()

# qim_generated(<target> <file> <ending>... -- <option>...): what protoc makes of a file of fleet/proto,
# as a library without our warnings, whose headers are those of a system to whoever sees them.
function(qim_generated target file endings)
  set(folder ${CMAKE_BINARY_DIR}/generated/${target})
  file(MAKE_DIRECTORY ${folder})
  set(outputs "")
  foreach(ending IN LISTS endings)
    list(APPEND outputs ${folder}/${file}${ending})
  endforeach()
  add_custom_command(OUTPUT ${outputs}
    COMMAND ${QIM_PROTOC} -I ${PROJECT_SOURCE_DIR}/fleet/proto --cpp_out=${folder} ${ARGN}
      ${PROJECT_SOURCE_DIR}/fleet/proto/${file}.proto
    DEPENDS ${PROJECT_SOURCE_DIR}/fleet/proto/${file}.proto VERBATIM)
  list(FILTER outputs INCLUDE REGEX "\\.cc$")
  add_library(${target} STATIC ${outputs})
  target_include_directories(${target} SYSTEM PUBLIC ${folder})
  target_compile_options(${target} PRIVATE -w -O1 -g0)
  target_link_libraries(${target} PUBLIC ${QIM_LIB_protobuf} Threads::Threads PRIVATE qim_hardening)
endfunction()
qim_generated(fleet_wire fleet ".pb.cc;.pb.h")
qim_generated(fleet_etcd_wire etcd ".pb.cc;.pb.h;.grpc.pb.cc;.grpc.pb.h"
  --grpc_out=${CMAKE_BINARY_DIR}/generated/fleet_etcd_wire
  --plugin=protoc-gen-grpc=${QIM_GRPC_PLUGIN})
target_link_libraries(fleet_etcd_wire PUBLIC
  ${QIM_LIB_grpc++} ${QIM_LIB_grpc} ${QIM_LIB_gpr} ${QIM_LIB_absl_synchronization})

set(fleet_layers "")
# qim_fleet_layer(<folder below fleet/> [USES <layer>...] [LIBRARIES <target>...])
function(qim_fleet_layer folder)
  qim_layer(fleet_${folder} fleet/${folder} ${ARGN} OPTIONS -O1 -g1)
  set(fleet_layers ${fleet_layers} fleet_${folder} PARENT_SCOPE)
endfunction()

qim_fleet_layer(base USES policy_base LIBRARIES ${QIM_LIB_crypto} ${QIM_LIB_zstd})
qim_fleet_layer(proto USES fleet_base LIBRARIES fleet_wire)
qim_fleet_layer(etcd USES fleet_base LIBRARIES fleet_etcd_wire)
qim_fleet_layer(state USES fleet_base policy_store)
qim_fleet_layer(agent USES fleet_proto fleet_etcd fleet_state)
qim_fleet_layer(publish USES fleet_proto fleet_etcd fleet_state policy_change)
qim_fleet_layer(tool USES fleet_publish qimctl_options)

# All of it with what it uses of the policy layers, for programs and tests: these link it before the two
# shared libraries.
qim_layers_archive(fleet_objects acl ${policy_layers} ${tool_layers} ${fleet_layers})
target_link_libraries(fleet_objects PUBLIC
  qim_headers fleet_wire fleet_etcd_wire ${QIM_LIB_crypto} ${QIM_LIB_zstd})

# qimd, the agent of a device.
if(NOT TARGET process_base)
  message(FATAL_ERROR "libsystemd was not found. Run scripts/setup fleet.")
endif()
qim_layer(qimd_process processes/qimd USES fleet_agent process_base LIBRARIES Threads::Threads OPTIONS -O1 -g1)
set_source_files_properties(${PROJECT_SOURCE_DIR}/processes/qimd/options.cpp PROPERTIES
  COMPILE_DEFINITIONS QIMD_VERSION="${PROJECT_VERSION}")
qim_layers_archive(qimd_objects process_base qimd_process)
target_link_libraries(qimd_objects PUBLIC ${QIM_LIB_systemd})
add_executable(qimd ${PROJECT_SOURCE_DIR}/processes/qimd_main.cpp)
qim_include_root(qimd PRIVATE processes/qimd_main.cpp)
target_link_libraries(qimd PRIVATE
  qim_warnings qim_hardening qimd_objects fleet_objects qimcommon rovcommon)
set_target_properties(qimd PROPERTIES
  INSTALL_RPATH "${qimctl_rpath}" BUILD_WITH_INSTALL_RPATH ON)
qim_hardened(qimd)
install(TARGETS qimd)
configure_file(${PROJECT_SOURCE_DIR}/packaging/qimd.service.in
  ${CMAKE_BINARY_DIR}/packaging/qimd.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/qimd.service
  DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
install(FILES ${PROJECT_SOURCE_DIR}/docs/qimd.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The tool's commands for it: a program of its own, so that the tool itself starts without gRPC.
add_executable(qimctl-fleet ${PROJECT_SOURCE_DIR}/fleet/main.cpp)
target_link_libraries(qimctl-fleet PRIVATE
  qim_warnings qim_hardening fleet_objects qimcommon rovcommon)
qim_hardened(qimctl-fleet)
set_target_properties(qimctl-fleet PROPERTIES
  INSTALL_RPATH "${qimctl_rpath}" BUILD_WITH_INSTALL_RPATH ON)
install(TARGETS qimctl-fleet)
