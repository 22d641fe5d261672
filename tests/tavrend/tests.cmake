# tavrend_test(NAME SOURCE...): a test program of the daemon's rooms.
function(tavrend_test name)
  tavren_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tavrend_rooms)
endfunction()

tavrend_test(tavrend_plan_tests tavrend/plan_test.cpp tavrend/plan_simulation_test.cpp tavrend/seen_files_test.cpp TOGETHER)
tavrend_test(tavrend_sources_tests tavrend/sources_test.cpp tavrend/compression_test.cpp tavrend/changing_files.cpp)
tavrend_test(tavrend_renamed_files_tests tavrend/renamed_files_test.cpp TIMEOUT 300)
tavrend_test(tavrend_desk_tests tavrend/desk_test.cpp)
tavrend_test(tavrend_config_tests tavrend/config_test.cpp TOGETHER)
target_compile_definitions(tavrend_config_tests PRIVATE SHIPPED_CONFIG="${PROJECT_SOURCE_DIR}/packaging/tavrend/tavrend.conf")
tavrend_test(tavrend_store_tests tavrend/store_test.cpp tavrend/store_failures_test.cpp tavrend/archived_files_test.cpp
  tavrend/power_cut_test.cpp tavrend/seen_store_test.cpp)

# An emulator does not know the kernel's answers about sockets.
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  tavrend_test(tavrend_caller_tests tavrend/caller_of_test.cpp)
endif()

# The daemon itself, beside an archive host of its own, where no emulator makes it slow.
if(with_archive_host AND with_rpcbind AND TARGET hodra-put AND (TAVREN_SLOW_TESTS OR TAVREN_SANITIZE)
    AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  program_of(tavrend tavrend)
  program_of(tavren_ctl tavren_ctl)
  # tavrend_daemon_test(NAME TIMEOUT SOURCE... [TOGETHER [EXCEPT FILTER]]): a test program of the running daemon.
  function(tavrend_daemon_test name timeout)
    tavren_test(${name} ${ARGN} LAB TIMEOUT ${timeout})
    target_compile_definitions(${name} PRIVATE
      TAVREND="${tavrend}" START_RPCBIND="${CMAKE_CURRENT_SOURCE_DIR}/daemon/start-rpcbind" HODRA_PUT="${hodra_put}" TAVREN_CTL="${tavren_ctl}")
    add_dependencies(${name} tavrend tavren_ctl hodra-put)
  endfunction()
  # By themselves: what slows the network, mounts, stops or configures the server, gives up rights, or looks on for long.
  set(by_themselves Daemon.DoesNothing* Daemon.CompressesBesideItsState* Daemon.TakesUpWhatItMissed* Daemon.*InALoginThatHangs
    Daemon.TakesBackWhatItCannotKeep Daemon.OutlivesAState* Procedure.StatusHasTheConnection*
    Procedure.AuditFilesThatCannotBeRead* Procedure.SleepsButInASession DaemonAsAGuest.HasItsFilesInTheSystemsPlaces* *SetUpInTrouble.*
    SetUp.SaysWhatToDoAboutAnotherKey*)
  list(JOIN by_themselves : by_themselves)
  tavrend_daemon_test(tavrend_tests 180 tavrend/daemon_test.cpp tavrend/procedures_test.cpp tavrend/callers_test.cpp
    tavrend/archive_test.cpp tavrend/failures_test.cpp tavrend/guest_test.cpp tavrend/set_up_test.cpp
    TOGETHER EXCEPT ${by_themselves})
  set(by_themselves DaemonsLog.*Read* DaemonsLog.*Unreadable* DaemonsLog.IsNoLink* LogThatIsSent.* LogInALongOutage.*
    ItemInTheMiddle.* DaemonInAnOutage.* DaemonWithAFullArchive.* SessionInTheMiddle* LoginThatIsEnded.*)
  list(JOIN by_themselves : by_themselves)
  tavrend_daemon_test(tavrend_log_tests 180 tavrend/logs_test.cpp tavrend/lost_logs_test.cpp tavrend/rotated_logs_test.cpp
    tavrend/items_on_their_way_test.cpp tavrend/outages_test.cpp tavrend/cancelled_test.cpp tavrend/clock_test.cpp
    tavrend/together_test.cpp TOGETHER EXCEPT ${by_themselves})
  # Many more kills, when scripts/endurance asks for them.
  tavrend_daemon_test(tavrend_every_byte_tests 1800 tavrend/every_byte_test.cpp)
  target_compile_definitions(tavrend_tests PRIVATE
    LIBRARIES="$<TARGET_SONAME_FILE:tavren> $<TARGET_FILE:hodra> $<TARGET_FILE:hodrahelper>")
  set(with_database tavrend_tests tavrend_log_tests)

  # starts_daemon_with(NAME MODULE): NAME knows the MODULE that takes the place of a function of the system's.
  function(starts_daemon_with name module)
    if(NOT TARGET ${module})
      add_library(${module} MODULE tavrend/${module}.cpp)
      target_include_directories(${module} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    endif()
    string(TOUPPER ${module} definition)
    target_compile_definitions(${name} PRIVATE ${definition}="$<TARGET_FILE:${module}>")
    add_dependencies(${name} ${module})
  endfunction()
  starts_daemon_with(tavrend_log_tests moved_clock)

  # What they look at does not depend on the target, and scripts/faults has them try everything.
  if(NOT TAVREN_SANITIZE)
    tavrend_daemon_test(tavrend_crash_tests 7200 tavrend/crashes_test.cpp tavrend/traced_process.cpp
      tavrend/watched_directory.cpp COST 700)
    target_link_libraries(tavrend_crash_tests PRIVATE tavrend_rooms)
    tavrend_daemon_test(tavrend_long_life_tests 7200 tavrend/long_life_test.cpp COST 700)
    list(APPEND with_database tavrend_long_life_tests)
    tavrend_daemon_test(tavrend_fault_tests 14400 tavrend/faults_test.cpp faults/known_faults.cpp COST 700)
    target_link_libraries(tavrend_fault_tests PRIVATE tavrend_rooms)
    add_library(faulty_calls MODULE faults/known_faults.cpp faults/faults.cpp faults/preloaded.cpp)
    target_include_directories(faulty_calls PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(faulty_calls PRIVATE tirpc)
    target_compile_definitions(tavrend_fault_tests PRIVATE FAULTY_CALLS="$<TARGET_FILE:faulty_calls>")
    add_dependencies(tavrend_fault_tests faulty_calls)
  endif()

  # A sanitizer has memory of its own, takes longest with gigabytes, and stands in for the same functions.
  if(NOT TAVREN_SANITIZE)
    tavrend_daemon_test(tavrend_large_file_tests 700 tavrend/large_files_test.cpp)
    tavrend_daemon_test(tavrend_life_tests 180 tavrend/memory_test.cpp tavrend/retries_test.cpp tavrend/rpcbind_test.cpp
      tavrend/broken_disk_test.cpp)
    list(APPEND with_database tavrend_large_file_tests tavrend_life_tests)
    foreach(module broken_disk moved_clock noted_waits stopped_clock)
      starts_daemon_with(tavrend_life_tests ${module})
    endforeach()
  endif()
  foreach(name IN LISTS with_database)
    target_link_libraries(${name} PRIVATE ${sqlite3_library})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tavrend)
  endforeach()
endif()
