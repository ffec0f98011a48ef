# 64-bit Windows, built with Debian's mingw-w64; run under wine where that is installed.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(MS_MINGW x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw.cmake)
