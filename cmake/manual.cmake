# Manual pages, from the tool's help, the headers' comments and docs/. They are what the sources say, on
# every target: builds with checks or counters go without.

find_program(QIM_PYTHON python3)
if(QIM_SANITIZE OR QIM_COVERAGE OR NOT QIM_PYTHON OR NOT TARGET qimctl)
  return()
endif()

set(manual_folder ${CMAKE_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${manual_folder})
file(GLOB manual_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h
  ${PROJECT_SOURCE_DIR}/database/include/*.h ${PROJECT_SOURCE_DIR}/docs/*.md)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/man.made
  COMMAND ${QIM_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/man ${manual_folder}
    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:qimctl>
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/man.made
  DEPENDS qimctl ${manual_sources} ${PROJECT_SOURCE_DIR}/scripts/man
    ${PROJECT_SOURCE_DIR}/packaging/debian/changelog
  COMMENT "Writing manual pages"
  VERBATIM)
add_custom_target(manual ALL DEPENDS ${CMAKE_BINARY_DIR}/man.made)

set(absent "")
foreach(process qim-enforce qimd)
  if(NOT TARGET ${process})
    list(APPEND absent PATTERN ${process}.8 EXCLUDE)
  endif()
endforeach()
install(DIRECTORY ${manual_folder}/ DESTINATION ${CMAKE_INSTALL_MANDIR} ${absent})
