# pelma_test_program(NAME SOURCES files... LIBRARIES libs... [ENVIRONMENT VAR=value...]
#                    [LABELS labels...] [PROPERTIES name value...])
# One GoogleTest program; gtest_discover_tests makes every test case a ctest test. The
# environment is set by the program itself before its tests run, so it holds however the
# program is started (ctest, by hand, a debugger).
find_package(GTest REQUIRED)
include(GoogleTest)

function(pelma_test_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;ENVIRONMENT;LABELS;PROPERTIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)  # "support/..."
  # Preferences and the last session of the program's own: what a test stores never reaches the
  # user's settings or another test program.
  list(APPEND ARG_ENVIRONMENT "XDG_CONFIG_HOME=${CMAKE_CURRENT_BINARY_DIR}/${name}-config"
    "XDG_STATE_HOME=${CMAKE_CURRENT_BINARY_DIR}/${name}-state")
  list(JOIN ARG_ENVIRONMENT "|" environment)
  target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/TestEnvironment.cpp)
  target_compile_definitions(${name} PRIVATE "PELMA_TEST_ENVIRONMENT=\"${environment}\"")
  set(properties)
  if(ARG_LABELS)
    list(APPEND properties LABELS "${ARG_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ${properties} ${ARG_PROPERTIES})
endfunction()
