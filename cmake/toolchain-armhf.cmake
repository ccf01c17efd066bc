# The target: Cortex-A9, hard float, NEON, with Debian's cross compiler. Libraries come from the
# folder that scripts/armhf-sysroot.sh fills.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_FLAGS_INIT "-mcpu=cortex-a9 -mfpu=neon -mfloat-abi=hard -Wno-psabi")

get_filename_component(HEAD_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot" ABSOLUTE)
set(head_libraries ${HEAD_SYSROOT}/usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${HEAD_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${head_libraries}/pkgconfig:${HEAD_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${HEAD_SYSROOT})
# The linker's detours around an erratum of the Cortex-A8 are taken where a branch happens to end a page, so that
# code would depend on the lengths of the strings before it; the Cortex-A9 does not have the erratum.
add_link_options(-Wl,--no-fix-cortex-a8)
add_link_options(-Wl,-rpath-link,${head_libraries} -Wl,-rpath-link,${HEAD_SYSROOT}/lib/arm-linux-gnueabihf)

# The emulator gets its library path: with a foreign libc installed as well, -L alone mixes two.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm-static -cpu cortex-a9 -L /usr/arm-linux-gnueabihf -E
    LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib:${head_libraries}:${HEAD_SYSROOT}/lib/arm-linux-gnueabihf)
