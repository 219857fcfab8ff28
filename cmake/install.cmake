# `cmake --install`: the library, its headers, ktctl, a pkg-config file and a
# CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS ktcomm EXPORT ktcommTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS ktctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

configure_file(cmake/ktcomm.pc.in ktcomm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ktcomm.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ktcomm)
install(EXPORT ktcommTargets NAMESPACE ktcomm:: DESTINATION ${package_dir}
        FILE ktcommTargets.cmake)
configure_package_config_file(cmake/ktcommConfig.cmake.in ktcommConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(ktcommConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ktcommConfig.cmake
              ${PROJECT_BINARY_DIR}/ktcommConfigVersion.cmake
        DESTINATION ${package_dir})
