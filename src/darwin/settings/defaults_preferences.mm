// Makes the settings' defaults object and reads and writes values in it.
#include "darwin/settings/defaults_preferences.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/service/resources.h"
#include "settings/settings_model.h"

// Private: a suite whose file lives in another app's container.
@interface NSUserDefaults (QVSuiteInContainer)
- (instancetype)_initWithSuiteName:(NSString *)suiteName container:(NSURL *)container;
@end

namespace qv::darwin {

NSUserDefaults *makeSettingsDefaults(const AppStoreContainer &container) {
    NSString *suite = toNSString(kSettingsSuiteName);
    NSUserDefaults *defaults = nil;
    guarded([&] {
        const auto directory = container.dataContainerDirectory();
        if (!directory || ![NSUserDefaults instancesRespondToSelector:@selector(_initWithSuiteName:container:)]) {
            return;
        }
        NSURL *containerURL = [NSURL fileURLWithPath:toNSString(*directory) isDirectory:YES];
        defaults = [[NSUserDefaults alloc] _initWithSuiteName:suite container:containerURL];
    });
    if (defaults == nil) {
        guarded([&] { defaults = [[NSUserDefaults alloc] initWithSuiteName:suite]; });
    }
    return defaults ?: NSUserDefaults.standardUserDefaults;
}

Result<Value> readFactoryDefaults() {
    NSString *path = nil;
    NSDictionary *read = nil;
    guarded([&] {
        path = pathForTweakFile(toNSString(kFactoryDefaultsName), toNSString(kFactoryDefaultsType));
        read = path != nil ? [NSDictionary dictionaryWithContentsOfFile:path] : nil;
    });
    if (read == nil) {
        return fail(ErrorCode::FileUnreadable, "no factory defaults dictionary at " + toStdStringOrEmpty(path));
    }
    return valueFromObject(read);
}

std::optional<Value> DefaultsPreferences::valueForKey(const std::string &key) const {
    std::optional<Value> value;
    guarded([&] {
        id stored = [defaults_ objectForKey:toNSString(key)];
        if (stored != nil) {
            value = valueFromObject(stored);
        }
    });
    return value;
}

void DefaultsPreferences::setValue(const std::string &key, Value value) {
    guarded([&] { [defaults_ setObject:objectFromValue(value) forKey:toNSString(key)]; });
}

Result<void> DefaultsPreferences::flush() {
    bool written = false;
    guarded([&] { written = [defaults_ synchronize]; });
    if (!written) {
        return fail(ErrorCode::FileUnwritable, "the preferences could not be written");
    }
    return {};
}

void DefaultsPreferences::registerDefaults(const Dictionary &defaults) {
    guarded([&] {
        id registered = objectFromValue(Value(defaults));
        if ([registered isKindOfClass:NSDictionary.class]) {
            [defaults_ registerDefaults:static_cast<NSDictionary *>(registered)];
        }
    });
}

} // namespace qv::darwin
