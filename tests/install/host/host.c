/* A host in C has the constants. */
#include <KXPublisher/KXConstants.h>
#include <stdio.h>

int main(void) {
  printf("%s %s\n", kxPublisherSdkName, kxPublisherSdkVersion);
  return KXPublisherVersionNumber >= 1.0 ? 0 : 1;
}
