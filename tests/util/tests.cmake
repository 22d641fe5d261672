tavren_test(basic_tests util/tavren_basic_test.cpp util/display_texts_test.cpp util/tavren_util_test.cpp
  util/text_files_test.cpp util/targets_test.cpp util/questions_test.cpp util/hidden_input_test.cpp
  TOGETHER EXCEPT ParseSpaceLimit.KnowsUnlimited*)
tavren_test(tmp_dir_tests util/tmp_dir_test.cpp util/second_instance_test.cpp util/long_paths_test.cpp TOGETHER)
tavren_test(util_failure_tests util/util_failures_test.cpp TOGETHER)

# A sanitizer needs memory of its own.
if(NOT TAVREN_SANITIZE)
  tavren_test(util_memory_tests util/util_memory_test.cpp)
endif()

# These define the operations of the configuration database themselves.
tavren_test(platform_identity_tests util/platform_identity_test.cpp TOGETHER)
tavren_test(test_host_tests util/test_host_test.cpp support/chassis.cpp $<TARGET_OBJECTS:failing_memory>
  $<TARGET_OBJECTS:recorded_system> $<TARGET_OBJECTS:scripted_client> TOGETHER)
foreach(name platform_identity_tests test_host_tests)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/platform/hodra)
endforeach()
