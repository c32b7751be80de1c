# Run by cpack on what it has made. It packs files in the order in which a directory lists them,
# which is another one on another file system: archives are packed anew in the order of the names.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(package MATCHES "\\.(deb|tar\\.gz)$")
        execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/sort-package ${package}
            COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
