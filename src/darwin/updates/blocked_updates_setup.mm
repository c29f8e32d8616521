// The adapters behind the shared blocked-updates store, alive for the whole life of the process.
#include "darwin/updates/blocked_updates_setup.h"

#include "darwin/adapters/application_proxy_container.h"
#include "darwin/adapters/keyed_archive_file.h"
#include "darwin/adapters/notification_centres.h"
#include "updates/blocked_updates.h"

#import <CoreFoundation/CoreFoundation.h>

namespace qv::darwin {

void configureBlockedUpdatesStore() {
    // Never destroyed: the shared store may still be used by another thread while the process exits.
    static auto *archiveFile = new KeyedArchiveFile();
    static auto *notifier = new NotificationCentres();
    static auto *container = new ApplicationProxyContainer();
    BlockedUpdates::configureShared(
        {archiveFile, notifier, BlockedUpdates::fileInContainer(*container), kCFCoreFoundationVersionNumber});
}

} // namespace qv::darwin
