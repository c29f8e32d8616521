// Drawing dialogs and screens as text and reading the user's answers from a stream.
#include "terminal_ui.h"

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>

#include "base/text.h"

namespace qvdovrin {

namespace {

std::string oneLine(std::string text) {
    for (char &c : text) {
        if (c == '\n') {
            c = ' ';
        }
    }
    return text;
}

} // namespace

std::optional<std::string> TerminalUi::readLine() {
    std::string line;
    if (!std::getline(in_, line)) {
        if (echoInput_) {
            out_ << "\n";
        }
        return std::nullopt;
    }
    if (echoInput_) {
        out_ << line << "\n";
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

// A terminal can always show a dialog, so notShown never runs.
void TerminalUi::presentDialog(const qv::Dialog &dialog, std::function<void(const qv::DialogAnswer &)> answer,
                               std::function<void()> /*notShown*/) {
    if (dialog.buttons.size() == 1 && !dialog.textField) {
        alert_ = oneLine(dialog.message.value_or(dialog.title));
        answer({0, {}});
        return;
    }
    out_ << dialog.title << "\n";
    if (dialog.message) {
        out_ << *dialog.message << "\n";
    }
    if (dialog.textField) {
        std::size_t confirm = dialog.buttons.size();
        std::size_t cancel = dialog.buttons.size();
        for (std::size_t i = 0; i < dialog.buttons.size(); ++i) {
            (dialog.buttons[i].role == qv::ButtonRole::Cancel ? cancel : confirm) = i;
        }
        if (!dialog.textField->placeholder.empty()) {
            out_ << "(" << dialog.textField->placeholder << ") ";
        }
        out_ << "> " << std::flush;
        const auto line = readLine();
        const bool confirmed = line && !line->empty() && confirm < dialog.buttons.size();
        if (confirmed) {
            answer({confirm, *line});
        } else if (cancel < dialog.buttons.size()) {
            answer({cancel, {}});
        }
        return;
    }
    for (std::size_t i = 0; i < dialog.buttons.size(); ++i) {
        out_ << "  " << i + 1 << ") " << dialog.buttons[i].title << "\n";
    }
    out_ << "> " << std::flush;
    const auto line = readLine();
    if (!line) {
        return;
    }
    // Anything but a button's number leaves the dialog unanswered, as a dismissed one is.
    if (const auto chosen = qv::strictInteger(*line, 1, static_cast<std::int64_t>(dialog.buttons.size()))) {
        answer({static_cast<std::size_t>(*chosen - 1), {}});
    }
}

void TerminalUi::presentScreen(std::shared_ptr<qv::ScreenModel> screen, qv::Presenter /*presenter*/) {
    screen_ = std::move(screen);
}

void TerminalUi::dismissScreen(const qv::ScreenModel &screen) {
    if (screen_.get() == &screen) {
        screen_.reset();
    }
}

void TerminalUi::showProgress(const std::string &text) {
    out_ << text << "...\n";
}

void TerminalUi::openBrowser(const std::string &address) {
    out_ << address << "\n";
}

void TerminalUi::showGestureHint(const std::string &text, qv::Point /*labelPoint*/, qv::Point /*touchPoint*/) {
    out_ << text << "\n";
}

void TerminalUi::afterDelay(std::chrono::milliseconds /*delay*/, std::function<void()> task) {
    delayed_.push_back(std::move(task));
}

void TerminalUi::runDelayed() {
    while (!delayed_.empty()) {
        auto task = std::move(delayed_.front());
        delayed_.erase(delayed_.begin());
        task();
    }
}

} // namespace qvdovrin
