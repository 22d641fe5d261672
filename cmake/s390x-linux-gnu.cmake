# 64-bit and big-endian, built with Debian's cross compiler and run under QEMU.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-s390x-static)
set(architecture s390x)
set(compiler_prefix s390x-linux-gnu)
set(library_directory s390x-linux-gnu)
set(loader ld64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
