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
set(programs qimctl)
foreach(process qim-enforce qimd)
  if(TARGET ${process})
    list(APPEND programs ${process})
  endif()
endforeach()
# Packages' programs have no path to the libraries beside them.
set(beside_libraries ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=$<TARGET_FILE_DIR:qimcommon>)
set(write_completion "")
foreach(program ${programs})
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/completion/${program})
  list(APPEND write_completion
    COMMAND ${beside_libraries} ${QIM_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/completion
      ${CMAKE_BINARY_DIR}/completion/${program}/words
      ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>)
endforeach()
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/man.made
  COMMAND ${beside_libraries} ${QIM_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/man ${manual_folder}
    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:qimctl>
  ${write_completion}
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/man.made
  DEPENDS ${programs} $<TARGET_NAME_IF_EXISTS:qimctl-fleet> ${manual_sources}
    ${PROJECT_SOURCE_DIR}/scripts/man
    ${PROJECT_SOURCE_DIR}/scripts/completion ${PROJECT_SOURCE_DIR}/scripts/tool_help.py
    ${PROJECT_SOURCE_DIR}/scripts/headers.py
    ${PROJECT_SOURCE_DIR}/packaging/completion/words.in
    ${PROJECT_SOURCE_DIR}/packaging/debian/changelog
  COMMENT "Writing manual pages and completion"
  VERBATIM)
add_custom_target(manual ALL DEPENDS ${CMAKE_BINARY_DIR}/man.made)

# Pages of programs that are not built stay out.
set(absent "")
foreach(process qim-enforce qimd)
  if(NOT TARGET ${process})
    list(APPEND absent PATTERN ${process}.8 EXCLUDE)
  endif()
endforeach()
if(NOT TARGET qimctl-fleet)
  list(APPEND absent PATTERN qimctl-fleet*.1 EXCLUDE PATTERN qim-fleet.7 EXCLUDE)
endif()
install(DIRECTORY ${manual_folder}/ DESTINATION ${CMAKE_INSTALL_MANDIR} ${absent})

# Each shell looks in a folder of its own; all three ask the same program.
foreach(program ${programs})
  set(completion ${CMAKE_BINARY_DIR}/completion/${program})
  string(MAKE_C_IDENTIFIER ${program} function)
  foreach(shell bash zsh fish)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/completion/${shell}.in ${completion}/${shell} @ONLY)
  endforeach()
  install(PROGRAMS ${completion}/words DESTINATION ${CMAKE_INSTALL_DATADIR}/${program} OPTIONAL)
  install(FILES ${completion}/bash RENAME ${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completion}/zsh RENAME _${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${completion}/fish RENAME ${program}.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()
