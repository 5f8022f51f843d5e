# Cross-compiling for a Debian 12 target with Debian's cross compilers, against a sysroot of
# the target's -dev packages, with the build machine's Qt tools (moc, uic, rcc, lrelease).
# scripts/cross-build.sh sets the two variables this file reads from the environment:
#   TIDESHELL_CROSS_TRIPLET   aarch64-linux-gnu or arm-linux-gnueabihf
#   TIDESHELL_SYSROOT         the target's root file system (mmdebstrap --variant=extract)
# With qemu-user-static installed, the test programs run through it (ctest, for instance).
set(triplet $ENV{TIDESHELL_CROSS_TRIPLET})
set(sysroot $ENV{TIDESHELL_SYSROOT})
if(NOT triplet OR NOT sysroot)
    message(FATAL_ERROR "set TIDESHELL_CROSS_TRIPLET and TIDESHELL_SYSROOT")
endif()

set(CMAKE_SYSTEM_NAME Linux)
if(triplet MATCHES "^aarch64")
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
    set(qemu qemu-aarch64-static)
else()
    set(CMAKE_SYSTEM_PROCESSOR arm)
    set(qemu qemu-arm-static)
endif()
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_SYSROOT ${sysroot})
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config answers for the target.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})
set(ENV{PKG_CONFIG_LIBDIR} "${sysroot}/usr/lib/${triplet}/pkgconfig:${sysroot}/usr/share/pkgconfig")

# Qt's code generators run on the build machine: the host's Qt, and the host's lrelease
# (the sysroot's LinguistTools would hand CMake the target's binary).
set(QT_HOST_PATH /usr)
execute_process(COMMAND dpkg-architecture -qDEB_BUILD_MULTIARCH OUTPUT_VARIABLE host_multiarch
                OUTPUT_STRIP_TRAILING_WHITESPACE)
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${host_multiarch}/cmake)
set(Qt6LinguistTools_DIR /usr/lib/${host_multiarch}/cmake/Qt6LinguistTools CACHE PATH "")

find_program(qemu_program ${qemu})
if(qemu_program)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${qemu_program} -L ${sysroot})
endif()
