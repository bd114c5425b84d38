#pragma once

/* Included before everything else: makes newlib declare what the C library of iOS declares by default, and
 * adds what libc++ expects of that library's character classes. */

#define _GNU_SOURCE 1
#define _POSIX_THREADS 1
#define _UNIX98_THREAD_MUTEX_ATTRIBUTES 1
#define _POSIX_TIMERS 1
#define _POSIX_MONOTONIC_CLOCK 200112L

#define _CTYPE_A 0x00000100L
#define _CTYPE_C 0x00000200L
#define _CTYPE_D 0x00000400L
#define _CTYPE_G 0x00000800L
#define _CTYPE_L 0x00001000L
#define _CTYPE_P 0x00002000L
#define _CTYPE_S 0x00004000L
#define _CTYPE_U 0x00008000L
#define _CTYPE_X 0x00010000L
#define _CTYPE_B 0x00020000L
#define _CTYPE_R 0x00040000L

#include <xlocale.h>
