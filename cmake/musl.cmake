# Toolchain for the small C library musl, on this machine's own processor. musl,
# and the libraries built against it, are in the folder that script/setup-musl makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_HOST_SYSTEM_PROCESSOR})
cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/musl-sysroot)

set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
# -B: before this machine's own libraries, which lie beside the compiler.
add_link_options(-B${CMAKE_SYSROOT}/usr/lib -static-libgcc
  -Wl,--dynamic-linker=/lib/ld-musl-${CMAKE_SYSTEM_PROCESSOR}.so.1)

# What the C++ headers, which are configured for glibc, take for granted in
# declarations; nothing that uses it is ever called.
set(glibc_names "-D'__GLIBC_PREREQ(major,minor)=0' -D__locale_t=locale_t")
string(APPEND glibc_names
  " -D'pthread_cond_clockwait(condition,mutex,clock,time)=pthread_cond_timedwait(condition,mutex,time)'")
foreach(class upper lower alpha digit xdigit space print punct cntrl blank)
  string(APPEND glibc_names " -D_IS${class}=0")
endforeach()
set(CMAKE_CXX_FLAGS_INIT "${glibc_names}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/pkgconfig)
