# How our own targets are compiled; linked PRIVATE, so that nobody who uses the library gets it forced on.
add_library(tarnwick_options INTERFACE)
target_compile_options(tarnwick_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor -Wswitch-enum
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
)
if(TARNWICK_SANITIZE)
    # Checking the dynamic type opens descriptors of its own, which fails in tests that leave none.
    target_compile_options(tarnwick_options INTERFACE
        -fsanitize=${TARNWICK_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(tarnwick_options INTERFACE -fsanitize=${TARNWICK_SANITIZE})
else()
    include(${CMAKE_CURRENT_LIST_DIR}/Hardening.cmake)
    tarnwick_harden(tarnwick_options)
endif()

add_library(tarnwick_asio INTERFACE)
target_include_directories(tarnwick_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(tarnwick_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(tarnwick_asio INTERFACE Threads::Threads)

find_program(TARNWICK_CCACHE ccache)
if(TARNWICK_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${TARNWICK_CCACHE})
endif()
