# Long lives, in brief; scripts/endurance runs them at full length. What they look at does not depend on the target.
if(with_archive_host AND TAVREN_SLOW_TESTS AND NOT CMAKE_CROSSCOMPILING AND NOT TAVREN_SANITIZE)
  tavren_test(endurance_tests endurance/sessions_test.cpp endurance/network_cuts_test.cpp LAB TIMEOUT 7200 COST 700)
  tavren_test(endurance_host_tests endurance/host_programs_test.cpp LAB TIMEOUT 7200 COST 700)
endif()
