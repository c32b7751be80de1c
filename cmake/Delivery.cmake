# What an operator is given: the install tree, and the archive and packages made of it.

install(FILES README.md DESTINATION . RENAME README)
# What it refers to, where it refers to it.
foreach(page benchmarks configuration facts profiler result-files rules security troubleshooting)
    install(FILES docs/${page}.md DESTINATION docs)
endforeach()
install(FILES docs/profiler-example.svg DESTINATION docs)
install(DIRECTORY docs/example-run DESTINATION docs)
install(DIRECTORY docs/man DESTINATION docs FILES_MATCHING PATTERN "*.8")

# The terms of what is linked in, as its packages state them. Whoever brings a library from elsewhere
# names the place of its terms in VETRA_TERMS_OF_<name>.
function(vetra_terms name package)
    set(VETRA_TERMS_OF_${name} /usr/share/doc/${package}/copyright
        CACHE FILEPATH "the terms of ${name}")
    install(FILES ${VETRA_TERMS_OF_${name}} DESTINATION LICENSES RENAME ${name} OPTIONAL)
endfunction()
vetra_terms(asio libasio-dev)
vetra_terms(fmt libfmt-dev)
vetra_terms(gcc gcc-12-base)
vetra_terms(glibc libc6-dev)
vetra_terms(libaio libaio-dev)
vetra_terms(liblzma liblzma-dev)
vetra_terms(libunwind libunwind-dev)
vetra_terms(nlohmann-json nlohmann-json3-dev)
vetra_terms(spdlog libspdlog-dev)

set(CPACK_GENERATOR TGZ DEB RPM)
set(CPACK_PACKAGE_NAME vetra)
set(CPACK_PACKAGE_VENDOR "the vetra developers")
set(CPACK_PACKAGE_CONTACT "the vetra developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tells whether a server is fit to run the ZIRN database")
set(CPACK_PACKAGE_DESCRIPTION "\
vetra gathers the facts of the host it runs on, judges them by thirteen
rules, measures the file systems and the network to the peers, and writes
down what it found. The programs are static and need nothing of the host
but its kernel. They are run in /opt/vetra; /opt/vetra/README tells how.")
set(CPACK_PACKAGE_FILE_NAME vetra-${PROJECT_VERSION}-x86_64)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/PackageOptions.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/StageTimes.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/SortPackages.cmake)
set(CPACK_STRIP_FILES OFF)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
