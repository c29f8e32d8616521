// The "Verdigo Settings" screen as a model: a grouped form of switches bound to the settings, and the row that
// leads to the blocked-updates screen.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "platform/notifier.h"
#include "platform/ui.h"
#include "service/service_endpoints.h"
#include "settings/settings_model.h"

namespace qv {

inline constexpr std::string_view kSettingsTitle = "Verdigo Settings";
inline constexpr std::string_view kDismissTitle = "Dismiss";
inline constexpr std::string_view kBlockedUpdatesAction = "didTapBlockedUpdates:";
inline constexpr std::string_view kCrowdsourceFooter =
    "Verdigo needs to crowdsource app ids to be able to provide the ability to downgrade. None of your personal info "
    "is used to do so the only info sent is the app version, app extrnal identifier and the bundle id. You can "
    "disable this if you would like.";

// The screen's contact actions: the maker's social profile and a mail to support.
inline constexpr std::string_view kMakerHandle = "quorvane";
inline constexpr std::string_view kSupportMailSubject = "Verdigo Help";

// Where the maker's profile opens: the first installed client that can take it ("tweetbot:", then "twitter:"),
// else the mobile web profile.
std::string makerProfileAddress(const std::function<bool(std::string_view scheme)> &canOpen);

// A switch's title when the form gives none: the key split before each capital, its first letter capitalised.
std::string titleFromKey(std::string_view key);

inline constexpr std::string_view kServiceAddressTitle = "Service address";

struct FormRow {
    enum class Kind { Action, Switch, Text };
    Kind kind = Kind::Switch;
    std::string title;
    std::optional<Setting> setting; // switches: the setting they show and change
    bool on = false;                // switches: the setting's value when the form was built
    std::string action;             // action rows: the selector the row sends
    bool disclosure = false;        // action rows: a disclosure indicator, text left-aligned
    std::string text;               // text rows: the kept text
    std::string placeholder;        // text rows: what an empty field stands for
};

struct FormSection {
    std::string header;
    std::vector<FormRow> rows;
    std::optional<std::string> footer;
};

class SettingsFormModel final : public ScreenModel {
  public:
    // makeBlockedList builds the blocked-updates screen, handing it the call to make after each deletion. That call
    // refers to this form, which must outlive what it pushes (the settings screen lives as long as the process).
    using BlockedListFactory = std::function<std::shared_ptr<ScreenModel>(std::function<void()> deletedUpdate)>;

    SettingsFormModel(Ui &ui, SettingsModel &settings, Notifier &notifier, BlockedListFactory makeBlockedList,
                      std::string builtInServiceAddress = ServiceEndpoints().apiBaseUrl);

    ScreenKind kind() const override { return ScreenKind::SettingsForm; }

    // Empty while the screen is away, so that a pushed screen's back button has no text.
    const std::string &title() const { return title_; }
    const std::vector<FormSection> &sections() const { return sections_; }

    // The form is rebuilt on every appearance so that values changed elsewhere show.
    void appeared();
    // Flushes the stored settings, changed or not.
    Result<void> disappearing();

    // A switch changed by the user; returns the settings' flush.
    Result<void> setSwitch(std::size_t section, std::size_t row, bool on);
    // A text field's editing ended. Text the row cannot take is refused with an alert saying why, and the row keeps
    // what it had; either way the screen redraws the row from sections().
    Result<void> setText(std::size_t section, std::size_t row, std::string_view text);
    // An action row tapped: pushes the blocked-updates screen.
    void tapRow(std::size_t section, std::size_t row);
    // After a blocked record was deleted: the store's update screens must reload.
    void hiddenUpdatesDidDeleteUpdate();

  private:
    void rebuild();

    Ui &ui_;
    SettingsModel &settings_;
    Notifier &notifier_;
    BlockedListFactory makeBlockedList_;
    std::string builtInServiceAddress_;
    std::string title_;
    std::vector<FormSection> sections_;
};

} // namespace qv
