// The phone library's composition root: every process-wide object, in one struct, built once at load.
#pragma once

#include "core/fault_log.h"
#include "core/main_queue_ui.h"
#include "darwin/adapters/application_proxy_apps.h"
#include "darwin/adapters/application_proxy_container.h"
#include "darwin/adapters/bundle_files.h"
#include "darwin/adapters/dispatch_queues.h"
#include "darwin/adapters/keyed_archive_file.h"
#include "darwin/adapters/mail_composer.h"
#include "darwin/adapters/notification_centres.h"
#include "darwin/adapters/objc_runtime.h"
#include "darwin/adapters/uikit_ui.h"
#include "darwin/adapters/url_session_http.h"
#include "darwin/settings/defaults_preferences.h"
#include "darwin/store/latest_store.h"
#include "darwin/store/phone_store_purchasing.h"
#include "service/crowdsourcing.h"
#include "service/resource_bundle.h"
#include "service/service_client.h"
#include "settings/settings_form_model.h"
#include "settings/settings_model.h"
#include "store/available_tweaks.h"
#include "store/purchase_initiated.h"
#include "store/purchase_intercept.h"
#include "updates/block_action.h"
#include "updates/block_failure_prompt.h"
#include "updates/blocked_updates.h"

#include <memory>
#include <optional>

namespace qv::darwin {

// Built by the one load-time constructor and never destroyed: store threads may still use these objects while the
// process exits. Members are built in declaration order; the three optionals are made by start-up's own steps,
// between its hook batches, in the order the start-up test checks.
struct Process {
    Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    // The adapters; making them does no work.
    ObjcRuntime runtime;
    FaultLog faultLog{runtime};
    DispatchQueues queues;
    UrlSessionHttp http;
    NotificationCentres notifier;
    ApplicationProxyContainer container;
    KeyedArchiveFile archiveFile;
    BundleFiles bundleFiles;
    MailComposer mail;
    ApplicationProxyApps installedApps;
    PhoneStorePurchasing purchasing;
    LatestStore latestStore;
    // The UIKit drawing, and the Ui everything else calls, which hops to the main queue for it.
    UikitUi uikitUi;
    MainQueueUi ui;

    // The settings and what reads them.
    DefaultsPreferences settingsPreferences;
    SettingsModel settings;
    ServiceClient serviceClient;
    // The version reports sent while crowdsourcing is on, and the shared file of what was sent.
    Crowdsourcing crowdsourcing;
    DowngradeFlows downgradeFlows;
    StoreIdentifierLookup storeIdentifierLookup;
    BundleIdentifierLookup bundleIdentifierLookup;
    BlockFailurePrompt blockFailurePrompt;

    // Made by start-up: after the store hooks, before the resource hooks, before the update hooks.
    std::optional<PendingDowngrades> pendingDowngrades;
    std::optional<ResourceBundle> resourceBundle;
    std::optional<BlockedUpdates> blockedUpdates;
    std::optional<UpdateBlocker> updateBlocker;
    std::shared_ptr<SettingsFormModel> settingsForm;
};

// The process's objects. Hook bodies and the classes the library adds run only after load, when start-up has
// built them.
Process &process();

inline ObjcRuntime &objcRuntime() {
    return process().runtime;
}
inline Ui &ui() {
    return process().ui;
}
inline UikitUi &uikitUi() {
    return process().uikitUi;
}
inline ServiceClient &serviceClient() {
    return process().serviceClient;
}
inline Crowdsourcing &crowdsourcing() {
    return process().crowdsourcing;
}
inline DowngradeFlows &downgradeFlows() {
    return process().downgradeFlows;
}
inline StorePurchasing &storePurchasing() {
    return process().purchasing;
}
inline const StoreIdentifierLookup &storeIdentifierLookup() {
    return process().storeIdentifierLookup;
}
inline const BundleIdentifierLookup &bundleIdentifierLookup() {
    return process().bundleIdentifierLookup;
}
inline LatestStore &latestStore() {
    return process().latestStore;
}
inline DefaultsPreferences &settingsPreferences() {
    return process().settingsPreferences;
}
inline SettingsModel &settings() {
    return process().settings;
}
inline const InstalledApps &installedApps() {
    return process().installedApps;
}
inline PendingDowngrades &pendingDowngrades() {
    return *process().pendingDowngrades;
}
inline const ResourceBundle &resourceBundle() {
    return *process().resourceBundle;
}
inline BlockedUpdates &blockedUpdates() {
    return *process().blockedUpdates;
}
// Blocking shows the "Notice!" alert, with its support mail, when it fails.
inline UpdateBlocker &updateBlocker() {
    return *process().updateBlocker;
}
// The one settings screen's form, whose action row leads to the blocked-updates screen.
inline const std::shared_ptr<SettingsFormModel> &settingsForm() {
    return process().settingsForm;
}

} // namespace qv::darwin
