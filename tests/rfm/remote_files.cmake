# Started more than a thousand times, so without a sanitizer's start.
add_executable(scripted_assistant rfm/scripted_assistant.cpp)
if(RFM_SANITIZE)
  target_compile_options(scripted_assistant PRIVATE -fno-sanitize=all)
  target_link_options(scripted_assistant PRIVATE -fno-sanitize=all)
endif()

add_area(remote_file_tests
  rfm/rfm_FileCache_test.cpp
  rfm/rfm_FileReprRemote_test.cpp
  rfm/rfm_RemoteConnecting_test.cpp
  rfm/rfm_RemoteDamage_test.cpp
  rfm/rfm_RemoteFormat_test.cpp
)
# An area of its own, as the one that is built under ThreadSanitizer too.
add_area(remote_thread_tests rfm/rfm_RemoteThreads_test.cpp)

foreach(area remote_file_tests remote_thread_tests)
  target_compile_definitions(${area} PRIVATE RFM_SCRIPTED_ASSISTANT="$<TARGET_FILE:scripted_assistant>")
  add_dependencies(${area} scripted_assistant)
endforeach()
