# Run by cpack between installing and packing: what Debian's packages hold beside the installed files. The compressed
# files say no time, so that two builds of one version give the same packages.
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)

function(compress)
  if(ARGN)
    execute_process(COMMAND gzip -9n ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
  endif()
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(package ${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})
  set(documents ${root}/usr/share/doc/${package})
  file(MAKE_DIRECTORY ${documents})
  file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright)
  file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md ${documents}/changelog)
  file(WRITE ${documents}/changelog.Debian
    "tavren (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
    "  * Version ${CPACK_PACKAGE_VERSION}; the changelog beside this says what is new.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
  compress(${documents}/changelog ${documents}/changelog.Debian)

  # Configuration does not lie below the prefix.
  if(EXISTS ${root}/usr/etc)
    file(RENAME ${root}/usr/etc ${root}/etc)
  endif()

  # What the packing tool does in its own way.
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${package}.lintian-overrides)
    file(MAKE_DIRECTORY ${root}/usr/share/lintian/overrides)
    file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/${package}.lintian-overrides ${root}/usr/share/lintian/overrides/${package})
  endif()

  # Manual pages, and names of them that are links.
  file(GLOB_RECURSE pages ${root}/usr/share/man/*)
  foreach(page IN LISTS pages)
    if(IS_SYMLINK ${page})
      file(READ_SYMLINK ${page} target)
      file(REMOVE ${page})
      file(CREATE_LINK ${target}.gz ${page}.gz SYMBOLIC)
      list(REMOVE_ITEM pages ${page})
    endif()
  endforeach()
  compress(${pages})
endforeach()
