# Finds the part of libunwind that walks stacks of other address spaces: target LibUnwind::Remote.
find_path(LibUnwind_INCLUDE_DIR libunwind.h)
find_library(LibUnwind_LIBRARY unwind-${CMAKE_SYSTEM_PROCESSOR})
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibUnwind REQUIRED_VARS LibUnwind_LIBRARY LibUnwind_INCLUDE_DIR)
if(LibUnwind_FOUND AND NOT TARGET LibUnwind::Remote)
    add_library(LibUnwind::Remote UNKNOWN IMPORTED)
    # Static programs have no table of their frames unless the linker is told to make one.
    set_target_properties(LibUnwind::Remote PROPERTIES
        IMPORTED_LOCATION ${LibUnwind_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${LibUnwind_INCLUDE_DIR}
        INTERFACE_LINK_OPTIONS LINKER:--eh-frame-hdr)
    # The archive needs others. One of them has the compiler's functions that unwind exceptions once
    # more, so the compiler's own go first.
    if(LibUnwind_LIBRARY MATCHES "\\.a$")
        find_library(LibUnwind_BASE_LIBRARY libunwind.a REQUIRED)
        find_library(LibUnwind_LZMA_LIBRARY liblzma.a REQUIRED)
        set_target_properties(LibUnwind::Remote PROPERTIES INTERFACE_LINK_LIBRARIES
            "gcc_eh;${LibUnwind_BASE_LIBRARY};${LibUnwind_LZMA_LIBRARY}")
    endif()
endif()
