#pragma once

#define _SYS_NAMELEN 256

struct utsname {
  char sysname[_SYS_NAMELEN];
  char nodename[_SYS_NAMELEN];
  char release[_SYS_NAMELEN];
  char version[_SYS_NAMELEN];
  char machine[_SYS_NAMELEN];
};

#ifdef __cplusplus
extern "C" {
#endif

int uname(struct utsname *names);

#ifdef __cplusplus
}
#endif
