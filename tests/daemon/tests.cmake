tavren_test(records_tests daemon/records_test.cpp)

# A sanitizer needs memory of its own.
if(NOT TAVREN_SANITIZE)
  tavren_test(records_memory_tests daemon/records_memory_test.cpp)
endif()
