#pragma once

#import <UIKit/UIKit.h>

/** The whole of the app: it asks the user what there is to ask, starts the publisher, and shows what is
 * reported. */
@interface AppDelegate : UIResponder <UIApplicationDelegate>

@property(nonatomic, strong, nullable) UIWindow *window;

@end
