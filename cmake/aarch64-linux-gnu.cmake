# Cross build for 64-bit ARM Linux (aarch64) with Debian's cross compiler
# (g++-aarch64-linux-gnu): a static PIE that runs on any aarch64 Linux.
#   cmake -S . -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The base of the 64-bit ARM architecture: population count and trailing
# zeros are single instructions there already.
set(VELKOR_ARCH "armv8-a" CACHE STRING "Target processor level (-march)")
