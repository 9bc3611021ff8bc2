# What `cmake --install` puts where. Components: the tool and the library as every host wants them, each with a part that
# depends on whether a package is made ("tool-local", or "tool-debian" and "library-debian" in Package.cmake).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS tarnwick RUNTIME COMPONENT tool)
if(TARNWICK_PLATFORM STREQUAL "Linux")
    install(TARGETS networksetup RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT tool)
endif()
install(FILES Packaging/completions/tarnwick.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tarnwick COMPONENT tool)
install(FILES Packaging/completions/tarnwick.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tool)
install(FILES docs/events.schema.json docs/leases.schema.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/tarnwick COMPONENT tool)

install(FILES Packaging/completions/_tarnwick
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tool-local)
foreach(page ${TARNWICK_MANUAL})
    get_filename_component(section ${page} LAST_EXT)
    string(SUBSTRING ${section} 1 1 section)
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT tool-local)
endforeach()

install(TARGETS DHCPCore EXPORT DHCPCore ARCHIVE COMPONENT library)
install(DIRECTORY Sources/DHCPCore TYPE INCLUDE COMPONENT library
    FILES_MATCHING PATTERN "*.hpp" PATTERN Linux EXCLUDE PATTERN Darwin EXCLUDE)
install(FILES Examples/CMakeLists.txt Examples/device.cpp Examples/monitor.cpp
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/dhcpcore/examples COMPONENT library)

set(TARNWICK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/DHCPCore)
install(EXPORT DHCPCore NAMESPACE DHCPCore:: DESTINATION ${TARNWICK_CMAKE_DIR} COMPONENT library)
configure_package_config_file(cmake/DHCPCoreConfig.cmake.in ${PROJECT_BINARY_DIR}/DHCPCoreConfig.cmake
    INSTALL_DESTINATION ${TARNWICK_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
# Before 1.0, every minor version may change what the headers say.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/DHCPCoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/DHCPCoreConfig.cmake ${PROJECT_BINARY_DIR}/DHCPCoreConfigVersion.cmake
    DESTINATION ${TARNWICK_CMAKE_DIR} COMPONENT library)
