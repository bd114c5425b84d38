#pragma once

// GCC's <objc/objc.h>, with the literals of clang.

#include_next <objc/objc.h>

#undef YES
#undef NO
#define YES __objc_yes
#define NO __objc_no
