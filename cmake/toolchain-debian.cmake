# What the cross toolchains here have in common: libraries and headers of this machine are not the target's. The compiler
# finds the target's own C and C++ libraries by itself. Packages are looked for where CMAKE_PREFIX_PATH says, too.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
list(GET CMAKE_CROSSCOMPILING_EMULATOR 2 CMAKE_FIND_ROOT_PATH)
