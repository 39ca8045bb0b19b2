# A big-endian machine of 64 bits, with Debian's cross compiler; its programs run here through qemu's user mode.
# scripts/setup-device installs both.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x -L /usr/s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-debian.cmake)
