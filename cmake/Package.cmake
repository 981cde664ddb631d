# What `cpack` makes of the install rules: a Debian package for each component. `./dev package` configures a tree for
# it, with the prefix /usr and the distribution's flags, and looks at what came out.
set(rfm_packages librfm0 librfm-dev rfm-tools rfm-remote)
set(rfm_components library development tools remote)

# The changelog names the version once more, for Debian's tools; the two may not drift apart.
set(rfm_changelog ${PROJECT_SOURCE_DIR}/packaging/changelog)
file(STRINGS ${rfm_changelog} rfm_changelogHead LIMIT_COUNT 1)
if(NOT rfm_changelogHead MATCHES "^rfm \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/changelog begins with '${rfm_changelogHead}', the version is ${PROJECT_VERSION}")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${rfm_changelog})

find_program(RFM_GZIP gzip REQUIRED)
execute_process(COMMAND ${RFM_GZIP} -9nc ${rfm_changelog} OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz
                COMMAND_ERROR_IS_FATAL ANY)
foreach(package component IN ZIP_LISTS rfm_packages rfm_components)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${PROJECT_BINARY_DIR}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()

# What lintian is told to pass over, each with its reason.
foreach(package component IN ZIP_LISTS rfm_packages rfm_components)
  if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/lintian/${package})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/lintian/${package}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endif()
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME rfm)
set(CPACK_PACKAGE_VENDOR "the rfm authors")
set(CPACK_PACKAGE_CONTACT "The rfm authors <authors@rfm.example.org>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/strip.cmake)
set(CPACK_COMPONENTS_ALL ${rfm_components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Root owns what is installed and nobody else may write, whatever the umask of who builds.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SOURCE rfm)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What ours need of ours is in the build tree, where dpkg knows no package: it is named below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

# describe COMPONENT PACKAGE SECTION SUMMARY TEXT: what dpkg and people are told of it.
macro(rfm_describe component package section summary text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
endmacro()

set(rfm_aboutDatabase
    "rfm keeps tables, typed arrays, streams of values and the texts they share\nin one file. One process writes, any \
number of others read the file while it\ngrows, and a killed writer loses nothing that was flushed.\n\n")
rfm_describe(library librfm0 libs "Record-file database for results of analyses - library"
  "${rfm_aboutDatabase}This package holds the shared library.")
rfm_describe(development librfm-dev libdevel "Record-file database for results of analyses - development"
  "${rfm_aboutDatabase}This package holds the headers, the descriptions for CMake and pkg-config,\nand six examples.")
rfm_describe(tools rfm-tools science "Record-file database for results of analyses - command-line tool"
  "${rfm_aboutDatabase}This package holds the program rfm, which looks into databases, follows their\n\
writers, compares, checks, converts and exports them.")
rfm_describe(remote rfm-remote science "Record-file database for results of analyses - remote connections"
  "${rfm_aboutDatabase}This package holds the programs by which databases on other hosts are reached:\n\
the relay for this host, and driver, daemon and services for the file's host.")

# Each package has a summary of its own in place of the project's.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "librfm0 (= ${PROJECT_VERSION})")
# The tool loads libcrypto when it hashes, which no look at its libraries shows.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libssl3")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "rfm-remote (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_REMOTE_PACKAGE_RECOMMENDS "openssh-client")
include(CPack)
