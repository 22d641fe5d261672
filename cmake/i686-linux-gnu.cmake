# 32-bit x86, built with Debian's cross compiler and run natively.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(architecture i386)
set(compiler_prefix i686-linux-gnu)
set(library_directory i386-linux-gnu)
set(loader ld-linux.so.2)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
