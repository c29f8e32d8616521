// The library's one load-time entry point: it builds the process's objects and installs the hook table, in the
// order start-up defines.
#include "darwin/core/startup.h"

#include "core/hook_installer.h"
#include "darwin/adapters/application_proxy_apps.h"
#include "darwin/adapters/application_proxy_container.h"
#include "darwin/adapters/bundle_files.h"
#include "darwin/adapters/dispatch_queues.h"
#include "darwin/adapters/keyed_archive_file.h"
#include "darwin/adapters/mail_composer.h"
#include "darwin/adapters/notification_centres.h"
#include "darwin/adapters/uikit_ui.h"
#include "darwin/adapters/url_session_http.h"
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/install_layout.h"
#include "darwin/service/crowdsource_sources.h"
#include "darwin/service/resources.h"
#include "darwin/store/phone_store_purchasing.h"
#include "downgrade/versions_list_model.h"
#include "store/purchase_intercept.h"
#include "updates/block_failure_prompt.h"
#include "updates/blocked_list_model.h"
#include "updates/blocked_updates.h"

#import <CoreFoundation/CoreFoundation.h>

#include <dlfcn.h>
#include <mach-o/getsect.h>

#include <atomic>
#include <string>

// The store's public lookup endpoint by default; a deployment may point the phone elsewhere (QV_PHONE_LOOKUP_URL).
#ifndef QV_PHONE_LOOKUP_URL
#define QV_PHONE_LOOKUP_URL "https://itunes.apple.com/"
#endif
// Where the support mail after a failed block goes (QV_SUPPORT_EMAIL).
#ifndef QV_SUPPORT_EMAIL
#define QV_SUPPORT_EMAIL "support@quorvane.com"
#endif

namespace qv::darwin {
namespace {

// A byte of this library's own data: dladdr on its address finds the library's path and image. Asked with data, not
// a function: a function's address is a signed pointer on arm64e, not a plain address.
const char inThisLibrary = 0;

// Where this library was loaded from; a rootless install finds its jailbreak root from it.
std::string loadedLibraryPath() {
    Dl_info info{};
    if (dladdr(&inThisLibrary, &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    return info.dli_fname;
}

// The bodies of every file of hook bodies in this library; a row without one (or with two) is named in the log.
HookBodies phoneHookBodies(Runtime &runtime) {
    HookBodies all;
    for (const std::string &problem : all.bind(hookBodiesInImage(&inThisLibrary))) {
        runtime.log(problem);
    }
    return all;
}

bool onMainQueue() {
    return NSThread.isMainThread == YES;
}

// The settings suite's defaults object, with the factory defaults registered before anything reads it.
NSUserDefaults *registeredSettingsDefaults(const AppStoreContainer &container) {
    NSUserDefaults *defaults = makeSettingsDefaults(container);
    DefaultsPreferences registering(defaults);
    registerFactoryDefaults(registering, readFactoryDefaults());
    return defaults;
}

std::atomic<Process *> built{nullptr};

} // namespace

Process::Process()
    : ui(uikitUi, queues.main(), &onMainQueue), settingsPreferences(registeredSettingsDefaults(container)),
      settings(settingsPreferences, notifier),
      serviceClient(http, queues, settingsPreferences,
                    ServiceEndpoints::make(QV_DEFAULT_API_BASE_URL, QV_PHONE_LOOKUP_URL)),
      crowdsourcing(http, queues, settingsPreferences, archiveFile, sentReportsFileIn(container),
                    [this] { return serviceClient.apiBaseUrl(); }),
      downgradeFlows{ui,
                     [this](const std::string &storeIdentifier) {
                         // Asked each time a list opens: the person may have pointed the phone at their own
                         // service since.
                         return std::make_shared<VersionsListModel>(
                             ui, serviceVersionsSource(http, queues, serviceClient.apiBaseUrl()), storeIdentifier);
                     },
                     [this] { return settings.value(Setting::DisableUpdateBlocker); }},
      storeIdentifierLookup([this](const std::string &bundleIdentifier, std::function<void(std::string)> done) {
          serviceClient.getStoreIdentifierWithBundleId(bundleIdentifier, std::move(done));
      }),
      bundleIdentifierLookup([this](const std::string &storeIdentifier, std::function<void(std::string)> done) {
          serviceClient.getBundleIdWithStoreIdentifier(storeIdentifier, std::move(done));
      }),
      blockFailurePrompt(ui, mail, QV_SUPPORT_EMAIL) {}

std::span<const BodyBinding> hookBodiesInImage(const void *address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fbase == nullptr) {
        return {};
    }
    unsigned long size = 0;
    const uint8_t *data = getsectiondata(static_cast<const struct mach_header_64 *>(info.dli_fbase),
                                         QV_HOOK_BODIES_SEGMENT, QV_HOOK_BODIES_SECTION, &size);
    if (data == nullptr) {
        return {};
    }
    // The linker lays each file's array end to end; every array is aligned as its elements are.
    return {reinterpret_cast<const BodyBinding *>(data), size / sizeof(BodyBinding)};
}

Process &process() {
    return *built.load();
}

void reportSwallowedFault(const char *name, const char *reason) noexcept {
    Process *made = built.load();
    if (made == nullptr) {
        return;
    }
    try {
        made->faultLog.swallowed(name != nullptr ? name : "", reason != nullptr ? reason : "");
    } catch (...) {
        // Nothing is left to tell: the log itself failed.
    }
}

namespace {

// The one start-up: the objects first, then the table's batches with the steps between them.
void startUpProcess() {
    if (built.load() != nullptr) {
        return;
    }
    auto *made = new Process();
    built.store(made);
    startUp(made->runtime, phoneHookBodies(made->runtime),
            StartUpSteps{
                [made] { made->pendingDowngrades.emplace(); },
                [made] {
                    made->resourceBundle.emplace(
                        made->bundleFiles,
                        resourceBundlePath(installLayout(), jailbreakRootFromLibraryPath(loadedLibraryPath())));
                },
                [made] {
                    made->blockedUpdates.emplace(BlockedUpdates::Environment{
                        &made->archiveFile, &made->notifier, BlockedUpdates::fileInContainer(made->container),
                        kCFCoreFoundationVersionNumber});
                    made->updateBlocker.emplace(*made->blockedUpdates, made->notifier, made->blockFailurePrompt);
                    made->settingsForm = std::make_shared<SettingsFormModel>(
                        made->ui, made->settings, made->notifier,
                        [made](std::function<void()> deletedUpdate) -> std::shared_ptr<ScreenModel> {
                            return std::make_shared<BlockedListModel>(*made->blockedUpdates, made->installedApps,
                                                                      std::move(deletedUpdate));
                        });
                },
            });
    // The daemon reports the installed apps' versions; reading them and sending run in the background.
    if (crowdsourcesInstalledApps(made->runtime.mainBundleIdentifier())) {
        made->crowdsourcing.reportInstalledApps(installedAppsMetadata);
    }
}

} // namespace
} // namespace qv::darwin

// Nothing else runs at load: one constructor, and nothing torn down at exit.
__attribute__((constructor)) static void startUpAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { qv::darwin::startUpProcess(); });
    }
}
