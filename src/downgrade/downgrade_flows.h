// What the downgrade flows share: the user interface, how a versions list is made, and the update-blocker switch.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "downgrade/versions_list_model.h"
#include "platform/ui.h"

namespace qv {

struct DowngradeFlows {
    Ui &ui;
    std::function<std::shared_ptr<VersionsListModel>(const std::string &storeIdentifier)> makeVersionsList;
    std::function<bool()> updateBlockerDisabled;
};

} // namespace qv
