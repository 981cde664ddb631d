if(TARGET rfm_tool)
  add_area(tool_tests
    programs/rfm_check_test.cpp
    programs/rfm_dump_test.cpp
    programs/rfm_follow_test.cpp
    programs/rfm_tool_test.cpp
  )
  target_include_directories(tool_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/programs)
  target_compile_definitions(tool_tests PRIVATE RFM_TOOL="$<TARGET_FILE:rfm_tool>")
  target_link_libraries(tool_tests PRIVATE util)
  add_dependencies(tool_tests rfm_tool)
endif()
