# What `cpack` makes: two Debian packages, the tool and the library's headers.
if(NOT TARNWICK_PLATFORM STREQUAL "Linux")
    return()
endif()

set(debian ${PROJECT_BINARY_DIR}/debian)
set(TARNWICK_MAINTAINER "Tarnwick maintainers <maintainers@tarnwick.invalid>" CACHE STRING "Who answers for a package")

# The package's own change log, in Debian's form, from the paragraph of this version in ours.
set(TARNWICK_CHANGELOG_COMMAND
    ${CMAKE_COMMAND} -E env "MAINTAINER=${TARNWICK_MAINTAINER}" SOURCE_DATE_EPOCH=${TARNWICK_RELEASE_TIME}
    ${PROJECT_SOURCE_DIR}/Packaging/Debian/changelog ${PROJECT_VERSION}
)
foreach(package tarnwick libdhcpcore-dev)
    file(MAKE_DIRECTORY ${debian}/${package})
    add_custom_command(
        OUTPUT ${debian}/${package}/changelog.gz
        COMMAND ${TARNWICK_CHANGELOG_COMMAND} ${package} > ${debian}/${package}/changelog
        COMMAND gzip -9 -n -k -f ${debian}/${package}/changelog
        DEPENDS CHANGELOG.md Packaging/Debian/changelog Sources/DHCPCore/DHCPCore.hpp
        VERBATIM
    )
    list(APPEND TARNWICK_CHANGELOGS ${debian}/${package}/changelog.gz)
endforeach()
add_custom_target(debian_changelogs ALL DEPENDS ${TARNWICK_CHANGELOGS})

foreach(pair "tool-debian;tarnwick" "library-debian;libdhcpcore-dev")
    list(GET pair 0 component)
    list(GET pair 1 package)
    install(FILES ${debian}/${package}/changelog.gz Packaging/Debian/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
install(FILES Packaging/completions/_tarnwick
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tool-debian EXCLUDE_FROM_ALL)
foreach(page ${TARNWICK_COMPRESSED_MANUAL})
    string(REGEX MATCH "([0-9])\\.gz$" section ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${CMAKE_MATCH_1}
        COMPONENT tool-debian EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "DHCP server for one card of a lab host")
set(CPACK_PACKAGE_CONTACT ${TARNWICK_MAINTAINER})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/StripPackage.cmake)
set(CPACK_COMPONENTS_ALL tool tool-debian library library-debian)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENT_TOOL_GROUP tarnwick)
set(CPACK_COMPONENT_TOOL-DEBIAN_GROUP tarnwick)
set(CPACK_COMPONENT_LIBRARY_GROUP libdhcpcore-dev)
set(CPACK_COMPONENT_LIBRARY-DEBIAN_GROUP libdhcpcore-dev)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_TARNWICK_PACKAGE_NAME tarnwick)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_DEPENDS libcap2-bin)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_RECOMMENDS procps)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_SUGGESTS "jq, pkexec")
set(CPACK_DEBIAN_TARNWICK_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/Packaging/Debian/postinst)
set(CPACK_DEBIAN_TARNWICK_DESCRIPTION
"Plug a device under test into one wired card, run tarnwick, and see at once
what happens on the cable: every packet, decision and problem is a line of
text or JSON. It hands out addresses of a small pool on that card only,
remembers leases in a JSON file, asks before it gives an address of an offline
device to another one, and tells which devices are present.

It examines the host before it serves, and prints the one command that sets
the card up; that command, networksetup, is part of this package.")

set(CPACK_DEBIAN_LIBDHCPCORE-DEV_PACKAGE_NAME libdhcpcore-dev)
set(CPACK_DEBIAN_LIBDHCPCORE-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBDHCPCORE-DEV_PACKAGE_DEPENDS "libfmt-dev, nlohmann-json3-dev")
set(CPACK_DEBIAN_LIBDHCPCORE-DEV_PACKAGE_SUGGESTS "cmake")
set(CPACK_DEBIAN_LIBDHCPCORE-DEV_DESCRIPTION
"DHCPCore is all of tarnwick but its command line: the wire format of DHCP, the
lease table and its file, the decisions, the server with its stream of events,
and the examination of the host. A graphical front end stands on it.

This package holds the static library, its headers, a CMake package and two
examples.")

include(CPack)
