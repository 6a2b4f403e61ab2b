# zstd, built as a static library from its Debian source (scripts/zstd-source fetches it into
# build/deps once; a build from a clean clone fetches it here when setup has not): cross-built
# for ScreenCodec.dll, and built natively with the same code by the fuzz build, which points
# VANTREL_DEPS at the main build's cache.
# Only what ScreenCodec.dll needs: the single-threaded compressor and decompressor.
if(NOT VANTREL_DEPS)
  set(VANTREL_DEPS ${CMAKE_BINARY_DIR}/deps)
endif()
file(GLOB zstd_archive ${VANTREL_DEPS}/libzstd_*.orig.tar.xz)
if(NOT zstd_archive)
  execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/zstd-source ${VANTREL_DEPS}
                  RESULT_VARIABLE zstd_fetch)
  file(GLOB zstd_archive ${VANTREL_DEPS}/libzstd_*.orig.tar.xz)
  if(NOT zstd_archive)
    message(FATAL_ERROR "zstd source missing: run scripts/setup (as root)")
  endif()
endif()
list(GET zstd_archive 0 zstd_archive)
set(zstd_src ${VANTREL_DEPS}/zstd-src)
if(NOT EXISTS ${zstd_src}/lib/zstd.h OR ${zstd_archive} IS_NEWER_THAN ${zstd_src}/lib/zstd.h)
  file(REMOVE_RECURSE ${zstd_src} ${VANTREL_DEPS}/unpack)
  file(ARCHIVE_EXTRACT INPUT ${zstd_archive} DESTINATION ${VANTREL_DEPS}/unpack
       PATTERNS */lib/common/* */lib/compress/* */lib/decompress/* */lib/zstd.h
                */lib/zstd_errors.h */LICENSE)
  file(GLOB zstd_top ${VANTREL_DEPS}/unpack/*)
  file(RENAME ${zstd_top} ${zstd_src})
  file(REMOVE_RECURSE ${VANTREL_DEPS}/unpack)
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${zstd_archive})

file(GLOB zstd_sources ${zstd_src}/lib/common/*.c ${zstd_src}/lib/compress/*.c
     ${zstd_src}/lib/decompress/*.c)
list(FILTER zstd_sources EXCLUDE REGEX "zstdmt_compress\\.c$")
add_library(zstd STATIC ${zstd_sources})
target_include_directories(zstd SYSTEM PUBLIC ${zstd_src}/lib)
# No threads, no legacy frames, no x86-64 assembly; speed matters more than size.
target_compile_definitions(zstd PRIVATE ZSTD_LEGACY_SUPPORT=0 ZSTD_DISABLE_ASM DEBUGLEVEL=0)
target_compile_options(zstd PRIVATE -O3 -w)
