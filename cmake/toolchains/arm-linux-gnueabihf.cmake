# 32-bit ARM: pointers, long, size_t and intptr_t have 32 bits, and a 64-bit atomic is a matter of its own.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KX_EMULATOR qemu-arm)
set(KX_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/arm.cmake)
# GCC says, at every call that passes a 64-bit member, that such calls changed in GCC 7.
string(APPEND CMAKE_CXX_FLAGS_INIT " -Wno-psabi")
