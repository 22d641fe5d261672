tavren_test(error_tests core/TavrenError_test.cpp core/TavrenError_text_test.cpp core/TavrenError_serialised_test.cpp
  core/TavrenError_locale_test.cpp core/tavren_malloc_test.cpp core/TavrenMutex_test.cpp TOGETHER)
target_compile_definitions(error_tests PRIVATE SOURCES="${PROJECT_SOURCE_DIR}/src")
tavren_test(error_memory_tests core/error_memory_test.cpp $<TARGET_OBJECTS:failing_memory> TOGETHER)
tavren_test(tunables_tests core/TavrenTunables_test.cpp core/TavrenTunables_text_test.cpp core/TavrenTunables_layout_test.cpp
  core/TavrenTunables_threads_test.cpp TOGETHER)
tavren_test(fatal_path_tests core/fatal_paths_test.cpp core/tavren_assert_test.cpp core/report_file_test.cpp
  core/catalogue_test.cpp core/long_translations_test.cpp
  TOGETHER EXCEPT FatalPath.*Thread*:FatalPathOnce.EndsWhenTheErrorOutputTakesNothing:ReportFile.*Thread*)
tavren_test(mutex_failure_tests core/TavrenMutex_failures_test.cpp)

# A sanitizer needs memory of its own and brings an operator new that never calls a handler.
if(NOT TAVREN_SANITIZE)
  tavren_test(memory_exhaustion_tests core/memory_exhaustion_test.cpp)
endif()
