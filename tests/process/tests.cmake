# The child of those tests that need more control than a shell script gives. No sanitizer in it: it is not under test.
add_executable(process_counterpart process/counterpart.cpp)
target_include_directories(process_counterpart PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_options(process_counterpart PRIVATE -fno-sanitize=all)
target_link_options(process_counterpart PRIVATE -fno-sanitize=all)

add_library(process_support STATIC process/children.cpp process/observe.cpp)
target_compile_definitions(process_support PRIVATE COUNTERPART="$<TARGET_FILE:process_counterpart>")
target_link_libraries(process_support PUBLIC test_support)
add_dependencies(process_support process_counterpart)

function(process_test name)
  tavren_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE process_support)
endfunction()

process_test(process_start_tests process/start_test.cpp process/terminal_test.cpp process/descriptors_test.cpp
  process/signals_test.cpp)
process_test(process_send_tests process/send_test.cpp)
process_test(process_send_eof_tests process/send_eof_test.cpp TIMEOUT 300)
