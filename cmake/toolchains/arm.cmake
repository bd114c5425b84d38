# What both ARM toolchains have in common: Debian's cross compilers, and an emulator for what they make.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KX_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KX_TRIPLET}-g++)
# Neither the emulator nor a program in it may hang a build: listing tests is part of one.
set(KX_SYSROOT_LIBRARIES ${KX_SYSROOT}/usr/lib/${KX_TRIPLET})
set(CMAKE_CROSSCOMPILING_EMULATOR timeout --kill-after=5 120 ${KX_EMULATOR} -L /usr/${KX_TRIPLET}
  -E LD_LIBRARY_PATH=${KX_SYSROOT_LIBRARIES})
# What the libraries there stand on is there, too.
foreach(kind EXE SHARED)
  string(APPEND CMAKE_${kind}_LINKER_FLAGS_INIT " -Wl,-rpath-link,${KX_SYSROOT_LIBRARIES}")
endforeach()

# Beyond the C and C++ libraries, everything comes from KX_SYSROOT, and nothing from this machine.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KX_SYSROOT)
set(CMAKE_FIND_ROOT_PATH ${KX_SYSROOT})
set(CMAKE_LIBRARY_ARCHITECTURE ${KX_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
