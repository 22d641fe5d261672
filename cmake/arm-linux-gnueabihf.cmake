# 32-bit ARM, where char is unsigned, built with Debian's cross compiler and run under QEMU.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-arm-static)
set(architecture armhf)
set(compiler_prefix arm-linux-gnueabihf)
set(library_directory arm-linux-gnueabihf)
set(loader ld-linux-armhf.so.3)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
