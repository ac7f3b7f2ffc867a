# What `cmake --install` puts in place: libraries, headers, the tool (by its own
# folder), the message file, manual pages, pkg-config files and a CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS zvrdb zvrco zvrtask EXPORT zvrdb-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/messages/zvr.msg DESTINATION ${CMAKE_INSTALL_DATADIR}/zvrdb)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/zvradm.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/zvrdb.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)

file(RELATIVE_PATH zvr_prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(library zvrdb zvrco zvrtask)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

set(zvr_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zvrdb)
install(EXPORT zvrdb-targets NAMESPACE zvrdb:: FILE zvrdbTargets.cmake DESTINATION ${zvr_package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zvrdbConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zvrdbConfig.cmake INSTALL_DESTINATION ${zvr_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zvrdbConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zvrdbConfig.cmake ${PROJECT_BINARY_DIR}/zvrdbConfigVersion.cmake
  DESTINATION ${zvr_package_dir})

# The installed tool finds its libraries beside it, wherever the tree is moved.
file(RELATIVE_PATH zvr_lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(zvradm PROPERTIES INSTALL_RPATH "$ORIGIN/${zvr_lib_from_bin}")
set_target_properties(zvrdb PROPERTIES INSTALL_RPATH "$ORIGIN")
