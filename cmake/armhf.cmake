# Cross-build for the instrument: 32-bit ARM Linux (Debian armhf), with the
# libraries of the sysroot that scripts/install-armhf.sh unpacks. The built
# programs run on this machine under qemu; CTest puts it in front of them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

get_filename_component(LABSHELL_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/cache/armhf/sysroot" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH "${LABSHELL_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The linker follows the sysroot's libraries to what they need (readline to
# libtinfo); the compiler's own C and C++ libraries come with the cross tools.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${LABSHELL_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf:${LABSHELL_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L "${LABSHELL_ARMHF_SYSROOT}")
