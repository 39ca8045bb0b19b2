# 32-bit ARM with hardware floating point (Debian's armhf: ARMv7, Thumb-2), with Debian's cross compiler; its programs
# run here through qemu's user mode. scripts/setup-device installs both.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# g++ notes at each call what changed between its versions 6 and 7: nothing here was compiled by one that old.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-debian.cmake)
