# Asks a test program for its suites and writes a list of tests for ctest, one a suite.
#   cmake -D PROGRAM=... -D PREFIX=... -D PROPERTIES=... -D LIST=... -P ListSuites.cmake
execute_process(COMMAND ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE listed RESULT_VARIABLE status TIMEOUT 60)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} doesn't list its tests: ${status}")
endif()
string(REGEX MATCHALL "(^|\n)[^ \n]+\\.(\n|  #)" suites "${listed}")
if(suites STREQUAL "")
  message(FATAL_ERROR "${PROGRAM} has no tests")
endif()
set(tests "")
foreach(suite IN LISTS suites)
  string(REGEX REPLACE "[ \n#]|\\.[ \n#]*$" "" suite "${suite}")
  string(APPEND tests "add_test([==[${PREFIX}.${suite}]==] [==[${PROGRAM}]==] [==[--gtest_filter=${suite}.*]==])\n"
    "set_tests_properties([==[${PREFIX}.${suite}]==] PROPERTIES ${PROPERTIES})\n")
endforeach()
file(WRITE ${LIST} "${tests}")
