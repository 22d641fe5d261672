# What the tests of this room share: a scripted client, and a machine whose log, console and clock can be looked at.
set(host_support $<TARGET_OBJECTS:scripted_client> $<TARGET_OBJECTS:recorded_system>)

tavren_test(command_table_tests host/command_table_lock_test.cpp host/command_table_test.cpp
  $<TARGET_OBJECTS:failing_memory> TOGETHER)
tavren_test(host_object_tests host/connection_lock_test.cpp host/console_warning_test.cpp host/host_object_test.cpp
  host/host_outcome_test.cpp host/loopback_test.cpp ${host_support} TOGETHER)
tavren_test(host_login_tests host/known_hosts_test.cpp host/login_banner_test.cpp host/login_command_test.cpp
  host/login_dialogue_test.cpp host/login_failure_test.cpp host/login_time_test.cpp host/password_test.cpp
  $<TARGET_OBJECTS:wiped_texts> ${host_support} TOGETHER EXCEPT KnownHosts.*:PasswordSecrecy.* TIMEOUT 180)
tavren_test(host_command_tests host/checked_command_test.cpp host/command_time_test.cpp host/remote_command_test.cpp
  host/shell_quoting_test.cpp ${host_support} TOGETHER)
tavren_test(host_transfer_tests host/file_operations_test.cpp host/sink_test.cpp host/transfer_name_test.cpp
  host/transfer_test.cpp host/transfer_time_test.cpp ${host_support} TOGETHER)
tavren_test(host_large_transfer_tests host/large_transfer_test.cpp ${host_support} TIMEOUT 600)
tavren_test(host_stream_tests host/stream_test.cpp host/stream_time_test.cpp $<TARGET_OBJECTS:early_ends>
  ${host_support} TOGETHER)
tavren_test(host_handle_tests host/handle_creation_test.cpp host/handle_exceptions_test.cpp host/handle_open_test.cpp
  host/handle_test.cpp $<TARGET_OBJECTS:failing_memory> ${host_support} TOGETHER EXCEPT HandleOpening.*)

add_executable(host_handle_c_test host/handle_c_test.c host/handle_c_tunables.cpp)
target_link_libraries(host_handle_c_test PRIVATE test_support)
add_test(NAME HandleC.UsesEveryFunction COMMAND host_handle_c_test)
set_tests_properties(HandleC.UsesEveryFunction PROPERTIES TIMEOUT 60 ENVIRONMENT "${test_environment}")

tavren_test(host_check_tests host/chassis_marker_test.cpp host/directory_sizes_test.cpp host/host_check_test.cpp
  support/chassis.cpp ${host_support} TOGETHER EXCEPT ChassisMarker.*)
target_include_directories(host_check_tests PRIVATE ${PROJECT_SOURCE_DIR}/platform/hodra)
