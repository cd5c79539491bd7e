# What `make install` puts where: headers, libraries, the tool and the pkg-config files.

foreach(target qimcommon rovcommon qimctl)
  if(TARGET ${target})
    install(TARGETS ${target})
  endif()
endforeach()

foreach(folder include database/include)
  if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qim FILES_MATCHING PATTERN "*.h")
  endif()
endforeach()

foreach(library qimcommon rovcommon)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/${library}.pc.in
    ${CMAKE_BINARY_DIR}/packaging/${library}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
