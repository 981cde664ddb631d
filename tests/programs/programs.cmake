if(TARGET rfm_tool)
  find_package(fmt REQUIRED)
  find_package(OpenSSL REQUIRED COMPONENTS Crypto)
  set(insideParts AxisTicks ConnectionFile DatabaseFile Expression FileMark Glob NewFile Output Progress RemoteDoor RemoteScratch
                  Selection Text)
  list(JOIN insideParts "|" insideParts)
  add_area(tool_tests
    programs/AxisTicks_test.cpp
    programs/Expression_test.cpp
    programs/Glob_test.cpp
    programs/Selection_test.cpp
    programs/rfm_bad_files_test.cpp
    programs/rfm_bad_input_test.cpp
    programs/rfm_check_test.cpp
    programs/rfm_check_compressed_test.cpp
    programs/rfm_compact_test.cpp
    programs/rfm_completion_test.cpp
    programs/rfm_convert_test.cpp
    programs/rfm_copy_test.cpp
    programs/rfm_diff_test.cpp
    programs/rfm_doctor_test.cpp
    programs/rfm_dump_test.cpp
    programs/rfm_export_test.cpp
    programs/rfm_follow_test.cpp
    programs/rfm_hash_test.cpp
    programs/rfm_help_test.cpp
    programs/rfm_import_test.cpp
    programs/rfm_plot_test.cpp
    programs/rfm_progress_test.cpp
    programs/rfm_recover_test.cpp
    programs/rfm_rows_test.cpp
    programs/rfm_tool_test.cpp
    "$<FILTER:$<TARGET_OBJECTS:rfm_tool>,INCLUDE,/(${insideParts})\\.cpp>"
  )
  target_include_directories(tool_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/programs
                             ${PROJECT_SOURCE_DIR}/programs/rfm)
  target_compile_definitions(tool_tests PRIVATE RFM_TOOL="$<TARGET_FILE:rfm_tool>"
                             RFM_TOOL_FOLDER="$<TARGET_FILE_DIR:rfm_tool>" RFM_VERSION="${PROJECT_VERSION}")
  # Completion is tried in the shells that are here.
  find_program(RFM_FISH fish)
  find_program(RFM_ZSH zsh)
  foreach(shell RFM_FISH RFM_ZSH)
    if(${shell})
      target_compile_definitions(tool_tests PRIVATE ${shell}="${${shell}}")
    endif()
  endforeach()
  target_link_libraries(tool_tests PRIVATE util fmt::fmt OpenSSL::Crypto ZLIB::ZLIB)
  add_dependencies(tool_tests rfm_tool)

  # From inside, since thousands of damaged files are recovered: all of the tool but its main.
  add_area(recovery_tests
    programs/rfm_recovery_test.cpp
    programs/rfm_recover_compressed_test.cpp
    $<FILTER:$<TARGET_OBJECTS:rfm_tool>,EXCLUDE,main\\.cpp>
  )
  target_include_directories(recovery_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/programs
                             ${PROJECT_SOURCE_DIR}/programs/rfm)
  target_link_libraries(recovery_tests PRIVATE syrthes_files fmt::fmt OpenSSL::Crypto ZLIB::ZLIB)
endif()
