add_executable(remote_test_service remote/service.cpp)
add_area(remote_tests
  remote/Channel_test.cpp
  remote/Key_test.cpp
  remote/Log_test.cpp
  remote/Process_test.cpp
  remote/Proof_test.cpp
  remote/RelayFormat_test.cpp
  remote/Socket_test.cpp
  remote/marlek_test.cpp
  remote/qlnsrv_test.cpp
  remote/qlnsrvd_test.cpp
  remote/remote_wire_test.cpp
)
target_link_libraries(remote_tests PRIVATE qlnsrvd_impl)

# The browser against scripted services, the service against scripted clients, and both over relay and daemon.
add_area(browsing_tests
  rds/rds_CFileBrowsing_test.cpp
  rds/rds_DirectoryEntity_test.cpp
  rds/rds_HostFiles_test.cpp
  rds/rds_SFileBrowsing_test.cpp
  remote/rds_FileBrowsing_test.cpp
)
add_executable(failing_browsing
  ${PROJECT_SOURCE_DIR}/programs/rdsT_FileBrowsing/main.cpp
  remote/failing_request.cpp)
target_include_directories(failing_browsing PRIVATE ${PROJECT_SOURCE_DIR}/include)
target_compile_definitions(browsing_tests PRIVATE RFM_FAILING_BROWSING="$<TARGET_FILE:failing_browsing>")
add_dependencies(browsing_tests failing_browsing)

# The assistant as a process; one test plays all its input to it from inside.
add_area(assistant_tests
  remote/rfmT_FileAssistant_following_test.cpp
  remote/rfmT_FileAssistant_test.cpp
)
target_link_libraries(assistant_tests PRIVATE assistant_impl)
target_compile_definitions(assistant_tests PRIVATE RFM_FILE_ASSISTANT="$<TARGET_FILE:rfmT_FileAssistant>")
add_dependencies(assistant_tests rfmT_FileAssistant)

set(RFM_REMOTE_AREAS remote_tests browsing_tests assistant_tests)

# The tool on files of other hosts.
if(TARGET rfm_tool)
  add_area(tool_remote_tests
    programs/rfm_connect_test.cpp
    programs/rfm_remote_test.cpp
  )
  list(APPEND RFM_REMOTE_AREAS tool_remote_tests)
  set(RFM_TOOL_REMOTE_AREAS tool_remote_tests)
endif()

# The library and the programs together, over the system's own sshd.
find_program(RFM_SSHD sshd PATHS /usr/sbin /usr/local/sbin)
if(RFM_SSHD)
  # Started for each reader, so without a sanitizer's start.
  add_executable(gated_relay remote/gated_relay.cpp)
  if(RFM_SANITIZE)
    target_compile_options(gated_relay PRIVATE -fno-sanitize=all)
    target_link_options(gated_relay PRIVATE -fno-sanitize=all)
  endif()
  add_area(ssh_tests
    remote/RemoteDatabases_test.cpp
    remote/RemoteFaults_test.cpp
    remote/rds_OverSsh_test.cpp
  )
  target_compile_definitions(ssh_tests PRIVATE
    RFM_FILE_ASSISTANT="$<TARGET_FILE:rfmT_FileAssistant>"
    RFM_GATED_RELAY="$<TARGET_FILE:gated_relay>"
    RFM_SSHD="${RFM_SSHD}")
  add_dependencies(ssh_tests gated_relay rfmT_FileAssistant)
  list(APPEND RFM_REMOTE_AREAS ssh_tests)
  if(TARGET rfm_tool)
    add_area(tool_ssh_tests programs/rfm_over_ssh_test.cpp)
    target_compile_definitions(tool_ssh_tests PRIVATE RFM_SSHD="${RFM_SSHD}")
    list(APPEND RFM_REMOTE_AREAS tool_ssh_tests)
    list(APPEND RFM_TOOL_REMOTE_AREAS tool_ssh_tests)
  endif()
else()
  message(STATUS "rfm: there is no sshd here; the tests over ssh are left out")
endif()

foreach(area IN LISTS RFM_TOOL_REMOTE_AREAS)
  target_include_directories(${area} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/programs)
  target_compile_definitions(${area} PRIVATE RFM_TOOL="$<TARGET_FILE:rfm_tool>"
                             RFM_FILE_ASSISTANT="$<TARGET_FILE:rfmT_FileAssistant>")
  target_link_libraries(${area} PRIVATE util)
  add_dependencies(${area} rfm_tool rfmT_FileAssistant)
endforeach()

foreach(area IN LISTS RFM_REMOTE_AREAS)
  target_include_directories(${area} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/remote)
  target_link_libraries(${area} PRIVATE farend)
  target_compile_definitions(${area} PRIVATE
    RFM_FILE_BROWSING="$<TARGET_FILE:rdsT_FileBrowsing>"
    RFM_MARLEK="$<TARGET_FILE:marlek>"
    RFM_QLNSRV="$<TARGET_FILE:qlnsrv>"
    RFM_QLNSRVD="$<TARGET_FILE:qlnsrvd>"
    RFM_TEST_SERVICE="$<TARGET_FILE:remote_test_service>")
  add_dependencies(${area} rdsT_FileBrowsing marlek qlnsrv qlnsrvd remote_test_service)
endforeach()
