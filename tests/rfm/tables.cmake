add_area(table_tests
  rfm/rfm_Row_test.cpp
  rfm/rfm_TableRepr_test.cpp
  rfm/rfm_Table_test.cpp
  rfm/rfm_TableModel_test.cpp
)
on_other_kinds(table_tests
  "*-*Follower*:*AReaderWaits*:*Snap*:*rfm_TableFailureTest*:*ARefusedFlush*:*CannotBeFlushedAtItsEnd*:*EveryReadMayFail*:*PlaceOfItsWritersTexts")
on_remote_files(table_tests "*-*rfm_TableFailureTest*:*ARefusedFlush*:*CannotBeFlushedAtItsEnd*:*EveryReadMayFail*")
