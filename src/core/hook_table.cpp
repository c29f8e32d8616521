// Printable names of the hook table's groups, kinds and conditions.
#include "core/hook_table.h"

namespace qv {

std::string_view hookGroupName(HookGroup group) {
    using enum HookGroup;
    switch (group) {
    case AppStore:
        return "APP_STORE";
    case StoreKit:
        return "STORE_KIT";
    case AvaliableTweaks:
        return "AVALIABLE_TWEAKS";
    case SkuiCenter10_2:
        return "SKUICENTER_10_2";
    case SkuiCenter11_3_1:
        return "SKUICENTER_11_3_1";
    case Ungrouped:
        return "ungrouped";
    case Bundle:
        return "BUNDLE";
    case GaiConfig:
        return "GAI_CONFIG";
    case Gai:
        return "GAI";
    case UpdatesTable:
        return "UPDATES_TABLE";
    case UpdateSections:
        return "UPDATE_SECTIONS";
    case StoreServices:
        return "STORE_SERVICES";
    case Ios11:
        return "IOS_11";
    }
    return "unknown";
}

std::string_view hookKindName(HookKind kind) {
    switch (kind) {
    case HookKind::ReplaceInstanceMethod:
        return "replace-instance";
    case HookKind::ReplaceClassMethod:
        return "replace-class";
    case HookKind::AddInstanceMethod:
        return "add-instance";
    case HookKind::AddClassMethod:
        return "add-class";
    }
    return "unknown";
}

std::string_view hookConditionName(HookCondition condition) {
    switch (condition) {
    case HookCondition::NotDaemon:
        return "not-daemon";
    case HookCondition::AllProcesses:
        return "all-processes";
    case HookCondition::NotDaemonAndInstancesLackSelector:
        return "not-daemon-lacking-selector";
    }
    return "unknown";
}

} // namespace qv
