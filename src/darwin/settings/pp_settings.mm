// QVPPSettings and QVDefaultsHelper: the settings and their defaults object, by name, for whoever asks at run time.
#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/settings/defaults_preferences.h"

#import <UIKit/UIKit.h>

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
- (void)addObservers;
- (void)removeObservers;
- (void)registerQVDefaults;
- (id)formController;
- (NSArray<NSDictionary *> *)fields;
@end

@interface QVPPSettingsViewController : UITableViewController
+ (instancetype)sharedInstance;
- (id)formController;
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

// The settings are written through by their setters, so there is nothing to observe; the selectors answer for
// callers that name them.
- (void)addObservers {
}

- (void)removeObservers {
}

// A change reported by name is saved as a setter saves it: stored under its key, flushed, and for
// disableUpdateBlocker the store daemon told. A name that is no setting is only flushed.
- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id> *)change
                       context:(void *)context {
    guarded([&] {
        const auto setting = qv::settingNamed(qv::darwin::toStdStringOrEmpty(keyPath));
        id value = change[NSKeyValueChangeNewKey];
        if (setting && [value respondsToSelector:@selector(boolValue)]) {
            static_cast<void>(qv::darwin::settings().set(*setting, [value boolValue] == YES));
            return;
        }
        static_cast<void>(qv::darwin::settings().flush());
    });
}

- (void)registerQVDefaults {
    guarded([] { qv::registerFactoryDefaults(qv::darwin::settingsPreferences(), qv::darwin::readFactoryDefaults()); });
}

- (id)formController {
    return [[QVPPSettingsViewController sharedInstance] formController];
}

// The form's fields in order, one dictionary each: its section header, the setting it switches (or the action it
// sends), its title and the section's footer.
- (NSArray<NSDictionary *> *)fields {
    NSMutableArray<NSDictionary *> *fields = [NSMutableArray array];
    guarded([&] {
        for (const qv::FormSection &section : qv::darwin::settingsForm()->sections()) {
            for (const qv::FormRow &row : section.rows) {
                NSMutableDictionary *field = [NSMutableDictionary dictionary];
                field[@"header"] = qv::darwin::toNSString(section.header);
                field[@"title"] = qv::darwin::toNSString(row.title);
                if (row.setting) {
                    field[@"key"] = qv::darwin::toNSString(qv::settingName(*row.setting));
                } else {
                    field[@"action"] = qv::darwin::toNSString(row.action);
                }
                if (section.footer) {
                    field[@"footer"] = qv::darwin::toNSString(*section.footer);
                }
                [fields addObject:field];
            }
        }
    });
    return fields;
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
