// QVPPSettings and QVDefaultsHelper: the settings and their defaults object, by name, for whoever asks at run time.
#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/settings/defaults_preferences.h"

#import <Foundation/Foundation.h>

#include <array>
#include <string_view>

using qv::Setting;
using qv::darwin::guarded;

@interface QVDefaultsHelper : NSObject
+ (NSUserDefaults *)appStoreDefaults;
+ (void)registerQVDefaults:(NSUserDefaults *)defaults;
@end

@implementation QVDefaultsHelper

+ (NSUserDefaults *)appStoreDefaults {
    NSUserDefaults *defaults = nil;
    guarded([&] { defaults = qv::darwin::settingsPreferences().defaults(); });
    return defaults;
}

+ (void)registerQVDefaults:(NSUserDefaults *)defaults {
    if (defaults == nil) {
        return;
    }
    guarded([&] {
        qv::darwin::DefaultsPreferences preferences(defaults);
        qv::registerFactoryDefaults(preferences, qv::darwin::readFactoryDefaults());
    });
}

@end

// Every property reads the one settings model; every change is written through and flushed at once.
@interface QVPPSettings : NSObject
@property(nonatomic) BOOL enableDowngradeOptions;
@property(nonatomic) BOOL longPressToShowDowngradeOptions;
@property(nonatomic) BOOL holdToDowngradeTipsShown;
@property(nonatomic) BOOL disableAppCaching;
@property(nonatomic) BOOL disableUpdateBlocker;
+ (instancetype)sharedInstance;
- (void)loadValuesFromDefaults;
- (NSArray<NSString *> *)excludedFields;
- (NSMutableArray<NSString *> *)excludedProperties;
@end

namespace {

BOOL settingValue(Setting setting) {
    bool on = false;
    guarded([&] { on = qv::darwin::settings().value(setting); });
    return on ? YES : NO;
}

void setSettingValue(Setting setting, BOOL on) {
    guarded([&] { static_cast<void>(qv::darwin::settings().set(setting, on == YES)); });
}

template <std::size_t Size> NSMutableArray<NSString *> *namesArray(const std::array<std::string_view, Size> &names) {
    NSMutableArray<NSString *> *array = [NSMutableArray arrayWithCapacity:Size];
    for (const std::string_view name : names) {
        [array addObject:qv::darwin::toNSString(name)];
    }
    return array;
}

} // namespace

@implementation QVPPSettings

+ (instancetype)sharedInstance {
    static QVPPSettings *shared = nil;
    static dispatch_once_t once;
    dispatch_once(&once, ^{
      shared = [QVPPSettings new];
    });
    return shared;
}

- (void)loadValuesFromDefaults {
    guarded([] { qv::darwin::settings().load(); });
}

- (NSArray<NSString *> *)excludedFields {
    return namesArray(qv::kExcludedFields);
}

- (NSMutableArray<NSString *> *)excludedProperties {
    return namesArray(qv::kExcludedProperties);
}

- (BOOL)enableDowngradeOptions {
    return settingValue(Setting::EnableDowngradeOptions);
}
- (void)setEnableDowngradeOptions:(BOOL)on {
    setSettingValue(Setting::EnableDowngradeOptions, on);
}
- (BOOL)longPressToShowDowngradeOptions {
    return settingValue(Setting::LongPressToShowDowngradeOptions);
}
- (void)setLongPressToShowDowngradeOptions:(BOOL)on {
    setSettingValue(Setting::LongPressToShowDowngradeOptions, on);
}
- (BOOL)holdToDowngradeTipsShown {
    return settingValue(Setting::HoldToDowngradeTipsShown);
}
- (void)setHoldToDowngradeTipsShown:(BOOL)on {
    setSettingValue(Setting::HoldToDowngradeTipsShown, on);
}
- (BOOL)disableAppCaching {
    return settingValue(Setting::DisableAppCaching);
}
- (void)setDisableAppCaching:(BOOL)on {
    setSettingValue(Setting::DisableAppCaching, on);
}
- (BOOL)disableUpdateBlocker {
    return settingValue(Setting::DisableUpdateBlocker);
}
- (void)setDisableUpdateBlocker:(BOOL)on {
    setSettingValue(Setting::DisableUpdateBlocker, on);
}

@end
