# One step of the tests of the install tree: cmake -DSTEP=... -P install_test.cmake, arguments as in CMakeLists.txt.
set(prefix ${WORK_DIR}/prefix)

# Runs a command, fails with its output; the output is left in `ranOutput`.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGV " " shown)
    message(FATAL_ERROR "${shown}\nanswered ${result}:\n${output}")
  endif()
  set(ranOutput "${output}" PARENT_SCOPE)
endfunction()

function(expect_consumer_output program)
  run(${program} ${WORK_DIR}/${STEP}.rdx)
  if(NOT ranOutput STREQUAL "read 2.5 from 1 row\n")
    message(FATAL_ERROR "the outside program printed: ${ranOutput}")
  endif()
endfunction()

if(STEP STREQUAL "install")
  file(REMOVE_RECURSE ${WORK_DIR})
  file(MAKE_DIRECTORY ${WORK_DIR})
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

elseif(STEP STREQUAL "find_package")
  run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/find_package -G ${GENERATOR}
      -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DCMAKE_PREFIX_PATH=${prefix})
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/find_package)
  expect_consumer_output(${WORK_DIR}/find_package/consumer)

elseif(STEP STREQUAL "pkg_config")
  find_program(pkgConfig NAMES pkg-config pkgconf REQUIRED)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  run(${pkgConfig} --cflags --libs rfm)
  separate_arguments(flags UNIX_COMMAND "${CXX_FLAGS} ${ranOutput}")
  run(${CXX} -std=c++20 ${CONSUMER_DIR}/consumer.cpp ${flags} -o ${WORK_DIR}/pkg_config_consumer)
  # The linker was told where the library lies, the loader was not: a prefix off the system's path needs this.
  set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
  expect_consumer_output(${WORK_DIR}/pkg_config_consumer)

elseif(STEP STREQUAL "relay")
  # The place below a folder of MRL_PATH where the library looks for it.
  set(relay ${prefix}/${LIBEXECDIR}/rfm/External/qlnsrv/qlnsrv)
  execute_process(COMMAND ${relay} RESULT_VARIABLE result ERROR_VARIABLE error)
  if(NOT result EQUAL 1 OR NOT error STREQUAL "qlnsrv, there is no host: use -cpu HOST\n")
    message(FATAL_ERROR "${relay} answered ${result}:\n${error}")
  endif()
  # The driver finds the daemon beside itself, and the daemon refuses the port.
  execute_process(COMMAND ${prefix}/${BINDIR}/marlek networkDBConnector -automaticServer -port x
                  RESULT_VARIABLE result OUTPUT_VARIABLE output)
  if(NOT result EQUAL 1 OR NOT output MATCHES "^\\*\\*\\* Error: qlnsrvd, -port wants ")
    message(FATAL_ERROR "marlek answered ${result}:\n${output}")
  endif()
  # The service that the daemon starts lies beside it.
  execute_process(COMMAND ${prefix}/${BINDIR}/rfmT_FileAssistant RESULT_VARIABLE result ERROR_VARIABLE error)
  if(NOT result EQUAL 1 OR NOT error STREQUAL "assistant, usage: rfmT_FileAssistant PATH [-scratch]\n")
    message(FATAL_ERROR "rfmT_FileAssistant answered ${result}:\n${error}")
  endif()

  # The service that the daemon starts lies beside it, and ends when its input does.
  execute_process(COMMAND ${prefix}/${BINDIR}/rdsT_FileBrowsing INPUT_FILE /dev/null
                  RESULT_VARIABLE result ERROR_VARIABLE error)
  if(NOT result EQUAL 0 OR NOT error STREQUAL "SFileBrowsing: client terminated. Normal exit.\n")
    message(FATAL_ERROR "rdsT_FileBrowsing answered ${result}:\n${error}")
  endif()

elseif(STEP STREQUAL "headers")
  file(GLOB headers RELATIVE ${prefix}/${INCLUDEDIR} ${prefix}/${INCLUDEDIR}/*.h)
  list(LENGTH headers headerCount)
  if(headerCount LESS 20)
    message(FATAL_ERROR "only ${headerCount} headers are installed")
  endif()
  foreach(header IN LISTS headers)
    # Twice, so that a missing include guard shows too.
    file(WRITE ${WORK_DIR}/alone.cpp "#include <${header}>\n#include <${header}>\n")
    run(${CXX} -std=c++20 -fsyntax-only -Wall -Wextra -Wconversion -Wshadow -Werror
        -I${prefix}/${INCLUDEDIR} ${WORK_DIR}/alone.cpp)
  endforeach()

elseif(STEP STREQUAL "names")
  run(${NM} -D --defined-only --demangle ${prefix}/${LIBDIR}/librfm.so)
  string(REGEX REPLACE "\n$" "" ranOutput "${ranOutput}")
  string(REPLACE ";" "," ranOutput "${ranOutput}")
  string(REPLACE "\n" ";" lines "${ranOutput}")
  set(shown 0)
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-f]* . " "" name "${line}")
    if(NOT name MATCHES "^(typeinfo for |typeinfo name for |vtable for )?[a-z][a-z][a-z]_|^(strnatcmp|ProcessRequest)\\(")
      message(SEND_ERROR "the library shows a name that is not its own: ${name}")
    endif()
    math(EXPR shown "${shown} + 1")
  endforeach()
  if(shown LESS 50)
    message(FATAL_ERROR "the library shows only ${shown} names")
  endif()

elseif(STEP STREQUAL "components")
  # Installed one by one, the components leave nothing out; and no file comes twice, or packages could not be installed
  # side by side.
  file(GLOB_RECURSE all RELATIVE ${prefix} ${prefix}/*)
  set(packed)
  foreach(component library development tools remote)
    set(part ${WORK_DIR}/components/${component})
    run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${part} --component ${component})
    file(GLOB_RECURSE files RELATIVE ${part} ${part}/*)
    list(LENGTH files fileCount)
    if(fileCount LESS 3)
      message(SEND_ERROR "the component ${component} holds only ${fileCount} files")
    endif()
    list(APPEND packed ${files})
  endforeach()
  list(SORT all)
  list(SORT packed)
  if(NOT all STREQUAL packed)
    set(forgotten ${all})
    list(REMOVE_ITEM forgotten ${packed})
    message(FATAL_ERROR "in no package: ${forgotten}\nin packages, more than once or besides: ${packed}")
  endif()

elseif(STEP STREQUAL "readme" OR STEP STREQUAL "tutorial")
  # The blocks are written for an installed package: what is in the system's folders there is in the prefix here.
  set(text README.md)
  if(STEP STREQUAL "tutorial")
    set(text docs/tutorial.md)
  endif()
  file(REMOVE_RECURSE ${WORK_DIR}/${STEP})
  file(MAKE_DIRECTORY ${WORK_DIR}/${STEP})
  set(ENV{PATH} ${prefix}/${BINDIR}:$ENV{PATH})
  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
  run(${SOURCE_DIR}/packaging/run_console.sh ${SOURCE_DIR}/${text} ${WORK_DIR}/${STEP}
      /usr/share/=${prefix}/share/)

else()
  message(FATAL_ERROR "no such step: ${STEP}")
endif()
