// Resource bundle access on the phone, and the resource-lookup hook that serves the library's own files first.
#include "darwin/service/resources.h"

#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"

#include <array>

namespace qv::darwin {
namespace {

MethodImplementation origPathForResource = nullptr;

using PathForResourceFunction = NSString *(*)(id, SEL, id, id);

// Runs for every resource lookup of every bundle in the process, so it takes its arguments as whatever objects
// the caller passed (nil, non-strings, strings that cannot be encoded) and never lets anything escape.
NSString *bundlePathForResource(id self, SEL _cmd, id name, id type) {
    NSString *overridden = nil;
    guarded([&] {
        if (const auto path = resourceBundle().overridePath(toStdString(name), toStdString(type))) {
            overridden = toNSString(*path);
        }
    });
    if (overridden != nil || origPathForResource == nullptr) {
        return overridden;
    }
    return callable<PathForResourceFunction>(origPathForResource)(self, _cmd, name, type);
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("NSBundle", "pathForResource:ofType:"), bundlePathForResource>(origPathForResource),
};

} // namespace

NSString *tweakBundlePath() {
    return toNSString(resourceBundle().path());
}

NSBundle *resourcesBundle() {
    return [NSBundle bundleWithPath:tweakBundlePath()];
}

NSString *localizedString(NSString *key) {
    const auto keyText = toStdString(key);
    if (!keyText) {
        return nil;
    }
    return toNSString(resourceBundle().localizedString(*keyText));
}

NSString *pathForTweakFile(NSString *name, NSString *extension) {
    return toNSString(resourceBundle().pathForFile(toStdStringOrEmpty(name), toStdStringOrEmpty(extension)));
}

BOOL tweakFileExists(NSString *name, NSString *extension) {
    return resourceBundle().fileExists(toStdString(name), toStdString(extension));
}

} // namespace qv::darwin

@implementation UIImage (QVResources)

+ (UIImage *)qv_imageNamed:(NSString *)name {
    return [UIImage imageNamed:name inBundle:qv::darwin::resourcesBundle() compatibleWithTraitCollection:nil];
}

@end
