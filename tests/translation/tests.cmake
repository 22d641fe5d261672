if(with_googletest)
  tavren_test(translation_tests translation/german_test.cpp)
  target_compile_definitions(translation_tests PRIVATE CATALOGUES="${PROJECT_BINARY_DIR}/po")
  add_dependencies(translation_tests translations)
endif()

# Files only, the same for every target.
if(NOT CMAKE_CROSSCOMPILING AND NOT TAVREN_SANITIZE)
  add_test(NAME Texts.AreAllInTheTemplate
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/compare-texts ${PROJECT_SOURCE_DIR})
  file(GLOB languages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/po/*.po)
  foreach(file IN LISTS languages)
    cmake_path(GET file STEM language)
    add_test(NAME Texts.AreAllTranslatedInto_${language} COMMAND msgcmp ${file} ${PROJECT_SOURCE_DIR}/po/tavren.pot)
    set_tests_properties(Texts.AreAllTranslatedInto_${language} PROPERTIES TIMEOUT 60)
  endforeach()
  set_tests_properties(Texts.AreAllInTheTemplate PROPERTIES TIMEOUT 60)
endif()
