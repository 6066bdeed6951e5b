# 64-bit Windows with Debian's MinGW-w64 compiler; tests run under wine64.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KAV_MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh)
