// A Ui that hands every call to the main queue unless it is already there, so a hook body called on one of the
// store's own threads cannot reach the toolkit from that thread.
#pragma once

#include <functional>

#include "platform/queue.h"
#include "platform/ui.h"

namespace qv {

class MainQueueUi final : public Ui {
  public:
    // drawing is only ever called on the main queue; onMainQueue tells whether the caller is already there.
    MainQueueUi(Ui &drawing, Queue &mainQueue, std::function<bool()> onMainQueue);

    // Answered by the drawing adapter, which can tell from any thread.
    bool hasAlertControllers() const override;
    bool isTablet() const override;

    void presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer,
                       std::function<void()> notShown) override;
    void presentScreen(std::shared_ptr<ScreenModel> screen, Presenter presenter) override;
    void dismissScreen(const ScreenModel &screen) override;
    void pushScreen(std::shared_ptr<ScreenModel> screen) override;
    void showProgress(const std::string &text) override;
    void dismissProgress() override;
    void openBrowser(const std::string &address) override;
    void showGestureHint(const std::string &text, Point labelPoint, Point touchPoint) override;
    void afterDelay(std::chrono::milliseconds delay, std::function<void()> task) override;

  private:
    // Runs the call now on the main queue, else queues it there, keeping the order calls were made in.
    void onMain(std::function<void()> call);

    Ui &drawing_;
    Queue &mainQueue_;
    std::function<bool()> onMainQueue_;
};

} // namespace qv
