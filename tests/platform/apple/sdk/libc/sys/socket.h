#pragma once

#include <stdint.h>

#define AF_INET 2
#define AF_INET6 30

typedef uint8_t sa_family_t;

struct sockaddr {
  uint8_t sa_len;
  sa_family_t sa_family;
  char sa_data[14];
};
