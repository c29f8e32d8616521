// The phone library's process-wide objects, created once by the start-up file.
#pragma once

#include "darwin/adapters/objc_runtime.h"
#include "darwin/adapters/uikit_ui.h"
#include "darwin/settings/defaults_preferences.h"
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
// Blocking shows the "Notice!" alert, with its support mail, when it fails.
UpdateBlocker &updateBlocker();

// The settings suite's defaults object, shared with the other store process where the system allows it, with the
// factory defaults registered; the settings over it; the one settings screen that shows them, whose action row
// leads to the blocked-updates screen; and the installed apps that screen names.
DefaultsPreferences &settingsPreferences();
SettingsModel &settings();
const std::shared_ptr<SettingsFormModel> &settingsForm();
const InstalledApps &installedApps();

} // namespace qv::darwin
