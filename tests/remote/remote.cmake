add_executable(remote_test_service remote/service.cpp)
add_area(remote_tests
  remote/Key_test.cpp
  remote/Proof_test.cpp
  remote/RelayFormat_test.cpp
  remote/marlek_test.cpp
  remote/qlnsrv_test.cpp
  remote/qlnsrvd_test.cpp
  remote/remote_wire_test.cpp
)
target_link_libraries(remote_tests PRIVATE qlnsrvd_impl)

# The library and the programs together, over the system's own sshd.
add_area(ssh_tests
  remote/rds_OverSsh_test.cpp
)

foreach(area remote_tests ssh_tests)
  target_include_directories(${area} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/remote)
  target_link_libraries(${area} PRIVATE farend)
  target_compile_definitions(${area} PRIVATE
    RFM_MARLEK="$<TARGET_FILE:marlek>"
    RFM_QLNSRV="$<TARGET_FILE:qlnsrv>"
    RFM_QLNSRVD="$<TARGET_FILE:qlnsrvd>"
    RFM_TEST_SERVICE="$<TARGET_FILE:remote_test_service>")
  add_dependencies(${area} marlek qlnsrv qlnsrvd remote_test_service)
endforeach()
