# What `make install` puts where: headers, libraries, the tool, and what build systems find them by.

foreach(target qimcommon rovcommon acl qimctl)
  if(TARGET ${target})
    install(TARGETS ${target})
  endif()
endforeach()

if(TARGET qim-enforce)
  install(TARGETS qim-enforce)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/qim-enforce.service.in
    ${CMAKE_BINARY_DIR}/packaging/qim-enforce.service @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/qim-enforce.service
    DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/enforce.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()

# What editors know policy files by, and programs what the tool prints to them.
install(FILES ${PROJECT_SOURCE_DIR}/docs/native.schema.json ${PROJECT_SOURCE_DIR}/docs/catalog.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/qimctl)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/schemas DESTINATION ${CMAKE_INSTALL_DATADIR}/qimctl)

foreach(folder include database/include)
  if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qim FILES_MATCHING PATTERN "*.h")
  endif()
endforeach()

# A library folder has one part, or two where it is that of an architecture.
file(RELATIVE_PATH up_to_prefix
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
foreach(library qimcommon rovcommon qimacl)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/${library}.pc.in
    ${CMAKE_BINARY_DIR}/packaging/${library}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# Only when asked for, as component `python`, where the distribution has its packages of Python.
if(TARGET qim_python)
  install(TARGETS qim_python COMPONENT python EXCLUDE_FROM_ALL
    LIBRARY DESTINATION lib/python3/dist-packages/qim)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/bindings/python/qim/ COMPONENT python EXCLUDE_FROM_ALL
    DESTINATION lib/python3/dist-packages/qim)
endif()

# It finds the rest from its own place, as the pkg-config files do.
include(CMakePackageConfigHelpers)
set(package ${CMAKE_BINARY_DIR}/packaging)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/qimcommon)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/qimcommon-config.cmake.in
  ${package}/qimcommon-config.cmake INSTALL_DESTINATION ${package_folder}
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${package}/qimcommon-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${package}/qimcommon-config.cmake ${package}/qimcommon-config-version.cmake
  DESTINATION ${package_folder})
