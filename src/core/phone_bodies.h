// The bodies the phone library binds, listed by the file of hook bodies that holds them.
#pragma once

#include "core/hook_table.h"

#include <array>

namespace qv {

// Each file of hook bodies checks while it compiles that it binds exactly its list here; a row whose body no
// list names is pending.
inline constexpr std::array kStoreObjectBodies{
    HookBody::OfferViewLibraryItem,
    HookBody::DocumentContainerUndefinedKey,
};

inline constexpr std::array kOfferButtonBodies{
    HookBody::OfferButtonAddTarget,
    HookBody::OfferButtonLongPressGesture,
    HookBody::OfferButtonSetLongPressGesture,
    HookBody::OfferButtonDidLongPress,
    HookBody::ModernOfferButtonLongPressGesture,
    HookBody::ModernOfferButtonSetLongPressGesture,
    HookBody::ModernOfferButtonDidLongPress,
    HookBody::ModernOfferButtonLayoutSubviews,
    HookBody::ModernOfferButtonInitWithCoder,
    HookBody::ModernOfferButtonInitWithFrame,
};

inline constexpr std::array kOfferConfirmBodies{
    HookBody::CellLayoutOfferConfirm,
    HookBody::BrowseCellLayoutOfferConfirm,
    HookBody::OfferViewButtonAction,
};

inline constexpr std::array kHoldHintBodies{
    HookBody::StorePageViewDidAppear,
};

inline constexpr std::array kTweaksPageBodies{
    HookBody::LockupCellDisplayTweaks,
    HookBody::LockupCellShowAvailableTweaks,
};

inline constexpr std::array kPurchasePipelineBodies{
    HookBody::PurchaseManagerInit,
    HookBody::PurchaseManagerAddPurchases,
    HookBody::AppDocumentShouldHook,
    HookBody::AppDocumentSetShouldHook,
    HookBody::StateCenterPerformPurchases,
    HookBody::StorePerformPurchase,
    HookBody::StoreFetchStorePlatformData,
    HookBody::StoreFetchPlist,
    HookBody::StoreFetchJson,
    HookBody::StoreFetch,
    HookBody::StoreBeginFetches,
    HookBody::StoreCommitFetches,
    HookBody::StoreInit,
    HookBody::StoreSharedStore,
    HookBody::GlobalContextInit,
};

inline constexpr std::array kResourceBodies{
    HookBody::BundlePathForResource,
};

inline constexpr std::array kAnalyticsBodies{
    HookBody::AnalyticsTweakGAID,          HookBody::AnalyticsTweakName,         HookBody::AnalyticsTweakVersion,
    HookBody::AnalyticsTweakPackageId,     HookBody::AnalyticsTwitterHandle,     HookBody::AnalyticsTwitterMessage,
    HookBody::RemoteMessagesEnabled,       HookBody::AppDelegateLoadApplication, HookBody::AppDelegateDidBecomeActive,
    HookBody::AppDelegateWillResignActive, HookBody::AppDelegateWillTerminate,
};

inline constexpr std::array kUpdateFilterBodies{
    HookBody::UpdatesSectionItems,
    HookBody::SoftwareUpdatesCopyUpdates,
    HookBody::UpdatesDatabaseMerge,
};

inline constexpr std::array kUpdatesTableBodies{
    HookBody::UpdatesSetLeftBarButtons,   HookBody::UpdatesReloadData,          HookBody::UpdatesReloadBars,
    HookBody::UpdatesViewDidLoad,         HookBody::UpdatesViewDidAppear,       HookBody::UpdatesViewDidLayoutSubviews,
    HookBody::UpdatesWillEnterForeground, HookBody::UpdatesShowSettings,        HookBody::UpdatesReloadTableViewData,
    HookBody::UpdatesRefreshHiddenItems,  HookBody::UpdatesHiddenUpdateDeleted,
};

inline constexpr std::array kUpdateSwipeBodies{
    HookBody::UpdatesIsUpdatableItem, HookBody::UpdatesCanEditRow,        HookBody::UpdatesCommitEditing,
    HookBody::UpdatesHideUpdate,      HookBody::UpdatesDeleteButtonTitle,
};

inline constexpr std::array kRedesignedUpdatesBodies{
    HookBody::AccountSetLeftBarButtons,           HookBody::AccountViewDidAppear,
    HookBody::AccountViewDidLayoutSubviews,       HookBody::AccountShowSettings,
    HookBody::ModernUpdatesSetLeftBarButtons,     HookBody::ModernUpdatesShowSettings,
    HookBody::ModernUpdatesReloadPossibleUpdates, HookBody::ModernUpdatesViewDidAppear,
    HookBody::ModernUpdatesViewDidLoad,
};

namespace phone_bodies {

// How many of the lists above name body.
constexpr int listingsOf(HookBody body) {
    int listings = 0;
    const auto count = [&](const auto &list) {
        for (const HookBody listed : list) {
            listings += listed == body ? 1 : 0;
        }
    };
    count(kStoreObjectBodies);
    count(kOfferButtonBodies);
    count(kOfferConfirmBodies);
    count(kHoldHintBodies);
    count(kTweaksPageBodies);
    count(kPurchasePipelineBodies);
    count(kResourceBodies);
    count(kAnalyticsBodies);
    count(kUpdateFilterBodies);
    count(kUpdatesTableBodies);
    count(kUpdateSwipeBodies);
    count(kRedesignedUpdatesBodies);
    return listings;
}

constexpr bool noBodyListedTwice() {
    for (const HookRow &row : hookTable()) {
        if (listingsOf(row.body) > 1) {
            return false;
        }
    }
    return true;
}

static_assert(noBodyListedTwice(), "one body is bound by one file");

} // namespace phone_bodies

// True when the phone library binds the body; a row whose body is not bound stays pending.
constexpr bool boundOnPhone(HookBody body) {
    return phone_bodies::listingsOf(body) == 1;
}

} // namespace qv
