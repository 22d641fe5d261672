# Writes what CTest includes to run each suite of a test program as one process:
#
#   cmake -D NAME=TARGET -D COMMAND=PROGRAM -D EXCEPT=FILTER -D COST=SECONDS -D FILE=PATH -P discover_suites.cmake
#
# The filter EXCEPT matches tests that have a process of their own. A suite is called as the filter that chooses it, and
# TARGET_SUITES are all of them.
execute_process(COMMAND ${COMMAND} --gtest_list_tests --gtest_filter=-${EXCEPT}
  TIMEOUT 60 OUTPUT_VARIABLE listed COMMAND_ERROR_IS_FATAL ANY)
# Behind the names stand parameters, which may hold anything.
string(REGEX REPLACE " +#[^\n]*" "" listed "${listed}")
string(REGEX MATCHALL "[^ \n]+\\.\n(  [^\n]+\n)+" suites "${listed}")
if(NOT suites)
  message(FATAL_ERROR "${NAME} has no suites")
endif()

set(content "set(${NAME}_SUITES)\n")
foreach(suite IN LISTS suites)
  string(REGEX MATCH "^[^\n]+" name "${suite}*")
  string(REGEX MATCHALL "\n  " tests "${suite}")
  list(LENGTH tests cost) # what has most tests begins first
  math(EXPR cost "${cost} + ${COST}")
  list(JOIN COMMAND " " command)
  string(APPEND content "add_test(${name}* ${command} --gtest_filter=${name}*-${EXCEPT})\n"
    "set_tests_properties(${name}* PROPERTIES COST ${cost})\nlist(APPEND ${NAME}_SUITES ${name}*)\n")
endforeach()
file(WRITE ${FILE} "${content}")
