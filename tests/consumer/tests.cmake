# Programs of other people, built against a tree that has been installed and then moved elsewhere. What the compilers and
# the loader of this machine cannot use is left to the packages' own test.
if(with_pkg_config AND NOT TAVREN_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  set(consumers ${CMAKE_CURRENT_BINARY_DIR}/consumer)
  set(installed ${consumers}/moved)
  add_test(NAME Consumer.Installation COMMAND sh -ec
    "rm -rf '${consumers}' && '${CMAKE_COMMAND}' --install '${PROJECT_BINARY_DIR}' --prefix '${consumers}/first' >/dev/null
     mv '${consumers}/first' '${installed}'")
  set_tests_properties(Consumer.Installation PROPERTIES TIMEOUT 120 FIXTURES_SETUP installed_library)

  foreach(tool pkg-config cmake examples)
    add_test(NAME Consumer.BuildsWith_${tool}
      COMMAND ${CMAKE_CURRENT_LIST_DIR}/build-with ${tool} ${consumers}/${tool})
    set_tests_properties(Consumer.BuildsWith_${tool} PROPERTIES TIMEOUT 300 FIXTURES_REQUIRED installed_library
      ENVIRONMENT "CC=${CMAKE_C_COMPILER};CXX=${CMAKE_CXX_COMPILER};CMAKE_GENERATOR=${CMAKE_GENERATOR};CMAKE_PREFIX_PATH=${installed}"
      ENVIRONMENT_MODIFICATION "PKG_CONFIG_PATH=path_list_prepend:${installed}/${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  endforeach()
endif()
