# Before cpack packs: programs and library without what only a debugger or a curious reader wants.
file(GLOB programs ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/* ${CPACK_TEMPORARY_DIRECTORY}/*/usr/sbin/*)
file(GLOB libraries ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/*.a)
set(unneeded --remove-section=.comment --remove-section=.note)
execute_process(COMMAND strip ${unneeded} ${programs} COMMAND_ERROR_IS_FATAL ANY)
execute_process(
    COMMAND strip --strip-debug --enable-deterministic-archives ${unneeded} ${libraries}
    COMMAND_ERROR_IS_FATAL ANY
)
