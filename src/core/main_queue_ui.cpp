// Hands each Ui call to the main queue, where the drawing adapter may touch the toolkit.
#include "core/main_queue_ui.h"

#include <utility>

namespace qv {

MainQueueUi::MainQueueUi(Ui &drawing, Queue &mainQueue, std::function<bool()> onMainQueue)
    : drawing_(drawing), mainQueue_(mainQueue), onMainQueue_(std::move(onMainQueue)) {}

bool MainQueueUi::hasAlertControllers() const {
    return drawing_.hasAlertControllers();
}

bool MainQueueUi::isTablet() const {
    return drawing_.isTablet();
}

void MainQueueUi::onMain(std::function<void()> call) {
    if (onMainQueue_()) {
        call();
        return;
    }
    mainQueue_.async(std::move(call));
}

void MainQueueUi::presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer,
                                std::function<void()> notShown) {
    onMain([this, dialog, answer = std::move(answer), notShown = std::move(notShown)]() mutable {
        drawing_.presentDialog(dialog, std::move(answer), std::move(notShown));
    });
}

void MainQueueUi::presentScreen(std::shared_ptr<ScreenModel> screen, Presenter presenter) {
    onMain([this, screen = std::move(screen), presenter]() mutable {
        drawing_.presentScreen(std::move(screen), presenter);
    });
}

void MainQueueUi::dismissScreen(const ScreenModel &screen) {
    // Only the address is handed on: the drawing finds the screen it recorded by it and reads nothing else.
    onMain([this, shown = &screen] { drawing_.dismissScreen(*shown); });
}

void MainQueueUi::pushScreen(std::shared_ptr<ScreenModel> screen) {
    onMain([this, screen = std::move(screen)]() mutable { drawing_.pushScreen(std::move(screen)); });
}

void MainQueueUi::showProgress(const std::string &text) {
    onMain([this, text] { drawing_.showProgress(text); });
}

void MainQueueUi::dismissProgress() {
    onMain([this] { drawing_.dismissProgress(); });
}

void MainQueueUi::openBrowser(const std::string &address) {
    onMain([this, address] { drawing_.openBrowser(address); });
}

void MainQueueUi::showGestureHint(const std::string &text, Point labelPoint, Point touchPoint) {
    onMain([this, text, labelPoint, touchPoint] { drawing_.showGestureHint(text, labelPoint, touchPoint); });
}

void MainQueueUi::afterDelay(std::chrono::milliseconds delay, std::function<void()> task) {
    onMain([this, delay, task = std::move(task)]() mutable { drawing_.afterDelay(delay, std::move(task)); });
}

} // namespace qv
