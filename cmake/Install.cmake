# What `cmake --install` puts into a prefix: the shared library, the public headers, the programs, and the two
# descriptions by which other builds find it (find_package(rfm), pkg-config rfm).
#
# Each rule names its component, one of: library, development, tools, remote. Package.cmake makes a package of each, and
# a test finds what belongs to none.
include(CMakePackageConfigHelpers)

target_include_directories(rfm INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/rfm>)
target_compile_features(rfm INTERFACE cxx_std_20)

# Hidden visibility keeps our own internals inside; the script does the same for the instantiations of standard
# templates, which the compiler exports whatever it is told and which could otherwise stand in for those of a program.
target_link_options(rfm PRIVATE LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/rfm.map)
set_property(TARGET rfm APPEND PROPERTY LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/rfm.map)

install(TARGETS rfm EXPORT rfmTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/rfm COMPONENT development
        FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/docs/tutorial.md ${PROJECT_SOURCE_DIR}/docs/limits.md
              ${PROJECT_SOURCE_DIR}/docs/architecture.md ${PROJECT_SOURCE_DIR}/docs/format.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/librfm-dev COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/docs/cli.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/rfm-tools COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/docs/remote.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/rfm-remote COMPONENT remote)
# Complete programs to begin with; each is built and run by the tests.
set(rfm_exampleDir ${CMAKE_INSTALL_DATADIR}/doc/librfm-dev/examples)
install(FILES ${PROJECT_SOURCE_DIR}/examples/write_read_table.cpp
              ${PROJECT_SOURCE_DIR}/examples/array_two_increments.cpp
              ${PROJECT_SOURCE_DIR}/examples/follow_writer.cpp
              ${PROJECT_SOURCE_DIR}/examples/evolve_layout.cpp
              ${PROJECT_SOURCE_DIR}/examples/write_compressed.cpp
              ${PROJECT_SOURCE_DIR}/examples/list_objects.cpp
        DESTINATION ${rfm_exampleDir} COMPONENT development)

set(rfm_packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/rfm)
install(EXPORT rfmTargets NAMESPACE rfm:: DESTINATION ${rfm_packageDir} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/rfmConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/cmake/rfmConfig.cmake
                              INSTALL_DESTINATION ${rfm_packageDir})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/rfmConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/rfmConfig.cmake ${PROJECT_BINARY_DIR}/cmake/rfmConfigVersion.cmake
        DESTINATION ${rfm_packageDir} COMPONENT development)

# The prefix of the description follows the place of the .pc file, so that a moved tree stays right.
file(RELATIVE_PATH rfm_pcToPrefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/rfm.pc.in ${PROJECT_BINARY_DIR}/cmake/rfm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/rfm.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
