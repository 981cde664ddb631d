add_library(golden_files OBJECT tools/rfm_GoldenFiles.cpp)
target_link_libraries(golden_files PRIVATE rfm_impl rds_impl rfm_support)
add_executable(make_golden_files tools/make_golden_files.cpp)
target_include_directories(make_golden_files PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/tools)
target_link_libraries(make_golden_files PRIVATE golden_files rfm_impl rds_impl rfm_support)

add_area(golden_tests
  rfm/DamagedFiles_test.cpp
  rfm/GoldenFiles_test.cpp
  ${PROJECT_SOURCE_DIR}/fuzz/walk_database.cpp
)
target_include_directories(golden_tests PRIVATE ${PROJECT_SOURCE_DIR}/fuzz)
target_link_libraries(golden_tests PRIVATE golden_files)
