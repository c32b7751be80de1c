# Run by cpack on the files that it has gathered, before it packs them: one time for all of them.
execute_process(
    COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
