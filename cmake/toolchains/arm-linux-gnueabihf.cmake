# 32-bit ARM Linux (armhf), where long and size_t are 32 bits as on the Android target. Uses
# Debian's cross compiler and multiarch :armhf packages; binaries run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# The multiarch root, not the cross toolchain's: the toolchain's older loader with the multiarch
# libc crashes in pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /)

# Look for programs on the host; libraries and packages only in the armhf multiarch tree.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
