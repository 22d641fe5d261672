# Fuzz targets. In the preset "fuzz" they are fuzzers, which scripts/fuzz runs; everywhere else, where there may be no
# fuzzer, the same targets replay what has been found worth keeping. There the test is the replay, too.
add_custom_target(fuzzers)

# Built once for all of them.
foreach(name assertions played_child replay_main)
  add_library(fuzz_${name} OBJECT fuzz/${name}.cpp)
  target_include_directories(fuzz_${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(fuzz_${name} PRIVATE tavren)
endforeach()

# fuzz_target(NAME SOURCE...): the target in fuzz/NAME_fuzz.cpp, with its corpus in fuzz/corpus/NAME.
function(fuzz_target name)
  set(program ${name}_fuzz)
  set(corpus ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/corpus/${name})
  add_executable(${program} fuzz/${program}.cpp $<TARGET_OBJECTS:fuzz_assertions> ${ARGN})
  target_include_directories(${program} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${program} PRIVATE tavren)
  add_dependencies(fuzzers ${program})
  set(replay ${program} ${corpus})
  if(TAVREN_SANITIZE MATCHES "fuzzer")
    target_link_options(${program} PRIVATE -fsanitize=fuzzer)
    list(APPEND replay -runs=0)
  else()
    target_sources(${program} PRIVATE $<TARGET_OBJECTS:fuzz_replay_main>)
  endif()
  add_test(NAME Fuzz.${name}_ReplaysItsCorpus COMMAND ${replay})
  set_tests_properties(Fuzz.${name}_ReplaysItsCorpus PROPERTIES TIMEOUT 120 ENVIRONMENT "${test_environment}")
endfunction()

foreach(name command_table disk_usage error_buffer error_object fields numbers quoting target tunables_text)
  fuzz_target(${name})
endforeach()

# What plays a child stands in the C library's place, in the targets that need one.
foreach(name child_output framed_output key_download login_dialogue sink_answers)
  fuzz_target(${name} $<TARGET_OBJECTS:fuzz_played_child>)
endforeach()

fuzz_target(xdr)
target_link_libraries(xdr_fuzz PRIVATE tirpc)

# The daemon's rooms.
if(TARGET tavrend_rooms)
  foreach(name tavrend_conf tavrend_plan tavrend_service tavrend_state)
    fuzz_target(${name})
    target_link_libraries(${name}_fuzz PRIVATE tavrend_rooms)
  endforeach()
endif()
