// The "Verdigo Settings" screen's controller, made for a form model by the Ui adapter.
#pragma once

#include "settings/settings_form_model.h"

#import <UIKit/UIKit.h>

#include <memory>

namespace qv::darwin {

UIViewController *makeSettingsScreen(std::shared_ptr<SettingsFormModel> model);

} // namespace qv::darwin
