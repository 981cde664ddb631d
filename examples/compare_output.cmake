# Runs an example in a folder of its own and compares what it prints, and its exit code, with what is expected.
#
#   cmake -DPROGRAM=... -DNAME=... -DEXPECTED=... -DFOLDER=... -P compare_output.cmake
set(folder ${FOLDER}/${NAME})
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})
execute_process(
  COMMAND ${PROGRAM} ${folder}/${NAME}.rdx
  WORKING_DIRECTORY ${folder}
  OUTPUT_VARIABLE printed
  ERROR_VARIABLE complaints
  RESULT_VARIABLE code)
file(READ ${EXPECTED} expected)
if(NOT code EQUAL 0)
  message(FATAL_ERROR "${NAME} ended with ${code}: ${complaints}")
endif()
if(NOT complaints STREQUAL "")
  message(FATAL_ERROR "${NAME} complained: ${complaints}")
endif()
if(NOT printed STREQUAL expected)
  message(FATAL_ERROR "${NAME} printed\n${printed}expected was\n${expected}")
endif()
