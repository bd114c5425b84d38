#import <KXPublisher/KXPublisher.h>

int main(void) {
  [[KXPublisher sharedInstanceWithApiToken:@"token" hostname:@"collect.example.com"] enableDebugging];
  return 0;
}
