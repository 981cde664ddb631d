add_area(array_tests
  rfm/rfm_Array_test.cpp
  rfm/rfm_TaggedStream_test.cpp
)
on_other_kinds(array_tests "*-*Follower*:*Snap*")
on_remote_files(array_tests "*")
