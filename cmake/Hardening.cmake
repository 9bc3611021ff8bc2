# What makes a fault harder to exploit, in all our code and in the programs made of it: position-independent, stack
# protectors, checked calls of the C library, tables that are read-only once the program runs. The compilers differ in
# what they know. On macOS most of it is the system's own habit; the sanitizers do more, and differently.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

function(tarnwick_harden target)
    target_compile_options(${target} INTERFACE -fstack-protector-strong)
    if(NOT TARNWICK_PLATFORM STREQUAL "Linux")
        return()
    endif()

    foreach(flag -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "TARNWICK_HAS${flag}" known)
        check_cxx_compiler_flag(${flag} ${known})
        if(${known})
            target_compile_options(${target} INTERFACE ${flag})
        endif()
    endforeach()

    # Level 3 looks at sizes that are known at run time only; an older C library takes 2 and warns of 3. Neither does
    # anything without optimisation.
    set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
    check_cxx_source_compiles("#include <cstdlib>\nint main() {}" TARNWICK_HAS_FORTIFY_3)
    set(level 2)
    if(TARNWICK_HAS_FORTIFY_3)
        set(level 3)
    endif()
    target_compile_options(${target} INTERFACE
        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=${level}>)

    # Not -fPIC, as CMake has it for libraries: what could be replaced at run time can't be inlined.
    target_compile_options(${target} INTERFACE -fPIE)
    target_link_options(${target} INTERFACE -pie LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()
