# What every target is compiled with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "Tembra Audio needs clang (Blocks): cmake --preset release sets it")
endif()

find_program(CCACHE ccache)
if(CCACHE)
  # Two checkouts share what they compiled; precompiled headers need the sloppiness. What a source
  # depends on is the compiler's to say: reading it all beforehand makes a first build longer.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}
      CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_DEPEND=1 ${CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

# Four-character codes are written as such; the compiler warns of each otherwise.
add_compile_options(-Wall -Wextra -Wthread-safety -Werror -Wno-four-char-constants -Wno-multichar
                    -fblocks -fno-omit-frame-pointer)
# Fields that a designated initialiser leaves out are zero, and meant so; later compilers warn.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-Wmissing-designated-field-initializers TEMBRA_WARNS_OF_ZERO_FIELDS)
if(TEMBRA_WARNS_OF_ZERO_FIELDS)
  add_compile_options(-Wno-missing-designated-field-initializers)
endif()
add_compile_definitions(_GNU_SOURCE)

if(TEMBRA_SANITIZE)
  # What a sanitizer reports are lines; the names of variables would only take time and space.
  add_compile_options(-fsanitize=${TEMBRA_SANITIZE} -fno-sanitize-recover=all -gline-tables-only)
  add_link_options(-fsanitize=${TEMBRA_SANITIZE})
endif()
if(TEMBRA_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(TEMBRA_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(SAMPLERATE REQUIRED IMPORTED_TARGET samplerate)
pkg_check_modules(ALSA REQUIRED IMPORTED_TARGET alsa)
# The patcher is for x86-64, and so is the disassembler it calls. Elsewhere the HAL hands its calls
# over itself; TEMBRA_INTERPOSE builds that on x86-64 too.
option(TEMBRA_INTERPOSE "Override by the HAL's interposition point, not by patching" OFF)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64" AND NOT TEMBRA_INTERPOSE)
  pkg_check_modules(UDIS86 REQUIRED IMPORTED_TARGET udis86)
endif()
find_library(BLOCKSRUNTIME BlocksRuntime REQUIRED)
