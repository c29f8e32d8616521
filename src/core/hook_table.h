// The hook table: every method the library replaces or adds in the host, in installation order, as data.
#pragma once

#include <array>
#include <cstddef>
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
};

namespace hook_rows {

using enum HookBatch;
using enum HookGroup;
using enum HookKind;
using enum HookCondition;
using enum ClassLookup;

inline constexpr std::string_view kNoSignature;

// clang-format off
inline constexpr std::array kHookRows{
    // Store batch: older store (StoreKitUI / StoreServices / ITML classes).
    HookRow{1, Store, AppStore, "SKUIItemOfferButton", PlainName, "addTarget:action:forControlEvents:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{2, Store, AppStore, "SKUIItemOfferButton", PlainName, "longPressGestureQV", AddInstanceMethod, "@@:", NotDaemon},
    HookRow{3, Store, AppStore, "SKUIItemOfferButton", PlainName, "setLongPressGestureQV:", AddInstanceMethod, "v@:@", NotDaemon},
    HookRow{4, Store, AppStore, "SKUIItemOfferButton", PlainName, "buttonDidLongPress:", AddInstanceMethod, "v@:@", NotDaemon},
    HookRow{5, Store, AppStore, "SKUIItemCellLayout", PlainName, "_itemOfferConfirmAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{6, Store, StoreKit, "SKUIItemBrowseCellLayout", PlainName, "_itemOfferConfirmAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{7, Store, StoreKit, "SKUIOfferView", PlainName, "qv_libraryItem", AddInstanceMethod, "@@:", NotDaemon},
    HookRow{8, Store, StoreKit, "SKUIOfferView", PlainName, "_buttonAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{9, Store, StoreKit, "SSPurchaseManager", PlainName, "initWithManagerIdentifier:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{10, Store, StoreKit, "SSPurchaseManager", PlainName, "addPurchases:withCompletionBlock:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{11, Store, StoreKit, "IKAppDocument", PlainName, "shouldHookQV", AddInstanceMethod, "@@:", NotDaemon},
    HookRow{12, Store, StoreKit, "IKAppDocument", PlainName, "setShouldHookQV:", AddInstanceMethod, "v@:@", NotDaemon},
    HookRow{13, Store, StoreKit, "SKUIDocumentContainerViewController", PlainName, "valueForUndefinedKey:", AddInstanceMethod, "@@:@", NotDaemon},
    HookRow{14, Store, AvaliableTweaks, "SKUIProductLockupCollectionViewCell", PlainName, "displayTweaksControllerWithBundleId:", AddInstanceMethod, "v@:@", NotDaemon},
    HookRow{15, Store, AvaliableTweaks, "SKUIProductLockupCollectionViewCell", PlainName, "showAvailableTweaks", AddInstanceMethod, "v@:", NotDaemon},
    HookRow{16, Store, SkuiCenter10_2, "SKUIItemStateCenter", PlainName, "_performPurchases:withClientContext:completionBlock:", AddInstanceMethod, "v@:@@@", NotDaemonAndInstancesLackSelector},
    // Store batch: redesigned store (module-qualified classes).
    HookRow{17, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "longPressGestureQV", AddInstanceMethod, "@@:", NotDaemon},
    HookRow{18, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "setLongPressGestureQV:", AddInstanceMethod, "v@:@", NotDaemon},
    HookRow{19, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "buttonDidLongPress:", AddInstanceMethod, "v@:@", NotDaemon},
    HookRow{20, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "layoutSubviews", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{21, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "initWithCoder:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{22, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "initWithFrame:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{23, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "performPurchase::", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{24, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchStorePlatformData:::", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{25, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "commitStorePlatformDataFetches", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{26, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "beginStorePlatformDataFetches", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{27, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchPlist:::", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{28, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchJson:::", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{29, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetch:::", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{30, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "init", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    HookRow{31, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "sharedStore", AddClassMethod, "@@:", NotDaemon},
    HookRow{32, Store, SkuiCenter11_3_1, "AppStoreKit.ASKGlobal", RuntimeName, "initWithBag:client:loc:store:storeMetrics:user:props:randomSource:", ReplaceInstanceMethod, kNoSignature, NotDaemon},
    // Store batch: the one row the daemon gets too.
    HookRow{33, Store, Ungrouped, "SKUIStorePageSectionsViewController", PlainName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    // Resources and analytics batch.
    HookRow{34, ResourcesAndAnalytics, Bundle, "NSBundle", PlainName, "pathForResource:ofType:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{35, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakGAID", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{36, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakName", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{37, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakVersion", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{38, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakPackageId", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{39, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "twitterHandle", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{40, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "twitterMessage", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{41, ResourcesAndAnalytics, Gai, "QVRemoteMessageManager", PlainName, "messagesEnabled", ReplaceClassMethod, kNoSignature, AllProcesses},
    HookRow{42, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "_loadApplicationWithLaunchOptions:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{43, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationDidBecomeActive:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{44, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationWillResignActive:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{45, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationWillTerminate:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    // Updates batch: older store's updates list, section filter and daemon-side update store.
    HookRow{46, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{47, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_reloadData", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{48, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_reloadBars", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{49, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidLoad", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{50, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{51, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidLayoutSubviews", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{52, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_applicationWillEnterForeground:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{53, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses},
    HookRow{54, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "isUpdatableItem:", AddInstanceMethod, "B@:@", AllProcesses},
    HookRow{55, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:canEditRowAtIndexPath:", AddInstanceMethod, "B@:@@", AllProcesses},
    HookRow{56, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:commitEditingStyle:forRowAtIndexPath:", AddInstanceMethod, "v@:@q@", AllProcesses},
    HookRow{57, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "hideUpdateAtIndexPath:hideAllUpdates:", AddInstanceMethod, "v@:@B", AllProcesses},
    HookRow{58, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:titleForDeleteConfirmationButtonForRowAtIndexPath:", AddInstanceMethod, "@@:@@", AllProcesses},
    HookRow{59, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "reloadTableViewData", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{60, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "refreshHiddenItems", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{61, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "hiddenUpdatesDidDeleteUpdate", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{62, Updates, UpdateSections, "ASUpdatesPageSection", PlainName, "items", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{63, Updates, StoreServices, "SSSoftwareUpdatesStore", PlainName, "_copyUpdates", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{64, Updates, StoreServices, "SSUpdatesDatabaseTransaction", PlainName, "mergeAvailableUpdates:availableCount:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    // Updates batch: redesigned store's account and updates screens.
    HookRow{65, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{66, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{67, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "viewDidLayoutSubviews", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{68, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses},
    HookRow{69, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{70, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses},
    HookRow{71, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "reloadPossibleUpadtes", AddInstanceMethod, "v@:", AllProcesses},
    HookRow{72, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses},
    HookRow{73, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "viewDidLoad", ReplaceInstanceMethod, kNoSignature, AllProcesses},
};
// clang-format on

} // namespace hook_rows

constexpr std::span<const HookRow> hookTable() {
    return hook_rows::kHookRows;
}

inline constexpr std::size_t kHookRowCount = hook_rows::kHookRows.size();

// Reached only when a body names a row the table does not have; a compile-time lookup then fails right here.
inline void hookRowIsNotInTheTable() {}

// The position of the row that hooks selector on className: how a body names the row it is bound to. Used at
// compile time, so a misspelt name stops the build.
consteval std::size_t rowOf(std::string_view className, std::string_view selector) {
    for (std::size_t index = 0; index < kHookRowCount; ++index) {
        if (hook_rows::kHookRows[index].className == className && hook_rows::kHookRows[index].selector == selector) {
            return index;
        }
    }
    hookRowIsNotInTheTable();
    return kHookRowCount;
}

constexpr const HookRow &hookRow(std::size_t index) {
    return hook_rows::kHookRows[index];
}

constexpr bool isReplacement(HookKind kind) {
    return kind == HookKind::ReplaceInstanceMethod || kind == HookKind::ReplaceClassMethod;
}

constexpr bool isClassMethod(HookKind kind) {
    return kind == HookKind::ReplaceClassMethod || kind == HookKind::AddClassMethod;
}

// How many arguments a method takes after its receiver and selector: one per ':' in the selector.
constexpr std::size_t selectorArgumentCount(std::string_view selector) {
    std::size_t count = 0;
    for (const char character : selector) {
        count += character == ':' ? 1 : 0;
    }
    return count;
}

// An added method's type encoding: return type, receiver "@", selector ":", then one code per argument.
constexpr bool signatureFitsSelector(const HookRow &row) {
    if (isReplacement(row.kind)) {
        return row.typeSignature.empty();
    }
    return row.typeSignature.size() >= 3 && row.typeSignature.substr(1, 2) == "@:" &&
           row.typeSignature.size() - 3 == selectorArgumentCount(row.selector);
}

namespace hook_rows {

// Rows are numbered from one in table order, and a class and selector name one row, which is how bodies find theirs.
constexpr bool rowsAreNumberedAndNamedOnce() {
    for (std::size_t index = 0; index < kHookRows.size(); ++index) {
        const HookRow &current = kHookRows[index];
        if (current.number != static_cast<int>(index) + 1) {
            return false;
        }
        for (std::size_t earlier = 0; earlier < index; ++earlier) {
            if (kHookRows[earlier].className == current.className && kHookRows[earlier].selector == current.selector) {
                return false;
            }
        }
    }
    return true;
}

constexpr bool signaturesFitSelectors() {
    for (const HookRow &row : kHookRows) {
        if (!signatureFitsSelector(row)) {
            return false;
        }
    }
    return true;
}

static_assert(rowsAreNumberedAndNamedOnce(), "rows are numbered from one, and no class and selector appear twice");
static_assert(signaturesFitSelectors(), "an added method's type encoding has one argument code per ':'");

} // namespace hook_rows

std::string_view hookGroupName(HookGroup group);
std::string_view hookKindName(HookKind kind);
std::string_view hookConditionName(HookCondition condition);

} // namespace qv
