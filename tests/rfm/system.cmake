add_area(system_tests
  rfm/FailingFile_test.cpp
  rfm/Followers_test.cpp
  rfm/KilledWriter_test.cpp
  rfm/RandomModel_test.cpp
)
on_other_kinds(system_tests "RandomModel.*")
