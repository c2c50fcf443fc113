# Language level, warnings, sanitizers, ccache and linker: the same for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# The build tree mirrors an install, so programs find each other and their property lists the same way in both.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

set(KORVANE_SANITIZE "" CACHE STRING "Sanitizers of the whole build: address,undefined or thread")
option(KORVANE_FUZZERS "Build the libFuzzer targets" OFF)

add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  -Wimplicit-fallthrough -Wthread-safety -Werror)
add_link_options(-Wl,--as-needed)

if(KORVANE_SANITIZE)
  add_compile_options(-fsanitize=${KORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KORVANE_SANITIZE})
  if(KORVANE_SANITIZE STREQUAL "thread")
    # Asio's own fences are not understood by ThreadSanitizer; its mutex-based counts are.
    add_compile_definitions(BOOST_ASIO_DISABLE_STD_ATOMIC)
  endif()
endif()
if(KORVANE_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(KORVANE_CCACHE ccache)
if(KORVANE_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${KORVANE_CCACHE})
endif()
find_program(KORVANE_LLD ld.lld-19)
if(KORVANE_LLD)
  add_link_options(-fuse-ld=${KORVANE_LLD})
endif()
