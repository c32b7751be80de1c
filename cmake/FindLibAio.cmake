# Finds the kernel asynchronous I/O library: target LibAio::LibAio.
find_path(LibAio_INCLUDE_DIR libaio.h)
find_library(LibAio_LIBRARY aio)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibAio REQUIRED_VARS LibAio_LIBRARY LibAio_INCLUDE_DIR)
if(LibAio_FOUND AND NOT TARGET LibAio::LibAio)
    add_library(LibAio::LibAio UNKNOWN IMPORTED)
    set_target_properties(LibAio::LibAio PROPERTIES
        IMPORTED_LOCATION ${LibAio_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${LibAio_INCLUDE_DIR})
endif()
