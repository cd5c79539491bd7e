# What policies are to people and files, and qimctl, the tool.

# People wait for these where files are large. With checks in them nobody does, and full optimisation
# of the JSON libraries' templates would cost minutes. Where lines are counted none of it may come into
# ours, so none at all, and none where it runs only once or never.
if(QIM_COVERAGE OR QIM_GROWTH OR CMAKE_BUILD_TYPE STREQUAL Debug)
  set(tool_options -O0 -g1)
elseif(QIM_SANITIZE)
  set(tool_options -O1 -g1)
else()
  set(tool_options -O2 -g1)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # It takes what a short string keeps in itself for what overflows when the string grows. Others
    # look, and so does it where it optimises less.
    list(APPEND tool_options -Wno-array-bounds -Wno-stringop-overflow -Wno-restrict)
  endif()
endif()

# For what nobody waits for: options, and formats of files of some hundred lines. Elsewhere what is
# precompiled fits only what is optimised as much.
set(tool_short_options ${tool_options})
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i.86")
  list(TRANSFORM tool_short_options REPLACE "^-O2$" "-O1")
endif()

# What nearly every source includes, read once for all of them. Where lines are counted none of it
# may come into ours.
set(tool_headers <algorithm> <functional> <map> <memory> <optional> <span> <stdexcept> <string>
  <string_view> <unordered_map> <utility> <vector> <nlohmann/json_fwd.hpp>)
function(qim_precompiled target)
  if(QIM_COVERAGE)
    return()
  endif()
  if(target STREQUAL policy_base)
    target_precompile_headers(policy_base PRIVATE ${tool_headers})
  elseif(target STREQUAL qimctl_options)
    # All of its sources see the option parser, which takes longer than everything else.
    target_precompile_headers(qimctl_options PRIVATE ${tool_headers} <CLI/CLI.hpp>)
  else()
    target_precompile_headers(${target} REUSE_FROM policy_base)
  endif()
endfunction()

set(policy_layers "")
set(tool_layers "")

# A layer of either; SHORT is what is compiled quickly rather than well.
function(qim_above_layer target folder)
  cmake_parse_arguments(PARSE_ARGV 2 arg "SHORT" "" "USES")
  set(options ${tool_options})
  if(arg_SHORT)
    set(options ${tool_short_options})
  endif()
  qim_layer(${target} ${folder} USES ${arg_USES} OPTIONS ${options})
  qim_precompiled(${target})
endfunction()

# qim_policy_layer(<target> <folder> [SHORT] [USES <layer>...]), and the same for the tool's layers.
function(qim_policy_layer target folder)
  qim_above_layer(${target} ${folder} ${ARGN})
  set(policy_layers ${policy_layers} ${target} PARENT_SCOPE)
endfunction()
function(qim_tool_layer target folder)
  qim_above_layer(${target} ${folder} ${ARGN})
  set(tool_layers ${tool_layers} ${target} PARENT_SCOPE)
endfunction()

# The names and rows of the records, which are constants, are shared with the library.
qim_policy_layer(policy_base policy/base USES acl qim_headers qim_rows)
qim_policy_layer(policy_model policy/model USES policy_base)
qim_policy_layer(policy_trace policy/trace USES policy_model)
qim_policy_layer(policy_analysis policy/analysis USES policy_trace)
qim_policy_layer(policy_store policy/store USES policy_model)
qim_policy_layer(policy_change policy/change USES policy_store)
qim_policy_layer(policy_graph policy/graph SHORT USES policy_model)
qim_policy_layer(policy_explain policy/explain SHORT USES policy_store policy_trace qim_rows)
qim_policy_layer(policy_native policy/formats/native USES policy_store)
# The library of schemas alone takes as long as all other sources of the layer.
set_source_files_properties(${PROJECT_SOURCE_DIR}/policy/formats/native/validator.cpp PROPERTIES
  SKIP_UNITY_BUILD_INCLUSION ON COMPILE_OPTIONS "${tool_short_options}")
qim_policy_layer(policy_parts policy/formats/parts USES policy_model)
qim_policy_layer(policy_rfc8519 policy/formats/rfc8519 USES policy_parts)
qim_policy_layer(policy_openconfig policy/formats/openconfig SHORT USES policy_parts)
qim_policy_layer(policy_iptables policy/formats/iptables SHORT USES policy_parts)
qim_policy_layer(policy_switch_tables policy/formats/switch_tables SHORT USES policy_parts)
qim_policy_layer(policy_nft policy/formats/nft USES policy_trace)
qim_policy_layer(policy_any policy/formats/any
  USES policy_native policy_rfc8519 policy_openconfig policy_iptables policy_switch_tables
  policy_nft)
include(${PROJECT_SOURCE_DIR}/policy/formats/native/embed_schema.cmake)

qim_tool_layer(qimctl_base tools/base USES policy_base)
qim_tool_layer(qimctl_nodes tools/nodes USES qimctl_base policy_native)
qim_tool_layer(qimctl_commands tools/commands USES qimctl_nodes policy_any policy_explain
  policy_change policy_graph policy_analysis)
set_source_files_properties(${PROJECT_SOURCE_DIR}/tools/commands/version.cpp PROPERTIES
  COMPILE_DEFINITIONS QIM_TOOL_VERSION="${PROJECT_VERSION}")
qim_tool_layer(qimctl_options tools/options SHORT USES qimctl_commands)

add_library(qimctl_cli STATIC ${PROJECT_SOURCE_DIR}/tools/cli.cpp)
qim_include_root(qimctl_cli PUBLIC tools/cli.h)
target_compile_options(qimctl_cli PRIVATE ${tool_options})
target_link_libraries(qimctl_cli PUBLIC qimctl_options PRIVATE qim_warnings qim_hardening)
qim_precompiled(qimctl_cli)

qim_layers_archive(qimctl_objects acl ${policy_layers} ${tool_layers} qimctl_cli)
target_link_libraries(qimctl_objects PUBLIC qim_headers)

add_executable(qimctl ${PROJECT_SOURCE_DIR}/tools/main.cpp)
target_link_libraries(qimctl PRIVATE
  qim_warnings qim_hardening qimctl_objects qimcommon rovcommon)
qim_hardened(qimctl)
set(qimctl_rpath "$ORIGIN/../lib" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
list(REMOVE_DUPLICATES qimctl_rpath)
set_target_properties(qimctl PROPERTIES
  INSTALL_RPATH "${qimctl_rpath}" BUILD_WITH_INSTALL_RPATH ON)
