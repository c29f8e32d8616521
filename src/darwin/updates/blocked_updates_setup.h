// Connects the process-wide blocked-updates store to the phone's archive, notification and container adapters.
#pragma once

namespace qv::darwin {

// Must run at load time, before any hook body can ask for the shared store.
void configureBlockedUpdatesStore();

} // namespace qv::darwin
