# A sanitizer has to see every object that ends up in one process, so it is switched on for the whole tree.
if(MS_SANITIZE)
  add_compile_options(-fsanitize=${MS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${MS_SANITIZE})
endif()
