add_area(facade_tests
  rfm/FormatExample_test.cpp
  rfm/rfm_Database_test.cpp
)
target_compile_definitions(facade_tests PRIVATE RFM_FORMAT_DOCUMENT="${PROJECT_SOURCE_DIR}/docs/format.md")
