add_library(lab_support STATIC lab/lab.cpp)
target_link_libraries(lab_support PUBLIC test_support)

tavren_test(lab_login_tests lab/login_test.cpp lab/password_test.cpp lab/dialogue_test.cpp lab/far_shells_test.cpp LAB)
tavren_test(lab_transfer_tests lab/files_test.cpp lab/failures_test.cpp lab/threads_test.cpp LAB TIMEOUT 120)
tavren_test(lab_stream_tests lab/streams_test.cpp LAB TIMEOUT 900)
