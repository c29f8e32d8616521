// The versions list's behaviour, independent of how a platform draws it.
#include "downgrade/versions_list_model.h"

#include <chrono>
#include <memory>
#include <utility>

namespace qv {

VersionsSource serviceVersionsSource(Http &http, Queues &queues, std::string apiBaseUrl) {
    return [&http, &queues, apiBaseUrl = std::move(apiBaseUrl)](const std::string &storeIdentifier,
                                                                std::function<void(KnownVersions)> done) {
        fetchKnownVersions(http, queues, apiBaseUrl, storeIdentifier, std::move(done));
    };
}

VersionsListModel::VersionsListModel(Ui &ui, VersionsSource source, std::string storeIdentifier)
    : ui_(ui), source_(std::move(source)), storeIdentifier_(std::move(storeIdentifier)) {}

void VersionsListModel::appeared() {
    if (initialLoadDone_) {
        return;
    }
    initialLoadDone_ = true;
    refresh();
}

void VersionsListModel::refresh() {
    refreshing_ = true;
    changed();
    source_(storeIdentifier_, [weak = weak_from_this()](KnownVersions reply) {
        if (const auto self = weak.lock()) {
            self->loaded(std::move(reply));
        }
    });
}

void VersionsListModel::loaded(KnownVersions reply) {
    const std::optional<Error> failure = reply.ok() ? std::nullopt : std::optional<Error>(reply.error());
    versions_ = failure ? std::vector<QVVersion>() : std::move(reply).value();
    rows_.clear();
    for (const QVVersion &version : versions_) {
        rows_.push_back({shownVersionText(version), version.external_identifier.value_or("")});
    }
    refreshing_ = false;
    changed();
    if (!failure) {
        return;
    }
    Dialog alert;
    alert.title = std::string(kLoadErrorTitle);
    alert.message = std::string(kLoadErrorMessagePrefix) + failure->describe();
    alert.form = DialogForm::Alert;
    alert.presenter = Presenter::Screen;
    alert.buttons = {{std::string(kLoadErrorButton), ButtonRole::Default}};
    ui_.afterDelay(std::chrono::milliseconds(0), [&ui = ui_, alert] {
        ui.presentDialog(
            alert, [](const DialogAnswer &) {}, [] {});
    });
}

void VersionsListModel::chooseRow(std::size_t row) {
    if (row < versions_.size()) {
        finish(versions_[row].external_identifier);
    }
}

void VersionsListModel::leave() {
    if (endWithoutChoice()) {
        ui_.dismissScreen(*this);
    }
}

void VersionsListModel::notShown() {
    static_cast<void>(endWithoutChoice());
}

void VersionsListModel::dismissedByUser() {
    static_cast<void>(endWithoutChoice());
}

bool VersionsListModel::endWithoutChoice() {
    if (finished_) {
        return false;
    }
    finished_ = true;
    if (cancel_) {
        cancel_();
    }
    return true;
}

void VersionsListModel::choose(std::optional<std::string> identifier) {
    finish(std::move(identifier));
}

void VersionsListModel::typeVersion() {
    Dialog dialog;
    dialog.title = std::string(kTypeVersionTitle);
    dialog.message = std::string(kTypeVersionMessage);
    dialog.presenter = Presenter::Screen;
    std::size_t okButton = 0;
    if (ui_.hasAlertControllers()) {
        // An empty identifier is handed on as it stands.
        dialog.form = DialogForm::Alert;
        dialog.buttons = {{std::string(kOkTitle), ButtonRole::Default}, {"Cancel", ButtonRole::Cancel}};
        dialog.textField = TextField{std::string(kTypeVersionPlaceholder), false};
        okButton = 0;
    } else {
        dialog.form = DialogForm::LegacyAlertView;
        dialog.buttons = {{"Cancel", ButtonRole::Cancel}, {std::string(kOkTitle), ButtonRole::Default}};
        dialog.textField = TextField{"", true};
        okButton = 1;
    }
    ui_.presentDialog(
        dialog,
        [weak = weak_from_this(), okButton](const DialogAnswer &answer) {
            const auto self = weak.lock();
            if (self && answer.button == okButton) {
                self->finish(answer.text);
            }
        },
        [] {});
}

void VersionsListModel::finish(std::optional<std::string> identifier) {
    if (finished_) {
        return;
    }
    finished_ = true;
    if (completion_) {
        completion_(std::move(identifier));
    }
    ui_.dismissScreen(*this);
}

void VersionsListModel::changed() const {
    if (onChange_) {
        onChange_();
    }
}

} // namespace qv
