# Writes OUTPUT with the version and the build date: SOURCE_DATE_EPOCH if it is set, else the date
# of the commit, else today. Two builds of one commit thus give the same bytes.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(seconds "$ENV{SOURCE_DATE_EPOCH}")
else()
    # Only of this tree's own repository, not of one that it happens to lie in.
    execute_process(COMMAND git --git-dir=${SOURCE}/.git log -1 --format=%ct
        OUTPUT_VARIABLE seconds ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
if(seconds MATCHES "^[0-9]+$")
    set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
string(TIMESTAMP date "%Y-%m-%d" UTC)

set(text "#define VETRA_VERSION \"${VERSION}\"\n#define VETRA_BUILD_DATE \"${date}\"\n")
if(EXISTS ${OUTPUT})
    file(READ ${OUTPUT} old)
endif()
if(NOT "${old}" STREQUAL "${text}")
    file(WRITE ${OUTPUT} "${text}")
endif()
