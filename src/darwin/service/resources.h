// The resource bundle on the phone: its path, localised text, files and images.
#pragma once

#import <UIKit/UIKit.h>

namespace qv::darwin {

NSString *tweakBundlePath();
// A fresh bundle object for the resource directory, nil when the directory is missing.
NSBundle *resourcesBundle();
NSString *localizedString(NSString *key);
NSString *pathForTweakFile(NSString *name, NSString *extension);
BOOL tweakFileExists(NSString *name, NSString *extension);

} // namespace qv::darwin

@interface UIImage (QVResources)
+ (UIImage *)qv_imageNamed:(NSString *)name;
@end
