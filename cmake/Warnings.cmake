# Warnings for everything in this tree and in nothing beyond it. A project that embeds the library asks for its own.
if(NOT PROJECT_IS_TOP_LEVEL AND NOT MS_WERROR)
  return()
endif()

if(MSVC)
  add_compile_options(/W4 $<$<BOOL:${MS_WERROR}>:/WX>)
else()
  add_compile_options(
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
    $<$<BOOL:${MS_WERROR}>:-Werror>)
endif()
