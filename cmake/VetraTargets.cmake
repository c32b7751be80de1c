# One helper per kind of target, so that every target has the same warnings, standard and
# sanitizers, and so that a CMakeLists.txt says nothing but what it is and what it may use.

set(VETRA_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Werror)

function(_vetra_common target)
    target_compile_options(${target} PRIVATE "$<$<COMPILE_LANGUAGE:CXX>:${VETRA_WARNINGS}>")
    # The same bytes wherever the tree lies.
    target_compile_options(${target} PRIVATE -ffile-prefix-map=${CMAKE_BINARY_DIR}=build
        -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
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

# vetra_program(NAME SOURCES file... USES library...)
#
# A program of the operator's directory, built into bin/. It is writable for its owner, since the
# tool opens its scanner for reading and writing before it runs it.
function(vetra_program name)
    cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    _vetra_common(${name})
    target_link_libraries(${name} PRIVATE ${arg_USES})
    install(TARGETS ${name} RUNTIME DESTINATION . PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
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
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${arg_USES} GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${name} TEST_PREFIX ${name}. WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/tests
        DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()
