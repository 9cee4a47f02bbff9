# pelma_test_program(NAME SOURCES files... LIBRARIES libs...)
# One GoogleTest program; gtest_discover_tests makes every test case a ctest test.
find_package(GTest REQUIRED)
include(GoogleTest)

function(pelma_test_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
