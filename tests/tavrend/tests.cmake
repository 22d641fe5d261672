# tavrend_test(NAME SOURCE...): a test program of the daemon's rooms.
function(tavrend_test name)
  tavren_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tavrend_rooms)
endfunction()

tavrend_test(tavrend_plan_tests tavrend/plan_test.cpp)
tavrend_test(tavrend_config_tests tavrend/config_test.cpp)
tavrend_test(tavrend_store_tests tavrend/store_test.cpp)
