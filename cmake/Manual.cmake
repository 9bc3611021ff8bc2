# The manual pages, from their plain sources in docs/manual/. Without scdoc there are none, and all else is built.
execute_process(
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/release-time
    OUTPUT_VARIABLE TARNWICK_RELEASE_TIME OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY
)

set(TARNWICK_PAGES tarnwick.8 leases.json.5)
if(TARNWICK_PLATFORM STREQUAL "Linux")
    list(APPEND TARNWICK_PAGES networksetup.8)
endif()

set(TARNWICK_MANUAL)
set(TARNWICK_COMPRESSED_MANUAL)
find_program(TARNWICK_SCDOC scdoc)
if(TARNWICK_SCDOC)
    foreach(page ${TARNWICK_PAGES})
        set(source ${PROJECT_SOURCE_DIR}/docs/manual/${page}.scd)
        set(built ${PROJECT_BINARY_DIR}/manual/${page})
        add_custom_command(
            OUTPUT ${built} ${built}.gz
            COMMAND ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=${TARNWICK_RELEASE_TIME}
                    ${PROJECT_SOURCE_DIR}/scripts/make-page < ${source} > ${built}
            COMMAND gzip -9 -n -k -f ${built}
            DEPENDS ${source} ${PROJECT_SOURCE_DIR}/scripts/make-page
            VERBATIM
        )
        list(APPEND TARNWICK_MANUAL ${built})
        list(APPEND TARNWICK_COMPRESSED_MANUAL ${built}.gz)
    endforeach()
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/manual)
    add_custom_target(manual ALL DEPENDS ${TARNWICK_MANUAL})
else()
    message(STATUS "scdoc is missing: the manual pages are not built")
endif()
