# 64-bit ARM: what an iOS device runs today.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(KX_EMULATOR qemu-aarch64)
set(KX_TRIPLET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/arm.cmake)
