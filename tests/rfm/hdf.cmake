add_area(hdf_tests
  rfm/HdfDatabases_test.cpp
  rfm/HdfDamage_test.cpp
  rfm/rfm_FileReprHdf_test.cpp
  rfm/rfm_HdfByteDataset_test.cpp
  support/hdf_File_test.cpp
)
target_link_libraries(hdf_tests PRIVATE golden_files hdf5::hdf5)
target_compile_definitions(hdf_tests PRIVATE RFM_H5DUMP="h5dump")
