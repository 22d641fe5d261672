# tavrend_test(NAME SOURCE...): a test program of the daemon's rooms.
function(tavrend_test name)
  tavren_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tavrend_rooms)
endfunction()

tavrend_test(tavrend_plan_tests tavrend/plan_test.cpp tavrend/plan_simulation_test.cpp)
tavrend_test(tavrend_sources_tests tavrend/sources_test.cpp tavrend/compression_test.cpp tavrend/changing_files.cpp)
tavrend_test(tavrend_desk_tests tavrend/desk_test.cpp)
tavrend_test(tavrend_config_tests tavrend/config_test.cpp)
tavrend_test(tavrend_store_tests tavrend/store_test.cpp tavrend/store_failures_test.cpp tavrend/archived_files_test.cpp)

# The daemon itself, beside an archive host of its own, where neither a sanitizer nor an emulator makes it slow.
if(with_archive_host AND with_rpcbind AND TARGET hodra-put AND TAVREN_SLOW_TESTS AND NOT TAVREN_SANITIZE
    AND NOT CMAKE_CROSSCOMPILING)
  tavren_test(tavrend_tests tavrend/daemon_test.cpp tavrend/procedures_test.cpp tavrend/rotated_logs_test.cpp
    LAB TIMEOUT 180)
  program_of(tavrend tavrend)
  target_link_libraries(tavrend_tests PRIVATE ${sqlite3_library})
  target_compile_definitions(tavrend_tests PRIVATE TAVREND="${tavrend}" HODRA_PUT="${hodra_put}")
  add_dependencies(tavrend_tests tavrend hodra-put)
endif()
