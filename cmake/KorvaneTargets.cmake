# One helper for each kind of target, so that a folder's CMakeLists.txt only says what it is made of.

# korvane_library(NAME SOURCES … [PUBLIC …] [PRIVATE …]): a folder's static library, used as Korvane::NAME. Those of the
# core are installed, for other programs to link.
function(korvane_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(korvane_${name} STATIC ${arg_SOURCES})
  add_library(Korvane::${name} ALIAS korvane_${name})
  target_include_directories(korvane_${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/korvane>)
  target_compile_features(korvane_${name} PUBLIC cxx_std_20)
  target_link_libraries(korvane_${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE folder)
  if(folder MATCHES "^(KRCrypto|KorvaneCore)(/|$)")
    set_target_properties(korvane_${name} PROPERTIES EXPORT_NAME ${name})
    install(TARGETS korvane_${name} EXPORT Korvane ARCHIVE COMPONENT development)
  endif()
endfunction()

# korvane_program(NAME IDENTIFIER … SOURCES … LIBRARIES …): a program with its bundle property list.
function(korvane_program name)
  cmake_parse_arguments(arg "" "IDENTIFIER" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  set(BUNDLE_IDENTIFIER ${arg_IDENTIFIER})
  set(BUNDLE_NAME ${name})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/Info.plist.in ${PROJECT_BINARY_DIR}/share/korvane/${name}/Info.plist @ONLY)
  install(TARGETS ${name} COMPONENT runtime)
  install(FILES ${PROJECT_BINARY_DIR}/share/korvane/${name}/Info.plist DESTINATION share/korvane/${name}
    COMPONENT runtime)
endfunction()

# korvane_test(NAME SOURCES … LIBRARIES …): a GoogleTest program; each of its cases is one ctest test.
function(korvane_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(${name} PRIVATE KORVANE_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()

# korvane_benchmark(NAME SOURCES … LIBRARIES …): a Google Benchmark program, built with everything else, run by hand.
function(korvane_benchmark name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} benchmark::benchmark)
endfunction()

# korvane_fuzzer(NAME SOURCES … LIBRARIES …): a libFuzzer target; its seeds lie in fuzz/corpus/NAME.
function(korvane_fuzzer name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()
