# Every call that can fail, failing in turn; scripts/faults runs all of them. Not with a sanitizer, which brings an
# allocator of its own, nor where the C library's functions have other names.
if(TAVREN_SLOW_TESTS AND NOT TAVREN_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  if(with_archive_host)
    tavren_test(fault_tests faults/sessions_test.cpp faults/faults.cpp faults/runner.cpp LAB TIMEOUT 7200 COST 700)
    target_link_libraries(fault_tests PRIVATE tirpc hodra ${CMAKE_DL_LIBS})
  endif()
  if(with_daemon)
    daemon_test(fault_api_tests faults/api_test.cpp faults/faults.cpp faults/runner.cpp TIMEOUT 7200 COST 700)
    target_link_libraries(fault_api_tests PRIVATE tirpc hodra ${CMAKE_DL_LIBS})
  endif()
  add_test(NAME Faults.CoverEveryCallOfTheLibrary
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/compare-calls ${CMAKE_NM} $<TARGET_FILE:tavren>
      ${CMAKE_CURRENT_LIST_DIR}/faults.cpp ${CMAKE_CURRENT_LIST_DIR}/harmless_calls.txt)
  set_tests_properties(Faults.CoverEveryCallOfTheLibrary PROPERTIES TIMEOUT 60)
endif()
