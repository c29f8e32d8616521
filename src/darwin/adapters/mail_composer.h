// The phone's SupportMail port: the system's mail composer, presented over whatever is on screen.
#pragma once

#include "platform/support_mail.h"

namespace qv::darwin {

class MailComposer final : public SupportMail {
  public:
    bool canSend() const override;
    // The maker's account component, when it is installed and someone is signed in.
    std::optional<std::string> signedInUsername() const override;
    void compose(const MailMessage &message) override;
};

} // namespace qv::darwin
