# A build against other fmt headers only proves the code; it installs nothing.
if(NY80211_FMT_HEADERS)
  return()
endif()

include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ny80211)
install(TARGETS ny80211 ${NY80211_PLATFORM_TARGETS} EXPORT ny80211Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ny80211-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/include/ny80211/Version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ny80211)
install(EXPORT ny80211Targets NAMESPACE ny80211:: DESTINATION ${config_dir})

configure_package_config_file(cmake/ny80211Config.cmake.in
  ${PROJECT_BINARY_DIR}/ny80211Config.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ny80211ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ny80211Config.cmake
              ${PROJECT_BINARY_DIR}/ny80211ConfigVersion.cmake
        DESTINATION ${config_dir})

# The .pc file finds the prefix relative to itself, so that the tree can move.
file(RELATIVE_PATH pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/ny80211.pc.in ${PROJECT_BINARY_DIR}/ny80211.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ny80211.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
