// QVUIKitHelper: the downgrade prompts and flows as class methods the store hooks call.
#pragma once

#import <UIKit/UIKit.h>

@interface QVUIKitHelper : NSObject
+ (void)downgradeAlertWithState:(id)state completion:(void (^)(int))completion sourceView:(UIView *)sourceView;
+ (void)presentDowngradeAlertWithCompletion:(void (^)(int))completion
                             continueButton:(BOOL)continueButton
                               cancelButton:(BOOL)cancelButton
                          blockUpdateButton:(BOOL)blockUpdateButton
                           showTweaksAction:(BOOL)showTweaksAction
                                     itemID:(NSString *)bundleIdentifier;
+ (void)offerButtonTappedFromController:(UIViewController *)controller completion:(void (^)(int))completion;
+ (void)purchaseInitiatedFromStore:(id)store
                      withPurchase:(NSDictionary *)purchase
                        completion:(void (^)(BOOL, NSDictionary *))completion;
+ (void)displayDowngradeControllerForIdentifier:(NSString *)storeIdentifier
                               bundleIdentifier:(NSString *)bundleIdentifier
                                     completion:(void (^)(int))completion;
+ (void)displayTweaksControllerWithBundleId:(NSString *)bundleIdentifier;
@end
