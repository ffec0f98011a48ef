# 32-bit Windows, built with Debian's mingw-w64.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(MS_MINGW i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw.cmake)
