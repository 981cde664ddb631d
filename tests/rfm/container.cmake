add_area(container_db_tests
  rfm/rfm_DatabaseReprFile_test.cpp
  rfm/rfm_Library_test.cpp
  rfm/rfm_LinkageFormat_test.cpp
  rfm/rfm_SpaceReprFile_test.cpp
)
