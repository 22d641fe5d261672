# The daemon. What it decides needs no daemon: tables of what there is and what follows.
tavren_test(tavrend_plan_tests tavrend/plan_test.cpp)
target_link_libraries(tavrend_plan_tests PRIVATE tavrend_plan)
