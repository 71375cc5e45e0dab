# Installation: the shared object with its SONAME links, the public headers,
# a CMake package (find_package(larkspin) -> larkspin::larkspin) and a
# pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS larkspin EXPORT larkspinTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/larkspin DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(LARKSPIN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/larkspin)
install(EXPORT larkspinTargets NAMESPACE larkspin:: DESTINATION ${LARKSPIN_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/larkspinConfig.cmake.in
  ${PROJECT_BINARY_DIR}/larkspinConfig.cmake INSTALL_DESTINATION ${LARKSPIN_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/larkspinConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/larkspinConfig.cmake ${PROJECT_BINARY_DIR}/larkspinConfigVersion.cmake
  DESTINATION ${LARKSPIN_CMAKE_DIR})

file(RELATIVE_PATH LARKSPIN_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(${PROJECT_SOURCE_DIR}/cmake/larkspin.pc.in ${PROJECT_BINARY_DIR}/larkspin.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/larkspin.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
