add_area(pool_tests
  rfm/rfm_StringManagerFile_test.cpp
  rfm/rfm_DBMetadata_test.cpp
  rfm/rfm_TableMetadata_test.cpp
)
