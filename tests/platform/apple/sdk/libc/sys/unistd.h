#pragma once

/* newlib names a parameter "__block", which is a keyword where there are blocks. */
#pragma push_macro("__block")
#undef __block
#define __block parameter
#include_next <sys/unistd.h>
#pragma pop_macro("__block")
