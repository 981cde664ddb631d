# Runs an example in a folder of its own and compares what it prints, and its exit code, with what is expected. With
# OTHER its argument is the file that the example of this name has left.
#
#   cmake -DPROGRAM=... -DNAME=... -DEXPECTED=... -DFOLDER=... [-DOTHER=...] -P compare_output.cmake
set(folder ${FOLDER}/${NAME})
set(file ${folder}/${NAME}.rdx)
if(OTHER)
  set(file ${FOLDER}/${OTHER}/${OTHER}.rdx)
endif()
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})
execute_process(
  COMMAND ${PROGRAM} ${file}
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
