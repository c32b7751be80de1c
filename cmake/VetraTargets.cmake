# One helper per kind of target, so that every target has the same warnings, standard and
# sanitizers, and so that a CMakeLists.txt says nothing but what it is and what it may use.

set(VETRA_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Werror)

function(_vetra_common target)
    target_compile_options(${target} PRIVATE "$<$<COMPILE_LANGUAGE:CXX>:${VETRA_WARNINGS}>")
    # The same bytes wherever the tree lies.
    target_compile_options(${target} PRIVATE -ffile-prefix-map=${CMAKE_BINARY_DIR}=build
        -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
    # Tests do things for whose results nobody asks. Static programs lie at fixed addresses, since
    # the archive of libunwind does.
    if(VETRA_HARDENED AND NOT CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/(tests|bench)")
        target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
            -fstack-protector-strong -fstack-clash-protection
            $<IF:$<BOOL:${VETRA_STATIC}>,-fno-pie,-fPIE>)
        target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack
            $<IF:$<BOOL:${VETRA_STATIC}>,-static,-pie>)
    endif()
    if(VETRA_STATIC)
        target_compile_definitions(${target} PRIVATE VETRA_STATIC)
    endif()
    if(VETRA_SANITIZERS)
        target_compile_options(${target} PRIVATE -fsanitize=${VETRA_SANITIZERS}
            -fno-sanitize-recover=all)
        target_link_options(${target} PRIVATE -fsanitize=${VETRA_SANITIZERS})
    endif()
endfunction()

# vetra_library(NAME SOURCES file... HEADERS file... USES library... PRIVATE library...)
#
# A library of the project. USES names the rooms that its sources and headers may enter, PRIVATE the
# foreign libraries that its .cpp files alone may see. Headers are included from the root of the
# tree ("impl/UserConfig.h"), those of services from the folder of services ("Basis/Allocator.h").
function(vetra_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;HEADERS;USES;PRIVATE" ${ARGN})
    if(arg_SOURCES)
        add_library(${name} STATIC ${arg_SOURCES})
        set(scope PUBLIC)
        _vetra_common(${name})
    else()
        add_library(${name} INTERFACE)
        set(scope INTERFACE)
    endif()
    set(root ${PROJECT_SOURCE_DIR})
    if(CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/services/")
        set(root ${PROJECT_SOURCE_DIR}/services)
    endif()
    target_compile_features(${name} ${scope} cxx_std_20)
    target_include_directories(${name} ${scope} ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/services)
    target_sources(${name} ${scope} FILE_SET HEADERS
        BASE_DIRS ${root} FILES ${arg_HEADERS})
    target_link_libraries(${name} ${scope} ${arg_USES})
    if(arg_PRIVATE)
        target_link_libraries(${name} PRIVATE ${arg_PRIVATE})
    endif()
endfunction()

# Splits the debug data of a static program off into debug/ of the build directory. The table of
# symbols stays: the profiler reads it.
function(_vetra_split_debug_data target)
    set(apart ${CMAKE_BINARY_DIR}/debug/${target}.debug)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/debug
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${apart}
        COMMAND ${CMAKE_STRIP} --strip-debug $<TARGET_FILE:${target}>
        COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${apart} $<TARGET_FILE:${target}>
        VERBATIM)
endfunction()

# vetra_program(NAME SOURCES file... USES library... [SUBDIRECTORY folder])
#
# A program of the operator's directory, built into bin/ or a folder of it. It is writable for its
# owner, since the tool opens its scanner for reading and writing before it runs it.
function(vetra_program name)
    cmake_parse_arguments(arg "" "SUBDIRECTORY" "SOURCES;USES" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    _vetra_common(${name})
    target_link_libraries(${name} PRIVATE ${arg_USES})
    if(VETRA_STATIC)
        _vetra_split_debug_data(${name})
    endif()
    if(arg_SUBDIRECTORY)
        set_target_properties(${name} PROPERTIES
            RUNTIME_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${arg_SUBDIRECTORY})
    endif()
    install(TARGETS ${name} RUNTIME DESTINATION ./${arg_SUBDIRECTORY} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
        GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()

# vetra_test(NAME SOURCES file... USES library...)
#
# A GoogleTest program. Each of its tests is one ctest test, named NAME.Suite.Test; a test that
# calls GTEST_SKIP is counted as skipped, never as passed.
function(vetra_test name)
    cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    _vetra_common(${name})
    # The libraries and programs are built as operators get them. The tests themselves need no
    # optimisation, which would take half the time of a whole run.
    target_compile_options(${name} PRIVATE -O0)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${arg_USES} GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${name} TEST_PREFIX ${name}. WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/tests
        NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()
