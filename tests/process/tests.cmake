# The child of those tests that need more control than a shell script gives. No sanitizer in it: it is not under test.
# It starts twenty thousand times, so it has all its libraries with it.
add_executable(process_counterpart process/counterpart.cpp)
target_include_directories(process_counterpart PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_options(process_counterpart PRIVATE -fno-sanitize=all)
target_link_options(process_counterpart PRIVATE -fno-sanitize=all -static)

add_library(process_support STATIC process/children.cpp process/observe.cpp)
program_of(counterpart process_counterpart)
target_compile_definitions(process_support PRIVATE COUNTERPART="${counterpart}")
target_link_libraries(process_support PUBLIC test_support)
add_dependencies(process_support process_counterpart)

function(process_test name)
  tavren_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE process_support)
endfunction()

process_test(process_start_tests process/start_test.cpp process/terminal_test.cpp process/descriptors_test.cpp
  process/signals_test.cpp process/stop_test.cpp process/hosts_test.cpp process/hosts.cpp)
process_test(process_read_tests process/read_line_test.cpp process/prefix_test.cpp process/send_test.cpp
  process/limits_test.cpp process/cancel_test.cpp TOGETHER)
process_test(process_send_eof_tests process/send_eof_test.cpp TIMEOUT 300)
# With a sanitizer's memory a fork takes several times as long, and there are twenty thousand.
set(end_of_output_time 400)
if(TAVREN_SANITIZE)
  set(end_of_output_time 1200)
endif()
process_test(process_end_of_output_tests process/end_of_output_test.cpp process/last_words_test.cpp
  $<TARGET_OBJECTS:early_ends> TIMEOUT ${end_of_output_time})
process_test(process_log_tests process/log_test.cpp process/log_file_test.cpp
  process/log_threads_test.cpp TOGETHER)
process_test(process_fault_tests process/start_fault_test.cpp process/io_fault_test.cpp
  process/send_eof_fault_test.cpp process/stop_fault_test.cpp process/faults.cpp)

# A string whose length does not fit into 32 bits.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  process_test(process_huge_string_tests process/huge_string_test.cpp process/faults.cpp)
  set_target_properties(process_huge_string_tests PROPERTIES CXX_STANDARD 23 DISABLE_PRECOMPILE_HEADERS ON)
endif()
