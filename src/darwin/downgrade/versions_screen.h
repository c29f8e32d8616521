// The "Known Versions" screen's controller, made for a model by the Ui adapter.
#pragma once

#include "downgrade/versions_list_model.h"

#import <UIKit/UIKit.h>

#include <memory>

namespace qv::darwin {

UIViewController *makeVersionsScreen(std::shared_ptr<VersionsListModel> model);

} // namespace qv::darwin
