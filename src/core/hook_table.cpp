// The rows of the hook table, in the order the installers walk them.
#include "core/hook_table.h"

#include <array>

namespace qv {
namespace {

using enum HookBatch;
using enum HookGroup;
using enum HookKind;
using enum HookCondition;
using enum ClassLookup;
using enum BodyState;

constexpr std::string_view kNoSignature;

// clang-format off
constexpr std::array kRows{
    // Store batch: older store (StoreKitUI / StoreServices / ITML classes).
    HookRow{1, Store, AppStore, "SKUIItemOfferButton", PlainName, "addTarget:action:forControlEvents:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "offerButtonAddTarget", Pending},
    HookRow{2, Store, AppStore, "SKUIItemOfferButton", PlainName, "longPressGestureQV", AddInstanceMethod, "@@:", NotDaemon, "offerButtonLongPressGesture", Pending},
    HookRow{3, Store, AppStore, "SKUIItemOfferButton", PlainName, "setLongPressGestureQV:", AddInstanceMethod, "v@:@", NotDaemon, "offerButtonSetLongPressGesture", Pending},
    HookRow{4, Store, AppStore, "SKUIItemOfferButton", PlainName, "buttonDidLongPress:", AddInstanceMethod, "v@:@", NotDaemon, "offerButtonDidLongPress", Pending},
    HookRow{5, Store, AppStore, "SKUIItemCellLayout", PlainName, "_itemOfferConfirmAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "cellLayoutOfferConfirm", Pending},
    HookRow{6, Store, StoreKit, "SKUIItemBrowseCellLayout", PlainName, "_itemOfferConfirmAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "browseCellLayoutOfferConfirm", Pending},
    HookRow{7, Store, StoreKit, "SKUIOfferView", PlainName, "qv_libraryItem", AddInstanceMethod, "@@:", NotDaemon, "offerViewLibraryItem", Bound},
    HookRow{8, Store, StoreKit, "SKUIOfferView", PlainName, "_buttonAction:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "offerViewButtonAction", Pending},
    HookRow{9, Store, StoreKit, "SSPurchaseManager", PlainName, "initWithManagerIdentifier:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "purchaseManagerInit", Bound},
    HookRow{10, Store, StoreKit, "SSPurchaseManager", PlainName, "addPurchases:withCompletionBlock:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "purchaseManagerAddPurchases", Bound},
    HookRow{11, Store, StoreKit, "IKAppDocument", PlainName, "shouldHookQV", AddInstanceMethod, "@@:", NotDaemon, "appDocumentShouldHook", Bound},
    HookRow{12, Store, StoreKit, "IKAppDocument", PlainName, "setShouldHookQV:", AddInstanceMethod, "v@:@", NotDaemon, "appDocumentSetShouldHook", Bound},
    HookRow{13, Store, StoreKit, "SKUIDocumentContainerViewController", PlainName, "valueForUndefinedKey:", AddInstanceMethod, "@@:@", NotDaemon, "documentContainerUndefinedKey", Bound},
    HookRow{14, Store, AvaliableTweaks, "SKUIProductLockupCollectionViewCell", PlainName, "displayTweaksControllerWithBundleId:", AddInstanceMethod, "v@:@", NotDaemon, "lockupCellDisplayTweaks", Pending},
    HookRow{15, Store, AvaliableTweaks, "SKUIProductLockupCollectionViewCell", PlainName, "showAvailableTweaks", AddInstanceMethod, "v@:", NotDaemon, "lockupCellShowAvailableTweaks", Pending},
    HookRow{16, Store, SkuiCenter10_2, "SKUIItemStateCenter", PlainName, "_performPurchases:withClientContext:completionBlock:", AddInstanceMethod, "v@:@@@", NotDaemonAndInstancesLackSelector, "stateCenterPerformPurchases", Bound},
    // Store batch: redesigned store (module-qualified classes).
    HookRow{17, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "longPressGestureQV", AddInstanceMethod, "@@:", NotDaemon, "modernOfferButtonLongPressGesture", Pending},
    HookRow{18, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "setLongPressGestureQV:", AddInstanceMethod, "v@:@", NotDaemon, "modernOfferButtonSetLongPressGesture", Pending},
    HookRow{19, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "buttonDidLongPress:", AddInstanceMethod, "v@:@", NotDaemon, "modernOfferButtonDidLongPress", Pending},
    HookRow{20, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "layoutSubviews", ReplaceInstanceMethod, kNoSignature, NotDaemon, "modernOfferButtonLayoutSubviews", Pending},
    HookRow{21, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "initWithCoder:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "modernOfferButtonInitWithCoder", Pending},
    HookRow{22, Store, SkuiCenter11_3_1, "AppStore.OfferButton", RuntimeName, "initWithFrame:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "modernOfferButtonInitWithFrame", Pending},
    HookRow{23, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "performPurchase::", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storePerformPurchase", Pending},
    HookRow{24, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchStorePlatformData:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeFetchStorePlatformData", Bound},
    HookRow{25, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "commitStorePlatformDataFetches", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeCommitFetches", Bound},
    HookRow{26, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "beginStorePlatformDataFetches", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeBeginFetches", Bound},
    HookRow{27, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchPlist:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeFetchPlist", Bound},
    HookRow{28, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetchJson:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeFetchJson", Bound},
    HookRow{29, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "fetch:::", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeFetch", Bound},
    HookRow{30, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "init", ReplaceInstanceMethod, kNoSignature, NotDaemon, "storeInit", Bound},
    HookRow{31, Store, SkuiCenter11_3_1, "AppStoreKit.Store", RuntimeName, "sharedStore", AddClassMethod, "@@:", NotDaemon, "storeSharedStore", Bound},
    HookRow{32, Store, SkuiCenter11_3_1, "AppStoreKit.ASKGlobal", RuntimeName, "initWithBag:client:loc:store:storeMetrics:user:props:randomSource:", ReplaceInstanceMethod, kNoSignature, NotDaemon, "globalContextInit", Bound},
    // Store batch: the one row the daemon gets too.
    HookRow{33, Store, Ungrouped, "SKUIStorePageSectionsViewController", PlainName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "storePageViewDidAppear", Pending},
    // Resources and analytics batch.
    HookRow{34, ResourcesAndAnalytics, Bundle, "NSBundle", PlainName, "pathForResource:ofType:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "bundlePathForResource", Bound},
    HookRow{35, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakGAID", ReplaceClassMethod, kNoSignature, AllProcesses, "analyticsTweakGAID", Bound},
    HookRow{36, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakName", ReplaceClassMethod, kNoSignature, AllProcesses, "analyticsTweakName", Bound},
    HookRow{37, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakVersion", ReplaceClassMethod, kNoSignature, AllProcesses, "analyticsTweakVersion", Bound},
    HookRow{38, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "tweakPackageId", ReplaceClassMethod, kNoSignature, AllProcesses, "analyticsTweakPackageId", Bound},
    HookRow{39, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "twitterHandle", ReplaceClassMethod, kNoSignature, AllProcesses, "analyticsTwitterHandle", Bound},
    HookRow{40, ResourcesAndAnalytics, GaiConfig, "QVGAAnalytics", PlainName, "twitterMessage", ReplaceClassMethod, kNoSignature, AllProcesses, "analyticsTwitterMessage", Bound},
    HookRow{41, ResourcesAndAnalytics, Gai, "QVRemoteMessageManager", PlainName, "messagesEnabled", ReplaceClassMethod, kNoSignature, AllProcesses, "remoteMessagesEnabled", Bound},
    HookRow{42, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "_loadApplicationWithLaunchOptions:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "appDelegateLoadApplication", Bound},
    HookRow{43, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationDidBecomeActive:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "appDelegateDidBecomeActive", Bound},
    HookRow{44, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationWillResignActive:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "appDelegateWillResignActive", Bound},
    HookRow{45, ResourcesAndAnalytics, Gai, "ASAppDelegate", PlainName, "applicationWillTerminate:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "appDelegateWillTerminate", Bound},
    // Updates batch: older store's updates list, section filter and daemon-side update store.
    HookRow{46, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses, "updatesSetLeftBarButtons", Pending},
    HookRow{47, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_reloadData", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesReloadData", Pending},
    HookRow{48, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_reloadBars", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesReloadBars", Pending},
    HookRow{49, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidLoad", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesViewDidLoad", Pending},
    HookRow{50, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesViewDidAppear", Pending},
    HookRow{51, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "viewDidLayoutSubviews", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesViewDidLayoutSubviews", Pending},
    HookRow{52, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "_applicationWillEnterForeground:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesWillEnterForeground", Pending},
    HookRow{53, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses, "updatesShowSettings", Pending},
    HookRow{54, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "isUpdatableItem:", AddInstanceMethod, "B@:@", AllProcesses, "updatesIsUpdatableItem", Pending},
    HookRow{55, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:canEditRowAtIndexPath:", AddInstanceMethod, "B@:@@", AllProcesses, "updatesCanEditRow", Pending},
    HookRow{56, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:commitEditingStyle:forRowAtIndexPath:", AddInstanceMethod, "v@:@q@", AllProcesses, "updatesCommitEditing", Pending},
    HookRow{57, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "hideUpdateAtIndexPath:hideAllUpdates:", AddInstanceMethod, "v@:@B", AllProcesses, "updatesHideUpdate", Pending},
    HookRow{58, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "tableView:titleForDeleteConfirmationButtonForRowAtIndexPath:", AddInstanceMethod, "@@:@@", AllProcesses, "updatesDeleteButtonTitle", Pending},
    HookRow{59, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "reloadTableViewData", AddInstanceMethod, "v@:", AllProcesses, "updatesReloadTableViewData", Pending},
    HookRow{60, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "refreshHiddenItems", AddInstanceMethod, "v@:", AllProcesses, "updatesRefreshHiddenItems", Pending},
    HookRow{61, Updates, UpdatesTable, "ASUpdatesViewController", PlainName, "hiddenUpdatesDidDeleteUpdate", AddInstanceMethod, "v@:", AllProcesses, "updatesHiddenUpdateDeleted", Pending},
    HookRow{62, Updates, UpdateSections, "ASUpdatesPageSection", PlainName, "items", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesSectionItems", Bound},
    HookRow{63, Updates, StoreServices, "SSSoftwareUpdatesStore", PlainName, "_copyUpdates", ReplaceInstanceMethod, kNoSignature, AllProcesses, "softwareUpdatesCopyUpdates", Bound},
    HookRow{64, Updates, StoreServices, "SSUpdatesDatabaseTransaction", PlainName, "mergeAvailableUpdates:availableCount:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "updatesDatabaseMerge", Bound},
    // Updates batch: redesigned store's account and updates screens.
    HookRow{65, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses, "accountSetLeftBarButtons", Pending},
    HookRow{66, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "accountViewDidAppear", Pending},
    HookRow{67, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "viewDidLayoutSubviews", ReplaceInstanceMethod, kNoSignature, AllProcesses, "accountViewDidLayoutSubviews", Pending},
    HookRow{68, Updates, Ios11, "AppStore.AccountViewController", RuntimeName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses, "accountShowSettings", Pending},
    HookRow{69, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "setQVLeftBarButtons", AddInstanceMethod, "v@:", AllProcesses, "modernUpdatesSetLeftBarButtons", Pending},
    HookRow{70, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "showSettings:", AddInstanceMethod, "v@:@", AllProcesses, "modernUpdatesShowSettings", Pending},
    HookRow{71, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "reloadPossibleUpadtes", AddInstanceMethod, "v@:", AllProcesses, "modernUpdatesReloadPossibleUpdates", Pending},
    HookRow{72, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "viewDidAppear:", ReplaceInstanceMethod, kNoSignature, AllProcesses, "modernUpdatesViewDidAppear", Pending},
    HookRow{73, Updates, Ios11, "AppStore.UpdatesViewController", RuntimeName, "viewDidLoad", ReplaceInstanceMethod, kNoSignature, AllProcesses, "modernUpdatesViewDidLoad", Pending},
};
// clang-format on

} // namespace

std::span<const HookRow> hookTable() {
    return kRows;
}

std::string_view hookGroupName(HookGroup group) {
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

bool isReplacement(HookKind kind) {
    return kind == ReplaceInstanceMethod || kind == ReplaceClassMethod;
}

bool isClassMethod(HookKind kind) {
    return kind == ReplaceClassMethod || kind == AddClassMethod;
}

} // namespace qv
