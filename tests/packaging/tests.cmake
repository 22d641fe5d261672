# What is installed where. The stand-in for the platform's database is expected; sanitizers, emulators and the prefix of
# the system have search paths of their own.
if(TARGET hodra-put AND NOT TAVREN_SANITIZE AND NOT CMAKE_CROSSCOMPILING AND NOT CMAKE_INSTALL_PREFIX STREQUAL /usr)
  add_test(NAME Install.PutsEveryFileWhereItBelongs
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/compare-installed ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${CMAKE_COMMAND}
      "$<IF:$<CONFIG:>,noconfig,$<CONFIG>>" ${CMAKE_INSTALL_LIBDIR} ${PROJECT_VERSION})
  set_tests_properties(Install.PutsEveryFileWhereItBelongs PROPERTIES TIMEOUT 120)

  if(with_pkg_config)
    add_test(NAME Install.KeepsAnAbsoluteDirectory
      COMMAND ${CMAKE_CURRENT_LIST_DIR}/absolute-directories ${PROJECT_SOURCE_DIR} ${CMAKE_COMMAND} ${CMAKE_GENERATOR})
    set_tests_properties(Install.KeepsAnAbsoluteDirectory PROPERTIES TIMEOUT 120)
  endif()
endif()

add_test(NAME Version.IsTheSameEverywhere
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/compare-versions ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION} $<TARGET_FILE:tavren>
    ${PROJECT_BINARY_DIR}/packaging/tavren.pc ${CMAKE_C_COMPILER})
set_tests_properties(Version.IsTheSameEverywhere PROPERTIES TIMEOUT 60)

if(CMAKE_CROSSCOMPILING)
  list(JOIN directories ":" library_directories) # of the toolchain file
  add_test(NAME CrossBuild.CanBeCopiedToItsMachine
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/cross-build ${PROJECT_SOURCE_DIR} ${CMAKE_COMMAND} ${CMAKE_TOOLCHAIN_FILE}
      /usr/${compiler_prefix}/lib/${loader} ${library_directories} ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(CrossBuild.CanBeCopiedToItsMachine PROPERTIES TIMEOUT 600)
endif()
