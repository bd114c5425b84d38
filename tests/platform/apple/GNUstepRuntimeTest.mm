// The ground that the tests of the Apple platform stand on: ARC, blocks, exceptions and Foundation behave as
// on an iPhone, as far as the library relies on it.

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

std::atomic<int> tornDown{0};

}  // namespace

@protocol KXNamed
- (NSString *)name;
@end

/// An object whose end is counted.
@interface KXProbe : NSObject <KXNamed>
@property(atomic, strong) KXProbe *atomicStrong;
@property(nonatomic, strong) KXProbe *strong;
@property(nonatomic, weak) KXProbe *weak;
@property(atomic, copy) NSString *atomicText;
@property(nonatomic, copy) NSString *text;
@property(nonatomic) int ticks;
@end

@implementation KXProbe {
  std::shared_ptr<int> _shared;
}

- (void)hold:(std::shared_ptr<int>)shared {
  _shared = std::move(shared);
}

- (void)dealloc {
  ++tornDown;
}

- (NSString *)name {
  return @"probe";
}

- (void)tick:(NSTimer *)timer {
  ++_ticks;
}

- (double)half {
  return 0.5;
}

- (NSRange)everything {
  return NSMakeRange(3, 4);
}

@end

/// A subclass with variables of its own.
@interface KXLongerProbe : KXProbe
@end

@implementation KXLongerProbe {
  long _first;
  long _second;
}

- (NSString *)name {
  _first = 1;
  _second = 2;
  return [[super name] stringByAppendingFormat:@" %ld", _first + _second];
}

@end

@implementation NSString (KXShouting)
- (NSString *)kx_shouted {
  return self.uppercaseString;
}
@end

namespace {

/// Work that autoreleases, done with.
template <class Work>
void inPool(Work work) {
  @autoreleasepool {
    work();
  }
}

TEST(AutomaticReferenceCounting, TearsAnObjectDownWithItsLastReference) {
  KXProbe *first = [KXProbe new];
  KXProbe *second = first;
  first = nil;
  EXPECT_EQ(tornDown, 0);
  EXPECT_TRUE(second != nil);
  second = nil;
  EXPECT_EQ(tornDown, 1);
}

TEST(AutomaticReferenceCounting, ReleasesWhatAnObjectHolds) {
  const auto shared = std::make_shared<int>(1);
  inPool([&shared] {
    KXProbe *const holder = [KXProbe new];
    holder.strong = [KXProbe new];
    holder.atomicStrong = [KXProbe new];
    [holder hold:shared];
    EXPECT_EQ(shared.use_count(), 2);
  });
  EXPECT_EQ(tornDown, 3);
  EXPECT_EQ(shared.use_count(), 1);
}

TEST(AutomaticReferenceCounting, CopiesWhatIsToBeCopied) {
  inPool([] {
    KXProbe *const probe = [KXProbe new];
    NSMutableString *const text = [NSMutableString stringWithString:@"a"];
    probe.text = text;
    probe.atomicText = text;
    [text appendString:@"b"];
    EXPECT_STREQ(probe.text.UTF8String, "a");
    EXPECT_STREQ(probe.atomicText.UTF8String, "a");
  });
}

TEST(AutomaticReferenceCounting, ObjectsInContainersLiveAsLongAsThose) {
  std::vector<KXProbe *> probes;
  inPool([&probes] {
    probes.push_back([KXProbe new]);
    probes.push_back([KXProbe new]);
  });
  EXPECT_EQ(tornDown, 0);
  probes.clear();
  EXPECT_EQ(tornDown, 2);
}

TEST(AutomaticReferenceCounting, SurvivesAnException) {
  try {
    KXProbe *const probe = [KXProbe new];
    if (probe != nil) throw 1;
  } catch (int) {
  }
  EXPECT_EQ(tornDown, 1);
}

TEST(WeakReferences, AreEmptyBeforeTheObjectIsTornDown) {
  KXProbe *holder = [KXProbe new];
  __weak KXProbe *weak = nil;
  inPool([&] {
    KXProbe *const probe = [KXProbe new];
    holder.weak = probe;
    weak = probe;
    EXPECT_TRUE(weak == probe);
    EXPECT_TRUE(holder.weak == probe);
  });
  EXPECT_EQ(tornDown, 1);
  EXPECT_TRUE(weak == nil);
  inPool([&] { EXPECT_TRUE(holder.weak == nil); });
}

TEST(WeakReferences, FollowTheirVariables) {
  std::vector<__weak KXProbe *> references;
  KXProbe *probe = [KXProbe new];
  for (int count = 0; count < 20; ++count) references.push_back(probe);  // moves them again and again
  probe = nil;
  for (const auto &reference : references) EXPECT_TRUE(reference == nil);
}

TEST(WeakReferences, AreReadOnOneThreadWhileTheObjectGoesOnAnother) {
  for (int round = 0; round < 200; ++round) {
    KXProbe *probe = [KXProbe new];
    __weak KXProbe *weak = probe;
    std::atomic<bool> ready{false};
    std::thread reader([&weak, &ready] {
      ready = true;
      while (true) {
        KXProbe *const strong = weak;
        if (strong == nil) break;
        EXPECT_EQ([strong half], 0.5);
      }
    });
    while (!ready) std::this_thread::yield();
    probe = nil;
    reader.join();
  }
  EXPECT_EQ(tornDown, 200);
}

TEST(Messages, ReachSubclassesCategoriesAndProtocols) {
  inPool([] {
    KXProbe *const probe = [KXLongerProbe new];
    EXPECT_STREQ([probe name].UTF8String, "probe 3");
    EXPECT_STREQ([[probe name] kx_shouted].UTF8String, "PROBE 3");
    EXPECT_TRUE([probe conformsToProtocol:@protocol(KXNamed)]);
    EXPECT_TRUE([probe respondsToSelector:@selector(name)]);
    EXPECT_FALSE([probe respondsToSelector:@selector(lastObject)]);
  });
}

TEST(Messages, OfNilAnswerZero) {
  KXProbe *const nothing = nil;
  EXPECT_TRUE([nothing name] == nil);
  EXPECT_EQ([nothing half], 0.0);
  EXPECT_EQ([nothing everything].length, 0u);
  EXPECT_EQ([[KXProbe new] half], 0.5);
  EXPECT_EQ([[KXProbe new] everything].length, 4u);
}

TEST(Blocks, HoldWhatTheyCapture) {
  int (^block)(void) = nil;
  const auto shared = std::make_shared<int>(41);
  inPool([&block, &shared] {
    KXProbe *const probe = [KXProbe new];
    const auto captured = shared;
    __block int extra = 0;
    block = ^{
      return ++extra + *captured + (probe != nil ? 0 : 100);
    };
  });
  EXPECT_EQ(tornDown, 0);
  EXPECT_EQ(block(), 42);
  EXPECT_EQ(block(), 43);
  block = nil;
  EXPECT_EQ(tornDown, 1);
  EXPECT_EQ(shared.use_count(), 1);
}

TEST(Blocks, HoldNotWhatIsWeak) {
  bool (^isThere)(void) = nil;
  inPool([&isThere] {
    KXProbe *const probe = [KXProbe new];
    __weak KXProbe *const weak = probe;
    isThere = ^{
      return weak != nil;
    };
    EXPECT_TRUE(isThere());
  });
  EXPECT_FALSE(isThere());
}

TEST(Blocks, AreObjects) {
  int calls = 0;
  inPool([&calls] {
    int *const counted = &calls;
    NSMutableArray *const blocks = [NSMutableArray array];
    [blocks addObject:^{
      ++*counted;
    }];
    void (^const block)(void) = [blocks lastObject];
    block();
    EXPECT_TRUE([blocks containsObject:block]);
  });
  EXPECT_EQ(calls, 1);
}

TEST(Exceptions, OfFoundationAreCaughtByCPlusPlus) {
  bool caught = false;
  inPool([&caught] {
    try {
      [NSException raise:NSGenericException format:@"raised"];
    } catch (...) {
      caught = true;
    }
  });
  EXPECT_TRUE(caught);
}

TEST(Timers, InTheCommonModesFireInBoth) {
  for (NSString *mode in @[ NSDefaultRunLoopMode, @"UITrackingRunLoopMode" ]) {
    inPool([mode] {
      KXProbe *const target = [KXProbe new];
      NSTimer *const timer = [NSTimer timerWithTimeInterval:0.01
                                                     target:target
                                                   selector:@selector(tick:)
                                                   userInfo:nil
                                                    repeats:NO];
      [[NSRunLoop mainRunLoop] addTimer:timer forMode:NSRunLoopCommonModes];
      NSDate *const end = [NSDate dateWithTimeIntervalSinceNow:30];
      while (target.ticks == 0 && end.timeIntervalSinceNow > 0) {
        [[NSRunLoop mainRunLoop] runMode:mode beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.01]];
      }
      EXPECT_EQ(target.ticks, 1);
      EXPECT_FALSE(timer.isValid);
    });
  }
}

TEST(MainOperationQueue, RunsAtOnceOnTheMainThread) {
  __block bool ran = false;
  [[NSOperationQueue mainQueue] addOperation:[NSBlockOperation blockOperationWithBlock:^{
                                  ran = true;
                                }]];
  EXPECT_TRUE(ran);
}

TEST(MainOperationQueue, RunsOnTheMainThreadWhatOthersAdd) {
  auto *const onMainThread = new std::atomic<int>(-1);
  std::thread([onMainThread] {
    @autoreleasepool {
      [[NSOperationQueue mainQueue] addOperation:[NSBlockOperation blockOperationWithBlock:^{
                                      *onMainThread = [NSThread isMainThread] ? 1 : 0;
                                    }]];
    }
  }).join();
  EXPECT_EQ(*onMainThread, -1);
  inPool([onMainThread] {
    NSDate *const end = [NSDate dateWithTimeIntervalSinceNow:30];
    while (*onMainThread == -1 && end.timeIntervalSinceNow > 0) {
      [[NSRunLoop mainRunLoop] runMode:NSDefaultRunLoopMode
                            beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.01]];
    }
  });
  EXPECT_EQ(*onMainThread, 1);
}

}  // namespace
