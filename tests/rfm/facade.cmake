add_area(facade_tests
  rfm/FormatExample_test.cpp
  rfm/TwoDatabases_test.cpp
  rfm/rfm_Database_test.cpp
)
target_compile_definitions(facade_tests PRIVATE RFM_FORMAT_DOCUMENT="${PROJECT_SOURCE_DIR}/docs/format.md")
on_other_kinds(facade_tests
  "rfm_DatabaseTest.*-*FullDisk*:*Version11*:*Snap*:*CloseTrims*:*CopiesShare*:*HoldsReadersOff*:*StatusIsUpdated*"
  "*AGuardThatCannotCleanUp*")
on_remote_files(facade_tests
  "rfm_DatabaseTest.*-*FullDisk*:*Version11*:*CloseTrims*:*CopiesShare*:*AFailedOpenGivesNoDatabase*")
