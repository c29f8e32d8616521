// A user interface that records everything presented and answers dialogs as a scripted user would.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/ui.h"

namespace qv {

class ScriptedUi : public Ui {
  public:
    bool alertControllers = true;
    bool tablet = false;
    // Nothing can be presented: every dialog and screen is reported as not shown.
    bool refusing = false;

    bool hasAlertControllers() const override { return alertControllers; }
    bool isTablet() const override { return tablet; }

    void presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer,
                       std::function<void()> notShown) override {
        if (refusing) {
            log.push_back("notShown:" + dialog.title);
            notShown();
            return;
        }
        dialogs.push_back(dialog);
        log.push_back("dialog:" + dialog.title);
        pending_.push_back({dialog, std::move(answer)});
    }
    void presentScreen(std::shared_ptr<ScreenModel> screen, Presenter presenter) override {
        if (refusing) {
            log.emplace_back("notShown:screen");
            screen->notShown();
            return;
        }
        screens.push_back(screen);
        screenPresenters.push_back(presenter);
        log.emplace_back("screen");
    }
    void pushScreen(std::shared_ptr<ScreenModel> screen) override {
        pushed.push_back(screen);
        log.emplace_back("push");
    }
    void dismissScreen(const ScreenModel &screen) override {
        log.emplace_back("dismissScreen");
        dismissed.push_back(&screen);
    }
    void showProgress(const std::string &text) override { log.push_back("progress:" + text); }
    void dismissProgress() override { log.emplace_back("dismissProgress"); }
    void openBrowser(const std::string &address) override { log.push_back("browser:" + address); }
    void showGestureHint(const std::string &text, Point labelPoint, Point touchPoint) override {
        log.push_back("hint:" + text);
        hintPoints = {labelPoint, touchPoint};
    }
    void afterDelay(std::chrono::milliseconds delay, std::function<void()> task) override {
        delays.push_back(delay);
        delayed_.push_back(std::move(task));
    }

    // The open dialog's button titles, in order.
    std::vector<std::string> titles() const {
        std::vector<std::string> out;
        if (!pending_.empty()) {
            for (const UiButton &button : pending_.back().dialog.buttons) {
                out.push_back(button.title);
            }
        }
        return out;
    }

    // Taps the button of the open dialog that has this title, with the text typed into its field; false when the
    // dialog has no such button.
    bool tap(std::string_view title, std::string typed = {}) {
        if (pending_.empty()) {
            return false;
        }
        Pending open = std::move(pending_.back());
        pending_.pop_back();
        const auto &buttons = open.dialog.buttons;
        const auto found =
            std::find_if(buttons.begin(), buttons.end(), [&](const UiButton &button) { return button.title == title; });
        if (found == buttons.end()) {
            return false;
        }
        open.answer(DialogAnswer{static_cast<std::size_t>(found - buttons.begin()), std::move(typed)});
        return true;
    }

    // Runs the tasks waiting for a delay, including those they add.
    void runDelayed() {
        while (!delayed_.empty()) {
            auto task = std::move(delayed_.front());
            delayed_.erase(delayed_.begin());
            task();
        }
    }

    template <class Model> std::shared_ptr<Model> lastScreen() const {
        return screens.empty() ? nullptr : std::dynamic_pointer_cast<Model>(screens.back());
    }

    std::vector<Dialog> dialogs;
    std::vector<std::shared_ptr<ScreenModel>> screens;
    std::vector<Presenter> screenPresenters;
    std::vector<std::shared_ptr<ScreenModel>> pushed;
    std::vector<const ScreenModel *> dismissed;
    std::vector<std::string> log;
    std::vector<std::chrono::milliseconds> delays;
    std::pair<Point, Point> hintPoints;

  private:
    struct Pending {
        Dialog dialog;
        std::function<void(const DialogAnswer &)> answer;
    };
    std::vector<Pending> pending_;
    std::vector<std::function<void()>> delayed_;
};

} // namespace qv
