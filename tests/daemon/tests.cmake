if(with_daemon_server)
  # A daemon made from the protocol's description, by the RPC library's generator.
  set(description ${PROJECT_SOURCE_DIR}/docs/tavrend.x)
  set(generated ${CMAKE_CURRENT_BINARY_DIR}/daemon)
  file(MAKE_DIRECTORY ${generated})
  foreach(part h:tavrend.h c:tavrend_xdr.c m:tavrend_svc.c)
    string(REGEX MATCH "^(.):(.*)$" _ ${part})
    add_custom_command(OUTPUT ${generated}/${CMAKE_MATCH_2}
      COMMAND ${CMAKE_COMMAND} -E copy ${description} ${generated}
      COMMAND ${CMAKE_COMMAND} -E rm -f ${CMAKE_MATCH_2}
      COMMAND rpcgen -N -M -${CMAKE_MATCH_1} -o ${CMAKE_MATCH_2} tavrend.x
      DEPENDS ${description} WORKING_DIRECTORY ${generated} VERBATIM)
    list(APPEND generated_files ${generated}/${CMAKE_MATCH_2})
  endforeach()
  add_executable(daemon_server daemon/server.c ${generated_files})
  target_include_directories(daemon_server PRIVATE ${generated})
  target_link_libraries(daemon_server PRIVATE tirpc)
  set_source_files_properties(${generated}/tavrend_xdr.c ${generated}/tavrend_svc.c PROPERTIES COMPILE_OPTIONS -w)
  # The generator names the parameters of all procedures.
  set_source_files_properties(daemon/server.c PROPERTIES COMPILE_OPTIONS -Wno-unused-parameter)
  # Where the generator trusts in a routine that stops at 9,000 bytes.
  target_compile_definitions(daemon_server PRIVATE xdr_wrapstring=xdr_whole_string)

  program_of(daemon_server daemon_server)
endif()

if(NOT with_googletest)
  return()
endif()

# A sanitizer needs memory of its own.
if(NOT TAVREN_SANITIZE)
  tavren_test(records_memory_tests daemon/records_memory_test.cpp)
endif()

tavren_test(wire_tests daemon/wire_test.cpp daemon/wire_streams_test.cpp daemon/records_test.cpp
  $<TARGET_OBJECTS:wiped_texts> TOGETHER)
tavren_test(api_client_tests daemon/api_client_test.cpp daemon/own_names_test.cpp TOGETHER)
foreach(name wire_tests api_client_tests)
  target_link_libraries(${name} PRIVATE tirpc)
endforeach()

set(with_daemon OFF)
if(with_daemon_server AND with_rpcbind)
  set(with_daemon ON)
  # daemon_test(NAME SOURCE... [TIMEOUT SECONDS]): a test program that runs on a machine with an rpcbind of its own.
  function(daemon_test name)
    tavren_test(${name} ${ARGN} MAIN lab/lab_main.cpp)
    target_link_libraries(${name} PRIVATE tirpc)
    target_compile_definitions(${name} PRIVATE ARCHIVE_HOST="${CMAKE_CURRENT_SOURCE_DIR}/daemon/daemon-host"
      SERVER="${daemon_server}")
    add_dependencies(${name} daemon_server)
  endfunction()

  daemon_test(api_tests daemon/api_opening_test.cpp daemon/api_reading_test.cpp daemon/api_requests_test.cpp
    daemon/api_failures_test.cpp daemon/loading_test.cpp daemon/stubs_test.cpp daemon/wrappers_test.cpp
    TOGETHER EXCEPT ApiFailure.*:ApiOpening.*:ApiReading.OfWhatTheDaemonAnswersAfter*:Loading*:StubOutput.*
    TIMEOUT 180 COST 800)
  daemon_test(api_memory_tests daemon/api_memory_test.cpp $<TARGET_OBJECTS:failing_memory>)
  daemon_test(program_number_tests daemon/program_number_test.cpp)
  daemon_test(api_process_tests daemon/api_process_state_test.cpp)
  daemon_test(odd_replies_tests daemon/odd_replies_test.cpp
    TOGETHER EXCEPT OddReply.ThatNeverComes*:OddReply.ThatStops* TIMEOUT 180 COST 800)
  daemon_test(api_threads_tests daemon/api_threads_test.cpp TIMEOUT 300)
  daemon_test(api_catalogue_tests daemon/api_catalogue_test.cpp)
  daemon_test(example_tests daemon/example_test.cpp TOGETHER)
  program_of(daemon_status daemon_status)
  target_compile_definitions(example_tests PRIVATE DAEMON_STATUS="${daemon_status}")
  add_dependencies(example_tests daemon_status)
endif()
