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

// The body each row installs, one per row, in table order.
enum class HookBody {
    // Store batch: older store (StoreKitUI / StoreServices / ITML classes).
    OfferButtonAddTarget,
    OfferButtonLongPressGesture,
    OfferButtonSetLongPressGesture,
    OfferButtonDidLongPress,
    CellLayoutOfferConfirm,
    BrowseCellLayoutOfferConfirm,
    OfferViewLibraryItem,
    OfferViewButtonAction,
    PurchaseManagerInit,
    PurchaseManagerAddPurchases,
    AppDocumentShouldHook,
    AppDocumentSetShouldHook,
    DocumentContainerUndefinedKey,
    LockupCellDisplayTweaks,
    LockupCellShowAvailableTweaks,
    StateCenterPerformPurchases,
    // Store batch: redesigned store (module-qualified classes).
    ModernOfferButtonLongPressGesture,
    ModernOfferButtonSetLongPressGesture,
    ModernOfferButtonDidLongPress,
    ModernOfferButtonLayoutSubviews,
    ModernOfferButtonInitWithCoder,
    ModernOfferButtonInitWithFrame,
    StorePerformPurchase,
    StoreFetchStorePlatformData,
    StoreCommitFetches,
    StoreBeginFetches,
    StoreFetchPlist,
    StoreFetchJson,
    StoreFetch,
    StoreInit,
    StoreSharedStore,
    GlobalContextInit,
    // Store batch: the one row the daemon gets too.
    StorePageViewDidAppear,
    // Resources and analytics batch.
    BundlePathForResource,
    AnalyticsTweakGAID,
    AnalyticsTweakName,
    AnalyticsTweakVersion,
    AnalyticsTweakPackageId,
    AnalyticsTwitterHandle,
    AnalyticsTwitterMessage,
    RemoteMessagesEnabled,
    AppDelegateLoadApplication,
    AppDelegateDidBecomeActive,
    AppDelegateWillResignActive,
    AppDelegateWillTerminate,
    // Updates batch: older store's updates list, section filter and daemon-side update store.
    UpdatesSetLeftBarButtons,
    UpdatesReloadData,
    UpdatesReloadBars,
    UpdatesViewDidLoad,
    UpdatesViewDidAppear,
    UpdatesViewDidLayoutSubviews,
    UpdatesWillEnterForeground,
    UpdatesShowSettings,
    UpdatesIsUpdatableItem,
    UpdatesCanEditRow,
    UpdatesCommitEditing,
    UpdatesHideUpdate,
    UpdatesDeleteButtonTitle,
    UpdatesReloadTableViewData,
    UpdatesRefreshHiddenItems,
    UpdatesHiddenUpdateDeleted,
    UpdatesSectionItems,
    SoftwareUpdatesCopyUpdates,
    UpdatesDatabaseMerge,
    // Updates batch: redesigned store's account and updates screens.
    AccountSetLeftBarButtons,
    AccountViewDidAppear,
    AccountViewDidLayoutSubviews,
    AccountShowSettings,
    ModernUpdatesSetLeftBarButtons,
    ModernUpdatesShowSettings,
    ModernUpdatesReloadPossibleUpdates,
    ModernUpdatesViewDidAppear,
    ModernUpdatesViewDidLoad,
};

inline constexpr std::size_t kHookBodyCount = static_cast<std::size_t>(HookBody::ModernUpdatesViewDidLoad) + 1;

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
    HookBody body;
};

namespace hook_rows {

using enum HookBatch;
using enum HookGroup;
using enum HookKind;
using enum HookCondition;
using enum ClassLookup;
using enum HookBody;

inline constexpr std::string_view kNoSignature;

// clang-format off
inline constexpr std::array kHookRows{
    // Store batch: older store (StoreKitUI / StoreServices / ITML classes).
    HookRow{1, Store, AppStore, "SKUIItemOfferButton", PlainName, "addTarget:action:forControlEvents:", ReplaceInstanceMethod, kNoSignature, NotDaemon, OfferButtonAddTarget},
    HookRow{2, Store, AppStore, "SKUIItemOfferButton", PlainName, "longPressGestureQV", AddInstanceMethod, "@@:", NotDaemon, OfferButtonLongPressGesture},
    HookRow{3, Store, AppStore, "SKUIItemOfferButton", PlainName, "setLongPressGestureQV:", AddInstanceMethod, "v@:@", NotDaemon, OfferButtonSetLongPressGesture},
    HookRow{4, Store, AppStore, "SKUIItemOfferButton", PlainName, "buttonDidLongPress:", AddInstanceMethod, "v@:@", NotDaemon, OfferButtonDidLongPress},
    HookRow{5, Store, AppStore, "SKUIItemCellLayout", PlainName, "_itemOfferConfirmAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon, CellLayoutOfferConfirm},
    HookRow{6, Store, StoreKit, "SKUIItemBrowseCellLayout", PlainName, "_itemOfferConfirmAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon, BrowseCellLayoutOfferConfirm},
    HookRow{7, Store, StoreKit, "SKUIOfferView", PlainName, "qv_libraryItem", AddInstanceMethod, "@@:", NotDaemon, OfferViewLibraryItem},
    HookRow{8, Store, StoreKit, "SKUIOfferView", PlainName, "_buttonAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon, OfferViewButtonAction},
    HookRow{9, Store, StoreKit, "SSPurchaseManager", PlainName, "initWithManagerIdentifier:", ReplaceInstanceMethod, kNoSignature, NotDaemon, PurchaseManagerInit},
    HookRow{10, Store, StoreKit, "SSPurchaseManager", PlainName, "addPurchases:withCompletionBlock:", ReplaceInstanceMethod, kNoSignature, NotDaemon, PurchaseManagerAddPurchases},
    HookRow{11, Store, StoreKit, "IKAppDocument", PlainName, "shouldHookQV", AddInstanceMethod, "@@:", NotDaemon, AppDocumentShouldHook},
    HookRow{12, Store, StoreKit, "IKAppDocument", PlainName, "setShouldHookQV:", AddInstanceMethod, "v@:@", NotDaemon, AppDocumentSetShouldHook},
    HookRow{13, Store, StoreKit, "SKUIDocumentContainerViewController", PlainName, "valueForUndefinedKey:", AddInstanceMethod, "@@:@", NotDaemon, DocumentContainerUndefinedKey},
    HookRow{14, Store, AvaliableTweaks, "SKUIProductLockupCollectionViewCell", PlainName, "displayTweaksControllerWithBundleId:", AddInstanceMethod, "v@:@", NotDaemon, LockupCellDisplayTweaks},
    HookRow{15, Store, AvaliableTweaks, "SKUIProductLockupCollectionViewCell", PlainName, "showAvailableTweaks", AddInstanceMethod, "v@:", NotDaemon, LockupCellShowAvailableTweaks},
    HookRow{16, Store, SkuiCenter10_2, "SKUIItemStateCenter", PlainName, "_performPurchases:withClientContext:completionBlock:", AddInstanceMethod, "v@:@@@", NotDaemonAndInstancesLackSelector, StateCenterPerformPurchases},
    // Store batch: redesigned store (module-qualified classes).
    HookRow{17, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "longPressGestureQV", AddInstanceMethod, "@@:", NotDaemon, ModernOfferButtonLongPressGesture},
    HookRow{18, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "setLongPressGestureQV:", AddInstanceMethod, "v@:@", NotDaemon, ModernOfferButtonSetLongPressGesture},
    HookRow{19, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "buttonDidLongPress:", AddInstanceMethod, "v@:@", NotDaemon, ModernOfferButtonDidLongPress},
    HookRow{20, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "layoutSubviews", ReplaceInstanceMethod, kNoSignature, NotDaemon, ModernOfferButtonLayoutSubviews},
    HookRow{21, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "initWithCoder:", ReplaceInstanceMethod, kNoSignature, NotDaemon, ModernOfferButtonInitWithCoder},
    HookRow{22, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "initWithFrame:", ReplaceInstanceMethod, kNoSignature, NotDaemon, ModernOfferButtonInitWithFrame},
    HookRow{23, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "performPurchase::", ReplaceInstanceMethod, kNoSignature, NotDaemon, StorePerformPurchase},
    HookRow{24, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchStorePlatformData:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreFetchStorePlatformData},
    HookRow{25, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "commitStorePlatformDataFetches", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreCommitFetches},
    HookRow{26, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "beginStorePlatformDataFetches", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreBeginFetches},
    HookRow{27, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchPlist:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreFetchPlist},
    HookRow{28, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchJson:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreFetchJson},
    HookRow{29, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetch:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreFetch},
    HookRow{30, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "init", ReplaceInstanceMethod, kNoSignature, NotDaemon, StoreInit},
    HookRow{31, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "sharedStore", AddClassMethod, "@@:", NotDaemon, StoreSharedStore},
    HookRow{32, Store, SkuiCenter11_3_1, "AppStoreKit.ASKGlobal", RuntimeName, "initWithBag:client:loc:store:storeMetrics:user:props:randomSource:", ReplaceInstanceMethod, kNoSignature, NotDaemon, GlobalContextInit},
    // Store batch: the one row the daemon gets too.
    HookRow{33, Store, Ungrouped, "SKUIStorePageSectionsViewController", PlainName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, StorePageViewDidAppear},
    // Resources and analytics batch.
    HookRow{34, ResourcesAndAnalytics, Bundle, "NSBundle", PlainName, "pathForResource:ofType:", ReplaceInstanceMethod, kNoSignature, AllProcesses, BundlePathForResource},
    HookRow{35, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakGAID", ReplaceClassMethod, kNoSignature, AllProcesses, AnalyticsTweakGAID},
    HookRow{36, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakName", ReplaceClassMethod, kNoSignature, AllProcesses, AnalyticsTweakName},
    HookRow{37, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakVersion", ReplaceClassMethod, kNoSignature, AllProcesses, AnalyticsTweakVersion},
    HookRow{38, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakPackageId", ReplaceClassMethod, kNoSignature, AllProcesses, AnalyticsTweakPackageId},
    HookRow{39, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "twitterHandle", ReplaceClassMethod, kNoSignature, AllProcesses, AnalyticsTwitterHandle},
    HookRow{40, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "twitterMessage", ReplaceClassMethod, kNoSignature, AllProcesses, AnalyticsTwitterMessage},
    HookRow{41, ResourcesAndAnalytics, Gai, "QVRemoteMessageManager", PlainName, "messagesEnabled", ReplaceClassMethod, kNoSignature, AllProcesses, RemoteMessagesEnabled},
    HookRow{42, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "_loadApplicationWithLaunchOptions:", ReplaceInstanceMethod, kNoSignature, AllProcesses, AppDelegateLoadApplication},
    HookRow{43, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationDidBecomeActive:", ReplaceInstanceMethod, kNoSignature, AllProcesses, AppDelegateDidBecomeActive},
    HookRow{44, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationWillResignActive:", ReplaceInstanceMethod, kNoSignature, AllProcesses, AppDelegateWillResignActive},
    HookRow{45, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationWillTerminate:", ReplaceInstanceMethod, kNoSignature, AllProcesses, AppDelegateWillTerminate},
    // Updates batch: older store's updates list, section filter and daemon-side update store.
    HookRow{46, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses, UpdatesSetLeftBarButtons},
    HookRow{47, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_reloadData", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesReloadData},
    HookRow{48, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_reloadBars", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesReloadBars},
    HookRow{49, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidLoad", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesViewDidLoad},
    HookRow{50, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesViewDidAppear},
    HookRow{51, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidLayoutSubviews", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesViewDidLayoutSubviews},
    HookRow{52, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_applicationWillEnterForeground:", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesWillEnterForeground},
    HookRow{53, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses, UpdatesShowSettings},
    HookRow{54, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "isUpdatableItem:", AddInstanceMethod, "B@:@", AllProcesses, UpdatesIsUpdatableItem},
    HookRow{55, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:canEditRowAtIndexPath:", AddInstanceMethod, "B@:@@", AllProcesses, UpdatesCanEditRow},
    HookRow{56, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:commitEditingStyle:forRowAtIndexPath:", AddInstanceMethod, "v@:@q@", AllProcesses, UpdatesCommitEditing},
    HookRow{57, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "hideUpdateAtIndexPath:hideAllUpdates:", AddInstanceMethod, "v@:@B", AllProcesses, UpdatesHideUpdate},
    HookRow{58, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:titleForDeleteConfirmationButtonForRowAtIndexPath:", AddInstanceMethod, "@@:@@", AllProcesses, UpdatesDeleteButtonTitle},
    HookRow{59, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "reloadTableViewData", AddInstanceMethod, "v@:", AllProcesses, UpdatesReloadTableViewData},
    HookRow{60, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "refreshHiddenItems", AddInstanceMethod, "v@:", AllProcesses, UpdatesRefreshHiddenItems},
    HookRow{61, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "hiddenUpdatesDidDeleteUpdate", AddInstanceMethod, "v@:", AllProcesses, UpdatesHiddenUpdateDeleted},
    HookRow{62, Updates, UpdateSections, "ASUpdatesPageSection", PlainName, "items", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesSectionItems},
    HookRow{63, Updates, StoreServices, "SSSoftwareUpdatesStore", PlainName, "_copyUpdates", ReplaceInstanceMethod, kNoSignature, AllProcesses, SoftwareUpdatesCopyUpdates},
    HookRow{64, Updates, StoreServices, "SSUpdatesDatabaseTransaction", PlainName, "mergeAvailableUpdates:availableCount:", ReplaceInstanceMethod, kNoSignature, AllProcesses, UpdatesDatabaseMerge},
    // Updates batch: redesigned store's account and updates screens.
    HookRow{65, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses, AccountSetLeftBarButtons},
    HookRow{66, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, AccountViewDidAppear},
    HookRow{67, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "viewDidLayoutSubviews", ReplaceInstanceMethod, kNoSignature, AllProcesses, AccountViewDidLayoutSubviews},
    HookRow{68, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses, AccountShowSettings},
    HookRow{69, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses, ModernUpdatesSetLeftBarButtons},
    HookRow{70, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses, ModernUpdatesShowSettings},
    HookRow{71, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "reloadPossibleUpadtes", AddInstanceMethod, "v@:", AllProcesses, ModernUpdatesReloadPossibleUpdates},
    HookRow{72, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, ModernUpdatesViewDidAppear},
    HookRow{73, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "viewDidLoad", ReplaceInstanceMethod, kNoSignature, AllProcesses, ModernUpdatesViewDidLoad},
};
// clang-format on

} // namespace hook_rows

constexpr std::span<const HookRow> hookTable() {
    return hook_rows::kHookRows;
}

// The row that installs body; every body belongs to exactly one row.
constexpr const HookRow &hookRow(HookBody body) {
    return hook_rows::kHookRows[static_cast<std::size_t>(body)];
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

// Bodies are listed in row order, so hookRow can index by body, and rows are numbered from one in that order.
constexpr bool rowsAreInBodyOrder() {
    for (std::size_t index = 0; index < kHookRows.size(); ++index) {
        const HookRow &row = kHookRows[index];
        if (static_cast<std::size_t>(row.body) != index || row.number != static_cast<int>(index) + 1) {
            return false;
        }
    }
    return kHookRows.size() == kHookBodyCount;
}

constexpr bool signaturesFitSelectors() {
    for (const HookRow &row : kHookRows) {
        if (!signatureFitsSelector(row)) {
            return false;
        }
    }
    return true;
}

static_assert(rowsAreInBodyOrder(), "each row names the body of its own position, numbered from one");
static_assert(signaturesFitSelectors(), "an added method's type encoding has one argument code per ':'");

} // namespace hook_rows

std::string_view hookGroupName(HookGroup group);
std::string_view hookKindName(HookKind kind);
std::string_view hookConditionName(HookCondition condition);

} // namespace qv
