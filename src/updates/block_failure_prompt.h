// Tells the user that blocking an update failed and offers to mail the details to support.
#pragma once

#include <string>
#include <string_view>

#include "platform/block_failure_alert.h"
#include "platform/support_mail.h"
#include "platform/ui.h"

namespace qv {

inline constexpr std::string_view kBlockFailureTitle = "Notice!";
inline constexpr std::string_view kBlockFailureMessage =
    "There was an issue blocking the update. Please send me an email with the details!";
inline constexpr std::string_view kBlockFailureCancelTitle = "Cancel";
inline constexpr std::string_view kSendEmailTitle = "Send Email";

// The "Notice!" alert; its answer is matched by the chosen button's title.
Dialog blockFailureDialog();

class BlockFailurePrompt final : public BlockFailureAlert {
  public:
    BlockFailurePrompt(Ui &ui, SupportMail &mail, std::string supportAddress)
        : ui_(ui), mail_(mail), supportAddress_(std::move(supportAddress)) {}

    // "Send Email" composes the mail when the device can send one; "Cancel", or no mail account, does nothing.
    void show(const BlockFailure &failure) override;

  private:
    Ui &ui_;
    SupportMail &mail_;
    std::string supportAddress_;
};

} // namespace qv
