// The phone library's process-wide objects, created once by the start-up file.
#pragma once

#include "darwin/adapters/objc_runtime.h"
#include "darwin/adapters/uikit_ui.h"
#include "darwin/settings/tweak_preferences.h"
#include "darwin/store/latest_store.h"
#include "platform/installed_apps.h"
#include "platform/store_purchasing.h"
#include "platform/ui.h"
#include "service/resource_bundle.h"
#include "service/service_client.h"
#include "settings/settings_form_model.h"
#include "settings/settings_model.h"
#include "store/available_tweaks.h"
#include "store/purchase_initiated.h"
#include "updates/block_action.h"

namespace qv::darwin {

// None of them is ever destroyed: store threads may still use them while the process exits.
ObjcRuntime &objcRuntime();
const ResourceBundle &resourceBundle();
LatestStore &latestStore();

// The downgrade flows' objects: the UIKit adapter, the service client, the store's purchasing and the lookups.
UikitUi &ui();
ServiceClient &serviceClient();
DowngradeFlows &downgradeFlows();
StorePurchasing &storePurchasing();
const StoreIdentifierLookup &storeIdentifierLookup();
const BundleIdentifierLookup &bundleIdentifierLookup();
TweakPreferences &tweakPreferences();
UpdateBlocker &updateBlocker();

// The settings, the one settings screen that shows them, and the installed apps the blocked-updates screen names.
SettingsModel &settings();
const std::shared_ptr<SettingsFormModel> &settingsForm();
const InstalledApps &installedApps();

} // namespace qv::darwin
