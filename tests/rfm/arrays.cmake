add_area(array_tests
  rfm/rfm_Array_test.cpp
  rfm/rfm_TaggedStream_test.cpp
)
