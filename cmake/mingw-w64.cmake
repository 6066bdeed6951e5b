# Shared part of the Windows cross builds with Debian's MinGW-w64 compilers
# (posix thread model). Included by the per-architecture toolchain files,
# which set KAV_MINGW_TRIPLET first.
#
# Everything the programs need beyond the system DLLs (KERNEL32, the C
# runtime) is linked statically: the C++ runtime, libgcc and winpthread.
# libyaml comes from scripts/build-libyaml-mingw.sh, installed under
# build/deps/<triplet>, which also links the header-only RapidJSON of the
# build machine's Debian package there (so that /usr/include itself never
# reaches the cross compiler).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${KAV_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KAV_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KAV_MINGW_TRIPLET}-windres)
set(CMAKE_AR ${KAV_MINGW_TRIPLET}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${KAV_MINGW_TRIPLET}-ranlib CACHE FILEPATH "")

set(kav_mingw_deps ${CMAKE_CURRENT_LIST_DIR}/../build/deps/${KAV_MINGW_TRIPLET})
cmake_path(NORMAL_PATH kav_mingw_deps)
set(CMAKE_FIND_ROOT_PATH /usr/${KAV_MINGW_TRIPLET} ${kav_mingw_deps})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${kav_mingw_deps}/lib/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -static)
