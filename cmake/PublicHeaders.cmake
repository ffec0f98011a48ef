# Clients write #include <ms/MessageStore.h> everywhere: against an installed library, in the build tree, and in a
# project that embeds this one. In the build tree small headers under MS_BUILD_INCLUDE_DIR lead to the real ones, so
# that an edit needs no copying and a header has one identity however it is reached.
set(MS_BUILD_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
set(MS_STAGED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/staged-include)

function(_ms_forward header source)
  file(CONFIGURE OUTPUT ${MS_BUILD_INCLUDE_DIR}/${header} @ONLY
       CONTENT "#pragma once\n#include \"${source}\"\n")
endfunction()

# ms_publish_headers(<ms or ms/kit> <directory of the headers> <header names>...)
function(ms_publish_headers room directory)
  foreach(header IN LISTS ARGN)
    set(source ${directory}/${header})
    _ms_forward(${room}/${header} ${source})
    # The sources name their toolkit headers "kit/X.h".
    if(room STREQUAL "ms/kit")
      _ms_forward(kit/${header} ${source})
    endif()

    # As installed, toolkit headers stand beside each other and must find each other without an include directory
    # of their own.
    file(READ ${source} text)
    if(room STREQUAL "ms/kit")
      string(REPLACE "#include \"kit/" "#include \"" text "${text}")
    endif()
    file(CONFIGURE OUTPUT ${MS_STAGED_INCLUDE_DIR}/${room}/${header} @ONLY CONTENT "${text}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  endforeach()
endfunction()
