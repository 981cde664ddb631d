# What the shared library itself stands on. Found here, so that all folders see the targets.
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
find_package(HDF5 REQUIRED COMPONENTS C)

# libdeflate does zlib's work faster where it is there; each reads what the other writes.
find_package(PkgConfig)
if(PkgConfig_FOUND)
  pkg_check_modules(LIBDEFLATE IMPORTED_TARGET GLOBAL libdeflate)
endif()
if(NOT LIBDEFLATE_FOUND)
  message(STATUS "rfm: libdeflate is not there; compressed files are left to zlib, which is slower")
endif()
