// Makes blocks objects, so that Foundation can keep them. Compiled without ARC.

#import <Foundation/Foundation.h>

#include <Block.h>

extern "C" id objc_retainBlock(id block);

id objc_retainBlock(id block) {
  return static_cast<id>(_Block_copy(block));
}

/// What every block is an instance of.
@interface KXBlock : NSObject
@end

@implementation KXBlock

- (id)copyWithZone:(NSZone *)zone {
  return objc_retainBlock(self);
}

- (id)retain {
  return objc_retainBlock(self);
}

- (oneway void)release {
  _Block_release(self);
}

@end

// The compiler takes a block's class to be at these symbols.
__asm__(".globl _NSConcreteStackBlock, _NSConcreteMallocBlock, _NSConcreteGlobalBlock\n"
        ".set _NSConcreteStackBlock, _OBJC_CLASS_KXBlock\n"
        ".set _NSConcreteMallocBlock, _OBJC_CLASS_KXBlock\n"
        ".set _NSConcreteGlobalBlock, _OBJC_CLASS_KXBlock\n");
