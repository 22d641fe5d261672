tavren_test(records_tests daemon/records_test.cpp)
