// SupportMail for tests: a mail account that can be switched off, and every message composed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/support_mail.h"

namespace qv {

class FakeSupportMail : public SupportMail {
  public:
    bool account = true;
    std::optional<std::string> username;
    std::vector<MailMessage> composed;

    bool canSend() const override { return account; }
    std::optional<std::string> signedInUsername() const override { return username; }
    void compose(const MailMessage &message) override { composed.push_back(message); }
};

} // namespace qv
