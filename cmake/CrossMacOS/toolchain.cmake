# Compiles for macOS on another system. `scripts/check-macos` gives TARNWICK_CROSS_BIN, a folder with the compiler and
# the archiver, TARNWICK_CROSS_HEADERS, one with the headers of the libraries, and, where there is one,
# TARNWICK_MACOS_SDK, one laid out like Apple's own: usr/include, usr/lib, System/Library/Frameworks.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${TARNWICK_CROSS_PROCESSOR})
set(CMAKE_C_COMPILER ${TARNWICK_CROSS_BIN}/cc)
set(CMAKE_CXX_COMPILER ${TARNWICK_CROSS_BIN}/c++)
set(CMAKE_AR ${TARNWICK_CROSS_BIN}/ar)
set(CMAKE_RANLIB ${TARNWICK_CROSS_BIN}/ranlib)
set(CMAKE_INSTALL_NAME_TOOL ${TARNWICK_CROSS_BIN}/ranlib) # CMake insists on one, for what is never done here
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY) # a first link has to compile the whole C++ library
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
    TARNWICK_CROSS_BIN TARNWICK_CROSS_HEADERS TARNWICK_CROSS_PROCESSOR TARNWICK_MACOS_SDK)

list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
set(CMAKE_FIND_ROOT_PATH ${TARNWICK_CROSS_HEADERS})
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST) # what is built here does not run here

if(TARNWICK_MACOS_SDK)
    # Behind the compiler's own headers, which its C++ library has to find first.
    set(CMAKE_CXX_FLAGS_INIT
        "-idirafter ${TARNWICK_MACOS_SDK}/usr/include -iframework ${TARNWICK_MACOS_SDK}/System/Library/Frameworks")
    set(CMAKE_EXE_LINKER_FLAGS_INIT
        "--sysroot ${TARNWICK_MACOS_SDK} -F${TARNWICK_MACOS_SDK}/System/Library/Frameworks")
endif()
