add_area(system_tests
  rfm/FailingFile_test.cpp
  rfm/KilledWriter_test.cpp
)
