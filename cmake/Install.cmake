include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ms)
install(TARGETS ms_static ms_shared EXPORT msTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT msTargets NAMESPACE ms:: DESTINATION ${package_dir})
install(DIRECTORY ${MS_STAGED_INCLUDE_DIR}/ms DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

configure_package_config_file(cmake/msConfig.cmake.in ${PROJECT_BINARY_DIR}/msConfig.cmake
  INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/msConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/msConfig.cmake ${PROJECT_BINARY_DIR}/msConfigVersion.cmake
  DESTINATION ${package_dir})

# The pkg-config file finds its prefix from its own place, so an installed tree can be moved.
file(RELATIVE_PATH MS_PC_PREFIX
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" MS_PC_PREFIX ${MS_PC_PREFIX})
file(RELATIVE_PATH MS_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH MS_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/ms.pc.in ${PROJECT_BINARY_DIR}/ms.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ms.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(MS_BUILD_TOOL)
  install(TARGETS mstool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
