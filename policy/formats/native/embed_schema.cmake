# Builds the schema of the native format into the tool, so that it needs no file at run time.
set(schema_file ${PROJECT_SOURCE_DIR}/docs/native.schema.json)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${schema_file})
file(READ ${schema_file} schema_text)
set(schema_source ${CMAKE_BINARY_DIR}/generated/native_schema_text.cpp)
file(CONFIGURE OUTPUT ${schema_source} @ONLY CONTENT [[
#include "policy/formats/native/native_schema.h"

namespace qimctl {
const char* const native_schema_text = R"schema(@schema_text@)schema";
}
]])
target_sources(policy_native PRIVATE ${schema_source})
