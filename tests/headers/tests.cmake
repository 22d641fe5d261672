# Every public header compiles alone: the C families as C and as C++, the others as C++. The sources come from the
# list of files, so that no header can be forgotten.
file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR}/include CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
set(strict -isystem ${TIRPC_INCLUDE_DIR} -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only -I${PROJECT_SOURCE_DIR}/include)

# header_test(NAME CONTENT c|cpp): compiles that content, with the interface of the plain standard and nothing else.
# C knows no empty source, so each declares something behind its header.
function(header_test name content language)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.${language})
  file(CONFIGURE OUTPUT ${source} CONTENT "${content}extern int declared;\n" @ONLY)
  if(language STREQUAL c)
    set(test Headers.${name}_CompilesAsC11)
    add_test(NAME ${test} COMMAND ${CMAKE_C_COMPILER} -std=c11 ${strict} -Wstrict-prototypes ${source})
  else()
    set(test Headers.${name}_CompilesAsCxx17)
    add_test(NAME ${test} COMMAND ${CMAKE_CXX_COMPILER} -std=c++17 ${strict} -Wnon-virtual-dtor ${source})
  endif()
  set_tests_properties(${test} PROPERTIES TIMEOUT 60)
endfunction()

set(everything_in_c "#include \"tavren.h\"\n")
set(everything_in_cpp "#include \"tavren.h\"\n")
foreach(header IN LISTS headers)
  get_filename_component(name ${header} NAME_WE)
  string(REGEX REPLACE "([a-z])([A-Z])" "\\1_\\2" guard ${name})
  string(TOUPPER ${guard}_H guard)
  set(demand "#ifndef ${guard}\n#error ${header} is missing\n#endif\n")
  header_test(${name} "#include \"${header}\"\n" cpp)
  # The protocol's header needs those of the RPC library, so nobody gets it unasked.
  if(NOT header STREQUAL tavren_rpc.h)
    string(APPEND everything_in_cpp "${demand}")
  endif()
  if(header MATCHES "^tavren[_.]" AND NOT header STREQUAL tavren_util.h)
    header_test(${name} "#include \"${header}\"\n" c)
    if(NOT header STREQUAL tavren_rpc.h)
      string(APPEND everything_in_c "${demand}")
    endif()
  endif()
endforeach()

# The umbrella header leaves none out.
header_test(every_header_by_the_umbrella "${everything_in_c}" c)
header_test(every_header_by_the_umbrella "${everything_in_cpp}" cpp)

# The sanitizers change what a library exports.
if(NOT TAVREN_SANITIZE)
  math(EXPR bits "8 * ${CMAKE_SIZEOF_VOID_P}")
  add_test(NAME Exports.AreTheNamesOfTheList
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/compare-exports
      ${CMAKE_NM} $<TARGET_FILE:tavren> ${bits} ${CMAKE_CURRENT_SOURCE_DIR}/exported_names.txt)
  set_tests_properties(Exports.AreTheNamesOfTheList PROPERTIES TIMEOUT 60)
endif()
