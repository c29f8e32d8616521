// Port: composes a mail to the maker's support address for the user to send.
#pragma once

#include <optional>
#include <string>

namespace qv {

struct MailMessage {
    std::string recipient;
    std::string subject;
    std::string body; // plain text
};

class SupportMail {
  public:
    SupportMail() = default;
    SupportMail(const SupportMail &) = delete;
    SupportMail &operator=(const SupportMail &) = delete;
    virtual ~SupportMail() = default;

    // False when the device has no mail account set up.
    virtual bool canSend() const = 0;
    // The user name of the maker's account when one is signed in on this device.
    virtual std::optional<std::string> signedInUsername() const = 0;
    // Shows the composer with the message filled in; the user sends or discards it.
    virtual void compose(const MailMessage &message) = 0;
};

} // namespace qv
