# 32-bit big-endian Linux, run through user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE powerpc-linux-gnu)
# By its whole path: tests run programs where the search path leads nowhere.
find_program(QIM_QEMU qemu-ppc NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QIM_QEMU} -L /usr/powerpc-linux-gnu)

# Programs come from this machine. The cross compiler searches /usr/include by itself, after its own
# headers, so header-only packages need no search path here.
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
