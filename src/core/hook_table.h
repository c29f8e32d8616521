// The hook table: every method the library replaces or adds in the host, in installation order, as data.
#pragma once

#include <span>
#include <string_view>

namespace qv {

// The three load-time batches, in the order they run.
enum class HookBatch { Store, ResourcesAndAnalytics, Updates };

enum class HookGroup {
    AppStore,
    StoreKit,
    AvaliableTweaks,
    SkuiCenter10_2,
    SkuiCenter11_3_1,
    Ungrouped,
    Bundle,
    GaiConfig,
    Gai,
    UpdatesTable,
    UpdateSections,
    StoreServices,
    Ios11,
};

enum class HookKind { ReplaceInstanceMethod, ReplaceClassMethod, AddInstanceMethod, AddClassMethod };

enum class HookCondition {
    NotDaemon,
    AllProcesses,
    // Outside the daemon, and only while the class's instances lack the selector, so a store that still has
    // its own implementation keeps it.
    NotDaemonAndInstancesLackSelector,
};

// How the class is found: by its registered name, or through the runtime's text lookup, which also resolves
// module-qualified names of the redesigned store.
enum class ClassLookup { PlainName, RuntimeName };

// Pending rows have no body yet; the installer passes over them.
enum class BodyState { Bound, Pending };

struct HookRow {
    int number;
    HookBatch batch;
    HookGroup group;
    std::string_view className;
    ClassLookup lookup;
    std::string_view selector;
    HookKind kind;
    std::string_view typeSignature; // additions only
    HookCondition condition;
    std::string_view body;
    BodyState state;
};

std::span<const HookRow> hookTable();
std::string_view hookGroupName(HookGroup group);
bool isReplacement(HookKind kind);
bool isClassMethod(HookKind kind);

} // namespace qv
