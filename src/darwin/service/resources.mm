// Resource bundle access on the phone and the resource override hook (row 34).
#include "darwin/service/resources.h"

#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/install_layout.h"
#include "service/resource_bundle.h"

#include <dlfcn.h>

#include <optional>
#include <string>

namespace qv::darwin {
namespace {

std::optional<std::string> optionalText(NSString *text) {
    return text == nil ? std::nullopt : std::optional<std::string>(text.UTF8String);
}

NSString *nsString(const std::string &text) {
    return [NSString stringWithUTF8String:text.c_str()];
}

class BundleFiles final : public ResourceFiles {
  public:
    bool fileExists(const std::string &path) override {
        return [NSFileManager.defaultManager fileExistsAtPath:nsString(path)];
    }
    std::optional<std::string> localizedString(const std::string &bundlePath, const std::string &key) override {
        NSBundle *bundle = [NSBundle bundleWithPath:nsString(bundlePath)];
        if (bundle == nil) {
            return std::nullopt;
        }
        NSString *text = nsString(key);
        return optionalText([bundle localizedStringForKey:text value:text table:nil]);
    }
    std::optional<std::string> pathForResource(const std::string &bundlePath, const std::string &name,
                                               const std::string &type) override {
        NSBundle *bundle = [NSBundle bundleWithPath:nsString(bundlePath)];
        return optionalText([bundle pathForResource:nsString(name) ofType:nsString(type)]);
    }
};

// Where this library was loaded from; a rootless install finds its jailbreak root from it.
std::string loadedLibraryPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&loadedLibraryPath), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    return info.dli_fname;
}

const ResourceBundle &bundle() {
    static BundleFiles files;
    static const ResourceBundle resources(
        files, resourceBundlePath(installLayout(), jailbreakRootFromLibraryPath(loadedLibraryPath())));
    return resources;
}

MethodImplementation origPathForResource = nullptr;

NSString *bundlePathForResource(NSBundle *self, SEL _cmd, NSString *name, NSString *type) {
    NSString *overridden = nil;
    guarded([&] {
        if (const auto path = bundle().overridePath(optionalText(name), optionalText(type))) {
            overridden = nsString(*path);
        }
    });
    if (overridden != nil) {
        return overridden;
    }
    return callable<NSString *(*)(NSBundle *, SEL, NSString *, NSString *)>(origPathForResource)(self, _cmd, name,
                                                                                                 type);
}

} // namespace

NSString *tweakBundlePath() {
    return nsString(bundle().path());
}

NSBundle *resourcesBundle() {
    return [NSBundle bundleWithPath:tweakBundlePath()];
}

NSString *localizedString(NSString *key) {
    if (key == nil) {
        return nil;
    }
    return nsString(bundle().localizedString(key.UTF8String));
}

NSString *pathForTweakFile(NSString *name, NSString *extension) {
    return nsString(
        bundle().pathForFile(name == nil ? "" : name.UTF8String, extension == nil ? "" : extension.UTF8String));
}

BOOL tweakFileExists(NSString *name, NSString *extension) {
    return bundle().fileExists(optionalText(name), optionalText(extension));
}

void bindResourceBodies(HookBodies &bodies) {
    bodies["bundlePathForResource"] = replacement(bundlePathForResource, origPathForResource);
}

} // namespace qv::darwin

@implementation UIImage (QVResources)

+ (UIImage *)qv_imageNamed:(NSString *)name {
    return [UIImage imageNamed:name inBundle:qv::darwin::resourcesBundle() compatibleWithTraitCollection:nil];
}

@end
