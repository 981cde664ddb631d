add_area(container_tests
  support/cow_1DArray_test.cpp
  support/cow_Btree_test.cpp
  support/cow_COW_test.cpp
  support/cow_List_test.cpp
  support/omi_BlockedArray_test.cpp
  support/omi_Btree_test.cpp
)
