# 32-bit x86, built with Debian's cross compiler and run natively. What Debian has no cross packages of comes from the
# directory that scripts/sysroot makes.
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/i386 ABSOLUTE)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/i686-linux-gnu ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# The 32-bit C library is not where the kernel looks for its loader, so programs name it themselves. DT_RPATH, because
# the loader must find libstdc++ and the RPC library's own needs for libtavren too; where a library has a DT_RUNPATH of
# its own, it would not look there.
set(rpath "-Wl,--disable-new-dtags \
-Wl,-rpath,/usr/i686-linux-gnu/lib:${sysroot}/lib/i386-linux-gnu:${sysroot}/usr/lib/i386-linux-gnu")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=/usr/i686-linux-gnu/lib/ld-linux.so.2 ${rpath}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${rpath}")
