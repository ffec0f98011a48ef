# Fuzz targets want to see which ways the whole library goes, and every misstep on them.
if(MS_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "MS_FUZZ needs clang")
  endif()
  set(MS_SANITIZE address,undefined)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
# A sanitizer has to see every object that ends up in one process, so it is switched on for the whole tree.
if(MS_SANITIZE)
  add_compile_options(-fsanitize=${MS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented, the standard library's own headers look uninitialized to the compiler.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_link_options(-fsanitize=${MS_SANITIZE})
endif()
