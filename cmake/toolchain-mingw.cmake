# What both Windows targets share. Included with MS_MINGW set to the compiler's name for the target.
set(CMAKE_SYSTEM_NAME Windows)
# The threads of the standard library need the posix variant of the compiler.
set(CMAKE_C_COMPILER ${MS_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${MS_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${MS_MINGW}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${MS_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# What is built runs on a bare Windows: no library of the compiler has to travel with it.
foreach(kind EXE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
    "-static-libgcc -static-libstdc++ -Wl,-Bstatic,--whole-archive -lwinpthread -Wl,--no-whole-archive")
endforeach()
# pkg-config would answer for the host.
set(ENV{PKG_CONFIG_LIBDIR} /usr/${MS_MINGW}/lib/pkgconfig)

# Debian's wine runs 32-bit programs only with DLLs that ./test fetches.
find_program(MS_WINE wine)
if(MS_WINE AND (CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64 OR EXISTS ${CMAKE_BINARY_DIR}/wine.dlls))
  set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_CURRENT_LIST_DIR}/wine.sh ${CMAKE_BINARY_DIR}/wine)
endif()
