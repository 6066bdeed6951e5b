# 32-bit Windows (the product's platform) with Debian's MinGW-w64 compiler.
# The test programs run under Wine when its 32-bit part is installed.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(KAV_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh)
