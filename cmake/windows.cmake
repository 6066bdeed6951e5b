# Windows specifics of the build, included by the top-level CMakeLists.txt
# when WIN32 (the MinGW-w64 cross builds of cmake/*-w64-mingw32.cmake).

# libyaml is built from Debian's source package, once per target, before the
# dependencies are looked up.
if(NOT EXISTS ${CMAKE_SOURCE_DIR}/build/deps/${KAV_MINGW_TRIPLET}/lib/pkgconfig/yaml-0.1.pc)
  execute_process(
    COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/build-libyaml-mingw.sh ${KAV_MINGW_TRIPLET}
    RESULT_VARIABLE kav_libyaml_result)
  if(NOT kav_libyaml_result EQUAL 0)
    message(FATAL_ERROR "libyaml for ${KAV_MINGW_TRIPLET} could not be built")
  endif()
endif()

# The DLL's exports come from a module-definition file: exactly one,
# load_kav_queue_eligibility, undecorated. Everything else (the C++ runtime,
# libgcc and winpthread, linked statically by the toolchain's -static) stays
# inside the DLL; its imports are KERNEL32 and the C runtime only.
function(kav_windows_plugin_exports target)
  target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/src/plugin/library/exports.def)
  # A release DLL ships without its symbol table (40% of its size).
  target_link_options(${target} PRIVATE -Wl,--no-undefined -Wl,--exclude-libs,ALL
                      $<$<CONFIG:Release>:-s>)
  set_target_properties(${target} PROPERTIES PREFIX "")
endfunction()

# Checks the DLL's export and import tables.
function(kav_windows_export_test target)
  add_test(NAME plugin_exports_one_symbol
           COMMAND ${CMAKE_SOURCE_DIR}/scripts/check-pe-exports.sh
                   ${KAV_MINGW_TRIPLET}-objdump $<TARGET_FILE:${target}>)
endfunction()

# GCC 12 inlines std::string's operator+ at -O3 for 32-bit targets into a
# copy that its -Wrestrict check misreads as overlapping (GCC bug 105329).
if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(kav_warnings INTERFACE -Wno-restrict)
endif()
