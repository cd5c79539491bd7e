# Manual pages, from the tool's help, the headers' comments and docs/, and what the shells complete. They
# are what the sources say, on every target: builds with checks or counters go without.

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
  COMMAND ${QIM_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/completion ${CMAKE_BINARY_DIR}/words
    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:qimctl>
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/man.made
  DEPENDS qimctl ${manual_sources} ${PROJECT_SOURCE_DIR}/scripts/man
    ${PROJECT_SOURCE_DIR}/scripts/completion ${PROJECT_SOURCE_DIR}/scripts/tool_help.py
    ${PROJECT_SOURCE_DIR}/packaging/completion/words.in
    ${PROJECT_SOURCE_DIR}/packaging/debian/changelog
  COMMENT "Writing manual pages and completion"
  VERBATIM)
add_custom_target(manual ALL DEPENDS ${CMAKE_BINARY_DIR}/man.made)

set(absent "")
foreach(process qim-enforce qimd)
  if(NOT TARGET ${process})
    list(APPEND absent PATTERN ${process}.8 EXCLUDE)
  endif()
endforeach()
install(DIRECTORY ${manual_folder}/ DESTINATION ${CMAKE_INSTALL_MANDIR} ${absent})

# Each shell looks in a folder of its own; all three ask the same program.
set(completion ${PROJECT_SOURCE_DIR}/packaging/completion)
install(PROGRAMS ${CMAKE_BINARY_DIR}/words DESTINATION ${CMAKE_INSTALL_DATADIR}/qimctl OPTIONAL)
install(FILES ${completion}/qimctl.bash RENAME qimctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${completion}/_qimctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES ${completion}/qimctl.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
