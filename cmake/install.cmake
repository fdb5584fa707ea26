# What `cmake --install` puts under the prefix: the shared library, the public
# headers, the exported CMake target orx::orx with orxConfig.cmake and its
# version file, and orx.pc for pkg-config.  Everything that names a place
# names it relative to the installed files, so a tree installed with
# --prefix DIR works wherever DIR is.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ORX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orx)

set_target_properties(orx PROPERTIES EXPORT_NAME orx)
install(TARGETS orx EXPORT orxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT orxTargets NAMESPACE orx:: DESTINATION ${ORX_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orxConfig.cmake INSTALL_DESTINATION ${ORX_CMAKE_DIR})
# A 0.x release keeps its interface within the same major version, as the
# soname says.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orxConfig.cmake ${PROJECT_BINARY_DIR}/orxConfigVersion.cmake
  DESTINATION ${ORX_CMAKE_DIR})

# pkg-config: the prefix is found from the .pc file's own place.
set(ORX_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH ORX_PC_TO_PREFIX ${CMAKE_INSTALL_PREFIX}/${ORX_PC_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ORX_PC_TO_PREFIX "${ORX_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/orx.pc.in ${PROJECT_BINARY_DIR}/orx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orx.pc DESTINATION ${ORX_PC_DIR})
