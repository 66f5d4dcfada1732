# One interface target carries every flag of our own code; generated code does not link it.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# The compiler cache, where there is one, serves every checkout of the project: paths count from
# its root.
if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(TIV_CCACHE ccache)
  if(TIV_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=include_file_ctime,include_file_mtime ${TIV_CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
  endif()
endif()

# Line numbers are all that a sanitizer's report needs of the debug information.
if(TIV_SANITIZE)
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
  add_compile_options(-fsanitize=${TIV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TIV_SANITIZE})
endif()

# Line by line and branch by branch as written, counted exactly in programs of many threads.
if(TIV_COVERAGE)
  set(CMAKE_CXX_FLAGS_DEBUG "-O0")
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

# tiv_keep_counters(<program or shared library>)
# A program that tests end by force writes its counters first, where they are measured.
function(tiv_keep_counters target)
  if(TIV_COVERAGE)
    target_sources(${target} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/keep_counters.cpp")
  endif()
endfunction()

add_library(tiv_flags INTERFACE)
target_compile_options(tiv_flags INTERFACE -Wall -Wextra -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(tiv_flags INTERFACE -Wthread-safety)
endif()
target_include_directories(tiv_flags INTERFACE "${PROJECT_SOURCE_DIR}/src")
target_link_libraries(tiv_flags INTERFACE Threads::Threads)
