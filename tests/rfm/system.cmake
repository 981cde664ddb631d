add_area(system_tests
  rfm/FailingFile_test.cpp
  rfm/Followers_test.cpp
  rfm/KeptPages_test.cpp
  rfm/KilledHdfWriter_test.cpp
  rfm/KilledWriter_test.cpp
  rfm/RandomModel_test.cpp
)
target_link_libraries(system_tests PRIVATE hdf5::hdf5 ${CMAKE_DL_LIBS})

if(TARGET rfm_tool)
  find_package(nlohmann_json REQUIRED)
  add_area(killed_compressed_tests rfm/KilledCompressedWriter_test.cpp)
  target_include_directories(killed_compressed_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/programs)
  target_compile_definitions(killed_compressed_tests PRIVATE RFM_TOOL="$<TARGET_FILE:rfm_tool>")
  target_link_libraries(killed_compressed_tests PRIVATE util nlohmann_json::nlohmann_json)
  add_dependencies(killed_compressed_tests rfm_tool)
endif()
