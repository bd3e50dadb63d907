# How tests are made and run. All of them run side by side (ctest -j), so each gets a network namespace of its own, where the
# console's socket name is free, and a /dev/shm of its own.

set(VORN_TEST_TIMEOUT 120 CACHE STRING "Seconds that one test may take")
if(VORN_SANITIZE)
  set(VORN_TEST_TIMEOUT 600)
  list(APPEND VORN_TEST_ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1")
endif()

# vorn_add_command_test(NAME COMMAND argument... [TIMEOUT seconds] [ENVIRONMENT NAME=value...]): runs a command as a test.
# Exit status 77 counts as skipped. A target's name as COMMAND is its program.
function(vorn_add_command_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "COMMAND;ENVIRONMENT" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT ${VORN_TEST_TIMEOUT})
  endif()
  list(POP_FRONT ARG_COMMAND program)
  if(TARGET ${program})
    set(program $<TARGET_FILE:${program}>)
  endif()
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/testkit/isolated ${program} ${ARG_COMMAND})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} SKIP_RETURN_CODE 77
                                          ENVIRONMENT "${VORN_TEST_ENVIRONMENT};${ARG_ENVIRONMENT}")
endfunction()

# vorn_add_test(NAME SOURCE... [LIBS library...] [TIMEOUT seconds] [ENVIRONMENT NAME=value...]): a GoogleTest program with
# GoogleTest's main(). LIBS says what it tests: vorn, or vorn_internal, or what else it needs.
function(vorn_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "LIBS;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main)
  set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
  vorn_add_command_test(${name} COMMAND ${name} TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT ${ARG_ENVIRONMENT})
endfunction()

# vorn_add_fuzz_target(NAME SOURCE... [LIBS library...] [INCLUDES folder...] [LINK_OPTIONS option...] [DEPENDS target...]): what
# reads any bytes, with the inputs in corpus/NAME and, where it is there, the dictionary NAME.dict. Among the tests the target is
# the test replay_NAME, which only reads those inputs; with VORN_BUILD_FUZZ a libFuzzer program, part of the target `fuzz`, and a
# test that runs it for VORN_FUZZ_SECONDS.
set(VORN_FUZZ_SECONDS 20 CACHE STRING "How long the test of each fuzz target runs")
add_custom_target(fuzz)

function(vorn_add_fuzz_program name)
  cmake_parse_arguments(ARG "" "" "LIBS;INCLUDES;LINK_OPTIONS;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${ARG_INCLUDES})
  target_link_options(${name} PRIVATE ${ARG_LINK_OPTIONS})
  # The run path is for runs by hand.
  set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/fuzz
                                           BUILD_RPATH ${VORN_PLUGIN_OUTPUT_DIRECTORY})
  if(ARG_DEPENDS)
    add_dependencies(${name} ${ARG_DEPENDS})
  endif()
endfunction()

function(vorn_add_fuzz_target name)
  set(corpus ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
  set(dictionary ${CMAKE_CURRENT_SOURCE_DIR}/${name}.dict)
  if(VORN_BUILD_TESTS)
    vorn_add_fuzz_program(replay_${name} ${PROJECT_SOURCE_DIR}/fuzz/replay.cpp ${ARGN})
    vorn_add_command_test(replay_${name} COMMAND replay_${name} ${corpus})
  endif()
  if(NOT VORN_BUILD_FUZZ)
    return()
  endif()

  vorn_add_fuzz_program(${name} ${ARGN})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  add_dependencies(fuzz ${name})
  set(found ${PROJECT_BINARY_DIR}/fuzz/${name}.found)  # libFuzzer adds to its first folder
  file(MAKE_DIRECTORY ${found})
  set(inputs ${found} ${corpus})
  if(EXISTS ${dictionary})
    list(APPEND inputs -dict=${dictionary})
  endif()
  math(EXPR timeout "${VORN_FUZZ_SECONDS} + 60")
  # libFuzzer's own exit status for a crash is the one that counts as skipped here.
  # One seed, so that what turns the test red is a change; other seeds are for longer runs by hand.
  vorn_add_command_test(${name} TIMEOUT ${timeout} COMMAND ${name} -seed=1 -max_total_time=${VORN_FUZZ_SECONDS} -timeout=10
                        -error_exitcode=1 -artifact_prefix=${PROJECT_BINARY_DIR}/fuzz/ ${inputs})
endfunction()
