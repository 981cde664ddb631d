# Run by cpack before it packs: programs and libraries as the distribution strips its own.
find_program(strip strip REQUIRED)
file(GLOB binaries ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/* ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/*/lib*.so.*)
foreach(binary IN LISTS binaries)
  if(NOT IS_SYMLINK ${binary})
    execute_process(COMMAND ${strip} --strip-unneeded --remove-section=.comment --remove-section=.note ${binary}
                    COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
