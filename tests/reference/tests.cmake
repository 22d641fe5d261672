if(with_googletest)
  tavren_test(documents_tests reference/documents_test.cpp TOGETHER)
  target_link_libraries(documents_tests PRIVATE tirpc)
  target_compile_definitions(documents_tests PRIVATE DOCUMENTS="${PROJECT_SOURCE_DIR}/docs")
endif()

# The manual and the reference are the same for every target.
if(TAVREN_SANITIZE OR CMAKE_CROSSCOMPILING)
  return()
endif()

if(TARGET tavren_send)
  add_test(NAME Manual.HasTheOptionsOfThePrograms
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/compare-options ${PROJECT_SOURCE_DIR}/docs/man $<TARGET_FILE:tavren_send>
      $<TARGET_FILE:tavren_ctl>)
  set_tests_properties(Manual.HasTheOptionsOfThePrograms PROPERTIES TIMEOUT 60)
endif()

add_test(NAME Readme.ProgramIsTheExample COMMAND sh -c
  "sed -e '1,/^```c$/d' -e '/^```$/Q' '${PROJECT_SOURCE_DIR}/README.md' | diff - '${PROJECT_SOURCE_DIR}/examples/diary.c'")
set_tests_properties(Readme.ProgramIsTheExample PROPERTIES TIMEOUT 60)

if(with_python)
  # A function that nothing is said about does not get as far as a page.
  function(refused test header declarations complaint)
    set(path ${CMAKE_CURRENT_BINARY_DIR}/reference/${header})
    file(CONFIGURE OUTPUT ${path} CONTENT "/*\n * A family.\n */\n\n${declarations}\n")
    add_test(NAME ${test}
      COMMAND ${PROJECT_SOURCE_DIR}/docs/from-headers pages ${CMAKE_CURRENT_BINARY_DIR}/reference/man3 ${path})
    set_tests_properties(${test} PROPERTIES TIMEOUT 60 PASS_REGULAR_EXPRESSION "${header}:5: ${complaint}")
  endfunction()
  refused(Manual.RefusesAFunctionWithoutAComment tavren_silent.h
    "TAVREN_EXPORT int tavren_silent(int number);" "tavren_silent: no comment says what this does")
  refused(Manual.RefusesAFunctionWithTheCommentOfAnother tavren_sharing.h
    "/* Counts. */\nTAVREN_EXPORT int tavren_count(int number);\nTAVREN_EXPORT int tavren_sort(char* text);"
    "tavren_sort: the comment is another's")
endif()

if(with_python AND with_mandoc)
  add_test(NAME Manual.HasEveryFunction
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/check-manual ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR} ${CMAKE_INSTALL_MANDIR}
      ${CMAKE_CURRENT_SOURCE_DIR}/exported_names.txt)
  set_tests_properties(Manual.HasEveryFunction PROPERTIES TIMEOUT 120)

  add_test(NAME Manual.IsWellFormed
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/lint-manual ${PROJECT_SOURCE_DIR}/docs/man ${PROJECT_BINARY_DIR}/docs/man3)
  set_tests_properties(Manual.IsWellFormed PROPERTIES TIMEOUT 60)
endif()

if(with_python AND with_doxygen)
  find_package(Doxygen REQUIRED)
  add_test(NAME Reference.DoxygenHasNothingToComplainOf
    COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/docs/Doxyfile WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/reference)
  set_tests_properties(Reference.DoxygenHasNothingToComplainOf PROPERTIES TIMEOUT 300)
endif()
