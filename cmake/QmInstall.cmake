# Install rules, the CMake package and the pkg-config file.

include(CMakePackageConfigHelpers)

install(TARGETS qmstorageaccess EXPORT QuelmarinStorageAccessTargets
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")

install(DIRECTORY coreapi storage qmactivexctrl DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/quelmarin" FILES_MATCHING PATTERN "*.h")

install(EXPORT QuelmarinStorageAccessTargets
  NAMESPACE Quelmarin::
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/QuelmarinStorageAccess")

configure_package_config_file(cmake/QuelmarinStorageAccessConfig.cmake.in
  "${CMAKE_CURRENT_BINARY_DIR}/QuelmarinStorageAccessConfig.cmake"
  INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/QuelmarinStorageAccess")
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/QuelmarinStorageAccessConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  cmake/FindMp3Lame.cmake
  "${CMAKE_CURRENT_BINARY_DIR}/QuelmarinStorageAccessConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/QuelmarinStorageAccessConfigVersion.cmake"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/QuelmarinStorageAccess")

configure_file(packaging/quelmarin-storage-access.pc.in
  "${CMAKE_CURRENT_BINARY_DIR}/quelmarin-storage-access.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/quelmarin-storage-access.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
