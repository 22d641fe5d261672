add_library(lab_support STATIC lab/lab.cpp)
target_link_libraries(lab_support PUBLIC test_support)

tavren_test(lab_login_tests lab/login_test.cpp lab/password_test.cpp lab/dialogue_test.cpp lab/far_shells_test.cpp LAB)
tavren_test(lab_transfer_tests lab/files_test.cpp lab/failures_test.cpp lab/threads_test.cpp LAB TIMEOUT 120)
tavren_test(lab_stream_tests lab/streams_test.cpp LAB TIMEOUT 900)

tavren_test(lab_example_tests lab/tavren_send_test.cpp LAB TIMEOUT 120)
tavren_test(lab_memory_tests lab/memory_test.cpp LAB TIMEOUT 600)
foreach(name lab_example_tests lab_memory_tests)
  target_compile_definitions(${name} PRIVATE TAVREN_SEND="$<TARGET_FILE:tavren_send>")
  add_dependencies(${name} tavren_send)
endforeach()
