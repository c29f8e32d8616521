// The settings screen's form: which settings it shows, in which sections, and what its rows do.
#include "settings/settings_form_model.h"

#include <cctype>
#include <utility>

#include "updates/blocked_updates.h"

namespace qv {

std::string makerProfileAddress(const std::function<bool(std::string_view scheme)> &canOpen) {
    const std::string handle(kMakerHandle);
    if (canOpen("tweetbot:")) {
        return "tweetbot:///user_profile/" + handle;
    }
    if (canOpen("twitter:")) {
        return "twitter://user?screen_name=" + handle;
    }
    return "https://mobile.twitter.com/" + handle;
}

std::string titleFromKey(std::string_view key) {
    std::string title;
    for (const char letter : key) {
        const auto byte = static_cast<unsigned char>(letter);
        if (title.empty()) {
            title.push_back(static_cast<char>(std::toupper(byte)));
            continue;
        }
        if (std::isupper(byte) != 0) {
            title.push_back(' ');
        }
        title.push_back(letter);
    }
    return title;
}

SettingsFormModel::SettingsFormModel(Ui &ui, SettingsModel &settings, Notifier &notifier,
                                     BlockedListFactory makeBlockedList, std::string builtInServiceAddress)
    : ui_(ui), settings_(settings), notifier_(notifier), makeBlockedList_(std::move(makeBlockedList)),
      builtInServiceAddress_(std::move(builtInServiceAddress)) {
    rebuild();
}

void SettingsFormModel::rebuild() {
    const auto switchRow = [this](Setting setting, std::string title) {
        FormRow row;
        row.kind = FormRow::Kind::Switch;
        row.title = std::move(title);
        row.setting = setting;
        row.on = settings_.value(setting);
        return row;
    };
    FormRow manage;
    manage.kind = FormRow::Kind::Action;
    manage.title = "Manage Blocked/Hidden Updates";
    manage.action = std::string(kBlockedUpdatesAction);
    manage.disclosure = true;

    sections_.clear();
    sections_.push_back({"Update Block Options", {manage}, std::nullopt});
    sections_.push_back(
        {"Downgrade Options", {switchRow(Setting::EnableDowngradeOptions, "Enable Downgrade Options")}, std::nullopt});
    sections_.push_back({"Crowdsource Options",
                         {switchRow(Setting::DisableAppCaching, titleFromKey(settingName(Setting::DisableAppCaching)))},
                         std::string(kCrowdsourceFooter)});
    sections_.push_back(
        {"Update Blocking Options",
         {switchRow(Setting::DisableUpdateBlocker, titleFromKey(settingName(Setting::DisableUpdateBlocker)))},
         std::string("Disable the update blocking feature.")});

    // A person who runs the version service for themselves points the phone at it here.
    FormRow address;
    address.kind = FormRow::Kind::Text;
    address.title = std::string(kServiceAddressTitle);
    address.text = settings_.serviceAddress();
    address.placeholder = builtInServiceAddress_;
    sections_.push_back({"Service Options",
                         {address},
                         "Where the known versions come from. Leave it empty for the built-in service, or give the "
                         "address of your own: an http or https URL ending in \"/\"."});
}

void SettingsFormModel::appeared() {
    rebuild();
    title_ = std::string(kSettingsTitle);
}

Result<void> SettingsFormModel::disappearing() {
    title_.clear();
    return settings_.flush();
}

Result<void> SettingsFormModel::setSwitch(std::size_t section, std::size_t row, bool on) {
    if (section >= sections_.size() || row >= sections_[section].rows.size() ||
        !sections_[section].rows[row].setting.has_value()) {
        return fail(ErrorCode::NotFound,
                    "no switch at section " + std::to_string(section) + " row " + std::to_string(row));
    }
    FormRow &changed = sections_[section].rows[row];
    changed.on = on;
    return settings_.set(*changed.setting, on);
}

Result<void> SettingsFormModel::setText(std::size_t section, std::size_t row, std::string_view text) {
    if (section >= sections_.size() || row >= sections_[section].rows.size() ||
        sections_[section].rows[row].kind != FormRow::Kind::Text) {
        return fail(ErrorCode::NotFound,
                    "no text field at section " + std::to_string(section) + " row " + std::to_string(row));
    }
    Result<void> kept = settings_.setServiceAddress(text);
    if (!kept && kept.error().code == ErrorCode::NotServiceAddress) {
        Dialog refusal;
        refusal.title = std::string(kServiceAddressTitle);
        refusal.message = "\"" + std::string(text) + "\" cannot be used: " + kept.error().describe() + ".";
        refusal.buttons = {{"OK", ButtonRole::Cancel}};
        ui_.presentDialog(
            refusal, [](const DialogAnswer &) {}, [] {});
    }
    sections_[section].rows[row].text = settings_.serviceAddress();
    return kept;
}

void SettingsFormModel::tapRow(std::size_t section, std::size_t row) {
    if (section >= sections_.size() || row >= sections_[section].rows.size() ||
        sections_[section].rows[row].kind != FormRow::Kind::Action || !makeBlockedList_) {
        return;
    }
    ui_.pushScreen(makeBlockedList_([this] { hiddenUpdatesDidDeleteUpdate(); }));
}

void SettingsFormModel::hiddenUpdatesDidDeleteUpdate() {
    notifier_.postLocal(std::string(kReloadUpdatesNotification));
}

} // namespace qv
