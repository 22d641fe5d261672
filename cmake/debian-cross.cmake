# Included by the toolchain files, which say what differs: the compilers' prefix, Debian's name of the architecture and
# the directory of its libraries, and the loader's name. What Debian has no cross packages of comes from the directory
# that scripts/sysroot makes.
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${architecture} ABSOLUTE)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${compiler_prefix}-gcc)
set(CMAKE_CXX_COMPILER ${compiler_prefix}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${library_directory})
set(CMAKE_FIND_ROOT_PATH /usr/${compiler_prefix} ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(directories /usr/${compiler_prefix}/lib ${sysroot}/lib/${library_directory} ${sysroot}/usr/lib/${library_directory})
if(DEFINED BUILD_TESTING AND NOT BUILD_TESTING)
  # Built to be copied to such a machine: nothing may lead back to this one.
  list(TRANSFORM directories PREPEND "-Wl,-rpath-link,")
  list(JOIN directories " " flags)
  set(CMAKE_EXE_LINKER_FLAGS_INIT "${flags}")
else()
  # Built to be tested here. The foreign C library is not where the kernel looks for its loader, so programs name it
  # themselves. DT_RPATH, because the loader must find libstdc++ and the RPC library's own needs for libtavren too; where
  # a library has a DT_RUNPATH of its own, it would not look there.
  list(JOIN directories ":" rpath)
  set(flags "-Wl,--disable-new-dtags -Wl,-rpath,${rpath}")
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=/usr/${compiler_prefix}/lib/${loader} ${flags}")
endif()
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${flags}")
