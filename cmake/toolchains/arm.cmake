# What both ARM toolchains have in common: Debian's cross compilers, and an emulator for what they make.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KX_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KX_TRIPLET}-g++)
# Neither the emulator nor a program in it may hang a build: listing tests is part of one.
set(CMAKE_CROSSCOMPILING_EMULATOR timeout --kill-after=5 120 ${KX_EMULATOR} -L /usr/${KX_TRIPLET})

# Beyond the C and C++ libraries, everything comes from KX_SYSROOT, and nothing from this machine.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KX_SYSROOT)
set(CMAKE_FIND_ROOT_PATH ${KX_SYSROOT})
set(CMAKE_LIBRARY_ARCHITECTURE ${KX_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
