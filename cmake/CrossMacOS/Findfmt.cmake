# The library's headers alone, which hold all of it when asked to.
if(NOT TARGET fmt::fmt)
    add_library(fmt::fmt INTERFACE IMPORTED)
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
    target_include_directories(fmt::fmt INTERFACE ${TARNWICK_CROSS_HEADERS}/include)
endif()
set(fmt_FOUND TRUE)
