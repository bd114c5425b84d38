#pragma once

/* The functions with a locale of their own that libc++ calls on iOS. */

#include <locale.h>
#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

int sscanf_l(const char *text, locale_t locale, const char *format, ...);
int snprintf_l(char *text, size_t size, locale_t locale, const char *format, ...);
int asprintf_l(char **text, locale_t locale, const char *format, ...);

#ifdef __cplusplus
}
#endif
