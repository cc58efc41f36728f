# Warnings for the project's own code (kept out of the exported targets) and sanitizers for all of it.
# The *-strict presets make errors of warnings; a newer compiler's warning stops nobody else.
add_library(orvane_warnings INTERFACE)
target_compile_options(orvane_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # With -O3, GCC 12 warns of overlaps inside std::string's own operator+ (GCC bug 105651).
  target_compile_options(orvane_warnings INTERFACE -Wno-restrict)
endif()

if(ORVANE_BUILD_FUZZERS)
  # All code tells the fuzzer which branches it takes; only the fuzzers link its main.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # libstdc++ 12 sorts stably through a function that C++23 deprecates.
  target_compile_options(orvane_warnings INTERFACE -Wno-deprecated-declarations)
endif()

if(ORVANE_SANITIZE)
  add_compile_options(-fsanitize=${ORVANE_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ORVANE_SANITIZE})
  if(ORVANE_SANITIZE MATCHES "thread")
    # GCC warns that Asio's fences are not modelled; Asio also synchronises through atomics that are.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
  if(ORVANE_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined
      $<$<CXX_COMPILER_ID:Clang>:-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitizer-ignorelist.txt>)
  endif()
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()
