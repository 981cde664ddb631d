add_area(file_tests
  rfm/rfm_BufferedSpace_test.cpp
  rfm/rfm_DBStatusChecker_test.cpp
  rfm/rfm_FileReprLocal_test.cpp
  rfm/rfm_File_test.cpp
  rfm/rfm_IOBuffer_test.cpp
  rfm/rfm_IO_test.cpp
)
