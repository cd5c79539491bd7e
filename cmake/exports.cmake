# Version scripts from lists of exported names.

# qim_version_script(<list of names> <version node> <output>): one name per line; lines that begin
# with # are comments.
function(qim_version_script names_file node output)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${names_file})
  file(STRINGS ${names_file} names REGEX "^[A-Za-z_]")
  set(globals "")
  foreach(name IN LISTS names)
    string(APPEND globals "    ${name};\n")
  endforeach()
  if(globals)
    string(PREPEND globals "  global:\n")
  endif()
  file(CONFIGURE OUTPUT ${output} CONTENT "${node} {\n${globals}  local:\n    *;\n};\n" @ONLY)
endfunction()

# qim_use_version_script(<target> <script>)
function(qim_use_version_script target script)
  target_link_options(${target} PRIVATE
    "LINKER:--version-script=${script}" LINKER:-z,defs LINKER:--enable-new-dtags)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()
