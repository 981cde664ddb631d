add_area(table_tests
  rfm/rfm_Row_test.cpp
  rfm/rfm_TableRepr_test.cpp
  rfm/rfm_Table_test.cpp
  rfm/rfm_TableModel_test.cpp
)
