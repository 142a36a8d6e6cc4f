# How everything in the project is compiled: language, warnings, sanitizers, compiler cache, linker.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
endif()

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

add_library(kestrel_warnings INTERFACE)
target_compile_options(kestrel_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
  # GCC 12 sees overlapping copies in the sum of two strings where there are none.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # Some of FFmpeg's constants are compound literals.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-c99-extensions>
  $<$<BOOL:${KESTREL_WERROR}>:-Werror>)

# 'address' brings the undefined-behaviour checks along; every report ends the program, so that no
# test passes over one.
set(KESTREL_SANITIZE_FLAGS "")
if(KESTREL_SANITIZE STREQUAL "address")
  set(KESTREL_SANITIZE_FLAGS
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(KESTREL_SANITIZE STREQUAL "thread")
  set(KESTREL_SANITIZE_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT KESTREL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "KESTREL_SANITIZE is 'address', 'thread' or empty, not '${KESTREL_SANITIZE}'")
endif()
if(KESTREL_SANITIZE_FLAGS)
  add_compile_options(${KESTREL_SANITIZE_FLAGS})
  add_link_options(${KESTREL_SANITIZE_FLAGS})
  # Readable stacks at a bearable speed.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
endif()

# The compiler cache sees paths relative to the project, so that two clones share what they compile.
find_program(KESTREL_CCACHE ccache)
mark_as_advanced(KESTREL_CCACHE)
if(KESTREL_CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" ${KESTREL_CCACHE})
endif()

# A fast linker where one works with this compiler.
if(PROJECT_IS_TOP_LEVEL)
  include(CheckLinkerFlag)
  check_linker_flag(CXX -fuse-ld=mold KESTREL_LINKS_WITH_MOLD)
  if(KESTREL_LINKS_WITH_MOLD)
    add_link_options(-fuse-ld=mold)
  else()
    check_linker_flag(CXX -fuse-ld=lld KESTREL_LINKS_WITH_LLD)
    if(KESTREL_LINKS_WITH_LLD)
      add_link_options(-fuse-ld=lld)
    endif()
  endif()
endif()
add_link_options(LINKER:--as-needed)
