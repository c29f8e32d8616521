// The Ui port in a terminal: dialogs as numbered choices, the versions list as a numbered table, read from a stream.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ui.h"

namespace qvdovrin {

class TerminalUi final : public qv::Ui {
  public:
    // echoInput: write each line read back out, so a transcript of piped input reads as if typed.
    TerminalUi(std::istream &in, std::ostream &out, bool echoInput) : in_(in), out_(out), echoInput_(echoInput) {}

    bool hasAlertControllers() const override { return true; }
    bool isTablet() const override { return false; }

    // A dialog with a text field reads one line for it (an empty line cancels); one with several buttons reads
    // the number of a button; one with a single button is an alert, kept as the failure to report.
    void presentDialog(const qv::Dialog &dialog, std::function<void(const qv::DialogAnswer &)> answer,
                       std::function<void()> notShown) override;
    void presentScreen(std::shared_ptr<qv::ScreenModel> screen, qv::Presenter presenter) override;
    void dismissScreen(const qv::ScreenModel &screen) override;
    void showProgress(const std::string &text) override;
    void dismissProgress() override {}
    void openBrowser(const std::string &address) override;
    void showGestureHint(const std::string &text, qv::Point labelPoint, qv::Point touchPoint) override;
    // A terminal has no animation to wait for: the task runs when the command next drains its work.
    void afterDelay(std::chrono::milliseconds delay, std::function<void()> task) override;

    // Runs the delayed tasks, including those they add.
    void runDelayed();
    // One line of input, or nothing at the end of input.
    std::optional<std::string> readLine();

    std::shared_ptr<qv::ScreenModel> screen() const { return screen_; }
    bool screenOpen() const { return screen_ != nullptr; }
    // The text of the last alert shown (e.g. a load error), one line.
    const std::optional<std::string> &alert() const { return alert_; }

  private:
    std::istream &in_;
    std::ostream &out_;
    bool echoInput_;
    std::shared_ptr<qv::ScreenModel> screen_;
    std::optional<std::string> alert_;
    std::vector<std::function<void()>> delayed_;
};

} // namespace qvdovrin
