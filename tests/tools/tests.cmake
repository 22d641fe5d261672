# A file, the same for every target.
if(NOT CMAKE_CROSSCOMPILING AND NOT TAVREN_SANITIZE)
  foreach(what commands names options files)
    add_test(NAME Completion.Knows_${what}
      COMMAND ${CMAKE_CURRENT_LIST_DIR}/check-completion ${what} ${PROJECT_SOURCE_DIR} $<TARGET_FILE:tavren_ctl>)
    set_tests_properties(Completion.Knows_${what} PROPERTIES TIMEOUT 60)
  endforeach()
endif()

program_of(tavren_send tavren_send)
tavren_test(password_prompt_tests tools/password_prompt_test.cpp)
target_compile_definitions(password_prompt_tests PRIVATE TAVREN_SEND="${tavren_send}")
add_dependencies(password_prompt_tests tavren_send)

if(NOT with_daemon)
  return()
endif()

program_of(tavren_ctl tavren_ctl)
# tool_test(NAME SOURCE...): a test program of tavren_ctl beside a daemon that answers what it is told to.
function(tool_test name)
  daemon_test(${name} ${ARGN})
  target_compile_definitions(${name} PRIVATE TAVREN_CTL="${tavren_ctl}")
  add_dependencies(${name} tavren_ctl)
endfunction()

tool_test(tavren_ctl_tests tools/tavren_ctl_test.cpp tools/status_test.cpp TOGETHER)
tool_test(tavren_ctl_german_tests tools/german_test.cpp TOGETHER)
target_compile_definitions(tavren_ctl_german_tests PRIVATE CATALOGUES="${PROJECT_BINARY_DIR}/po")
add_dependencies(tavren_ctl_german_tests translations)
tool_test(tavren_ctl_watch_tests tools/watch_test.cpp)
if(with_python)
  tool_test(tavren_ctl_json_tests tools/json_test.cpp TOGETHER)
endif()
