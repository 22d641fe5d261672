# Every call that can fail, failing in turn; scripts/faults runs all of them. Not with a sanitizer, which brings an
# allocator of its own, nor where the C library's functions have other names.
if(TAVREN_SLOW_TESTS AND NOT TAVREN_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  if(with_archive_host)
    tavren_test(fault_tests faults/sessions_test.cpp faults/known_faults.cpp faults/faults.cpp faults/runner.cpp LAB TIMEOUT 7200 COST 700)
    target_link_libraries(fault_tests PRIVATE tirpc hodra ${CMAKE_DL_LIBS})
  endif()
  if(with_daemon)
    daemon_test(fault_api_tests faults/api_test.cpp faults/known_faults.cpp faults/faults.cpp faults/runner.cpp TIMEOUT 7200 COST 700)
    target_link_libraries(fault_api_tests PRIVATE tirpc hodra ${CMAKE_DL_LIBS})
  endif()
  function(covers_every_call_of_the name target)
    add_test(NAME Faults.CoverEveryCallOfThe${name}
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/faults/compare-calls ${CMAKE_NM} $<TARGET_FILE:${target}>
        ${CMAKE_CURRENT_SOURCE_DIR}/faults/known_faults.cpp ${CMAKE_CURRENT_SOURCE_DIR}/faults/harmless_calls.txt)
    set_tests_properties(Faults.CoverEveryCallOfThe${name} PROPERTIES TIMEOUT 60)
  endfunction()
  covers_every_call_of_the(Library tavren)
  if(TARGET tavrend)
    covers_every_call_of_the(Daemon tavrend)
  endif()
endif()
