// The "Known Versions" screen as a model: loading, rows, choosing a version, typing one, leaving.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "downgrade/known_versions.h"
#include "platform/ui.h"

namespace qv {

inline constexpr std::string_view kVersionsListTitle = "Known Versions";
inline constexpr std::string_view kVersionCellIdentifier = "QVAppVersionMap";
inline constexpr std::string_view kLoadErrorTitle = "Error !";
inline constexpr std::string_view kLoadErrorMessagePrefix = "Opps we got an error!\n";
inline constexpr std::string_view kLoadErrorButton = "Ok";
inline constexpr std::string_view kTypeVersionTitle = "Downgrade?";
inline constexpr std::string_view kTypeVersionMessage = "Please Enter The SoftwareVersionExternalIdentifier";
inline constexpr std::string_view kTypeVersionPlaceholder = "i.e 1551411";
inline constexpr std::string_view kOkTitle = "OK";

// Where the list's versions come from: the versions newest first, or the failure to show. The completion runs on
// the main queue.
using VersionsSource = std::function<void(const std::string &storeIdentifier, std::function<void(KnownVersions)>)>;

// The service's versions resource through the service client's queues, as the phone and the CLI load it.
VersionsSource serviceVersionsSource(Http &http, Queues &queues, std::string apiBaseUrl);

// Always owned by a shared_ptr: a reply that arrives after the screen is gone finds no model and is dropped.
class VersionsListModel final : public ScreenModel, public std::enable_shared_from_this<VersionsListModel> {
  public:
    struct Row {
        std::string text;       // the version as users see it (shownVersionText)
        std::string detailText; // the external version identifier; empty when left out
    };

    // The chosen external version identifier; nothing for a row whose identifier the service left out.
    using Completion = std::function<void(std::optional<std::string>)>;

    VersionsListModel(Ui &ui, VersionsSource source, std::string storeIdentifier);

    ScreenKind kind() const override { return ScreenKind::VersionsList; }
    const std::string &storeIdentifier() const { return storeIdentifier_; }
    std::string_view title() const { return kVersionsListTitle; }

    // Required before presenting; cancel is optional (only the purchase entry lets leaving mean something).
    void setCompletion(Completion completion) { completion_ = std::move(completion); }
    void setCancel(std::function<void()> cancel) { cancel_ = std::move(cancel); }
    // The drawing's hook: called whenever rows or the refreshing state change.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

    const std::vector<Row> &rows() const { return rows_; }
    bool refreshing() const { return refreshing_; }

    // The user's and the screen's events.
    void appeared(); // loads on the first appearance only
    void refresh();  // pull to refresh
    void chooseRow(std::size_t row);
    void leave();       // the cancel bar button
    void typeVersion(); // the add bar button: asks for an external version identifier
    // Hands the identifier to the owner and closes, as choosing a row does; for callers that name it directly.
    void choose(std::optional<std::string> identifier);

    // A list that never appeared, or that the user swiped away, ends as leaving it does: cancel runs, once.
    void notShown() override;
    void dismissedByUser() override;

  private:
    void loaded(KnownVersions reply);
    // Runs cancel unless the list has already ended; false when it had.
    bool endWithoutChoice();
    void finish(std::optional<std::string> identifier);
    void changed() const;

    Ui &ui_;
    VersionsSource source_;
    std::string storeIdentifier_;
    Completion completion_;
    std::function<void()> cancel_;
    std::function<void()> onChange_;
    std::vector<QVVersion> versions_;
    std::vector<Row> rows_;
    bool initialLoadDone_ = false;
    bool refreshing_ = false;
    bool finished_ = false;
};

} // namespace qv
