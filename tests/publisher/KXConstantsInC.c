/* The header is C: this file is compiled as such, and what it sees is compared by KXConstantsTest.cpp. */
#include <KXPublisher/KXConstants.h>

const char *ifaKeyAsCSeesIt(void);
double firstDelayAsCSeesIt(void);

const char *ifaKeyAsCSeesIt(void) {
  return dataKeyIfa;
}
double firstDelayAsCSeesIt(void) {
  return loggingFirstTimeDelay;
}
