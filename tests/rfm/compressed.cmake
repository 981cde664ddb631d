add_area(compressed_tests
  rfm/rfm_CodecZip_test.cpp
  rfm/rfm_EncodedSegment_test.cpp
  rfm/rfm_FileReprEncoded_test.cpp
  rfm/rfm_Sector_test.cpp
  rfm/rfm_SegmentBuffer_test.cpp
  rfm/rfm_SegmentsAhead_test.cpp
)
