# The stand-in for the platform's configuration database, and the library over it and over others.
if(with_googletest AND TARGET hodra-put)
  tavren_test(hodra_tests platform/hodra_test.cpp)
  target_link_libraries(hodra_tests PRIVATE hodra hodrahelper)
  tavren_test(database_tests platform/database_test.cpp)
  foreach(name hodra_tests database_tests)
    target_compile_definitions(${name} PRIVATE HODRA_PUT="${hodra_put}")
    add_dependencies(${name} hodra-put)
  endforeach()
endif()

# A platform tree: the database library does not name its companion, which it needs all the same.
set(tree ${CMAKE_CURRENT_BINARY_DIR}/platform_tree)
foreach(name hodra hodrahelper)
  add_library(platform_tree_${name} SHARED platform/tree/${name}.c)
  target_include_directories(platform_tree_${name} PRIVATE ${PROJECT_SOURCE_DIR}/platform/hodra)
  set_target_properties(platform_tree_${name} PROPERTIES OUTPUT_NAME ${name} LIBRARY_OUTPUT_DIRECTORY ${tree}/lib
    C_VISIBILITY_PRESET default)
endforeach()
add_executable(print_chassis platform/print_chassis.c)
target_link_libraries(print_chassis PRIVATE tavren)

# The paths that a cross-built program carries would win over LD_LIBRARY_PATH.
if(NOT TAVREN_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME PlatformTree.TakesTheStandInsPlaceAtRunTime COMMAND print_chassis)
  set_tests_properties(PlatformTree.TakesTheStandInsPlaceAtRunTime PROPERTIES TIMEOUT 60
    ENVIRONMENT LD_LIBRARY_PATH=${tree}/lib PASS_REGULAR_EXPRESSION "^PLATFORM-1\n$")
  add_test(NAME PlatformTree.IsChosenWhenConfiguring
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/configure-with-tree
      ${PROJECT_SOURCE_DIR} ${tree} ${CMAKE_COMMAND} ${CMAKE_GENERATOR} ${CMAKE_C_COMPILER})
  set_tests_properties(PlatformTree.IsChosenWhenConfiguring PROPERTIES TIMEOUT 600
    PASS_REGULAR_EXPRESSION "^PLATFORM-1\n$")
endif()
