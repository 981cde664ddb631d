# The flags that every target of the project is built with.
add_compile_options(-Wall -Wextra -Wconversion -Wshadow -Werror)

# Exceptions carry the source name of their throw: the path inside the project, never the machine's.
add_compile_options(-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)

if(RFM_SANITIZE)
  # "thread" looks for races; anything else that is on, for wrong memory and undefined behaviour.
  if(RFM_SANITIZE STREQUAL "thread")
    set(RFM_SANITIZERS thread)
  else()
    set(RFM_SANITIZERS address,undefined)
  endif()
  add_compile_options(-fsanitize=${RFM_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${RFM_SANITIZERS})
endif()

# The fuzzer steers by what a run reached in the library, so all of it is instrumented, not the targets alone.
if(RFM_BUILD_FUZZ AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
