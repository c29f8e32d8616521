// Block-answering wrappers of the legacy action sheet and alert view, for systems that predate alert controllers.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <objc/runtime.h>

// These forms exist only for systems without alert controllers.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

using qv::DialogAnswer;
using AnswerFunction = std::function<void(const DialogAnswer &)>;

// The legacy views keep their delegates weakly; each answer object is attached to its view to live as long.
@interface QVLegacyDialogAnswer : NSObject <UIActionSheetDelegate, UIAlertViewDelegate>
- (instancetype)initWithDialog:(const qv::Dialog &)dialog answer:(AnswerFunction)answer;
@end

@implementation QVLegacyDialogAnswer {
    qv::Dialog _dialog;
    AnswerFunction _answer;
}

- (instancetype)initWithDialog:(const qv::Dialog &)dialog answer:(AnswerFunction)answer {
    if ((self = [super init])) {
        _dialog = dialog;
        _answer = std::move(answer);
    }
    return self;
}

// The legacy forms show English titles, so the chosen title names the dialog's button.
- (void)answerWithTitle:(NSString *)title text:(NSString *)text {
    const std::string chosen = qv::darwin::toStdStringOrEmpty(title);
    for (std::size_t index = 0; index < _dialog.buttons.size(); ++index) {
        if (_dialog.buttons[index].title == chosen) {
            const DialogAnswer answer{index, qv::darwin::toStdStringOrEmpty(text)};
            qv::darwin::guarded([&] { _answer(answer); });
            return;
        }
    }
}

- (void)actionSheet:(UIActionSheet *)sheet didDismissWithButtonIndex:(NSInteger)index {
    [self answerWithTitle:[sheet buttonTitleAtIndex:index] text:nil];
}

- (BOOL)alertViewShouldEnableFirstOtherButton:(UIAlertView *)alert {
    return !_dialog.textField || !_dialog.textField->confirmNeedsText || [alert textFieldAtIndex:0].text.length > 0;
}

- (void)alertView:(UIAlertView *)alert didDismissWithButtonIndex:(NSInteger)index {
    NSString *text = _dialog.textField ? [alert textFieldAtIndex:0].text : nil;
    [self answerWithTitle:[alert buttonTitleAtIndex:index] text:text];
}

@end

namespace qv::darwin {

bool showLegacyActionSheet(const Dialog &dialog, AnswerFunction answer) {
    UIWindow *window = keyWindow();
    if (window == nil) {
        return false;
    }
    QVLegacyDialogAnswer *delegate = [[QVLegacyDialogAnswer alloc] initWithDialog:dialog answer:std::move(answer)];
    UIActionSheet *sheet = [[UIActionSheet alloc] initWithTitle:toNSString(dialog.title)
                                                       delegate:delegate
                                              cancelButtonTitle:nil
                                         destructiveButtonTitle:nil
                                              otherButtonTitles:nil];
    for (const UiButton &button : dialog.buttons) {
        const NSInteger index = [sheet addButtonWithTitle:toNSString(button.title)];
        if (button.role == ButtonRole::Cancel) {
            sheet.cancelButtonIndex = index;
        }
    }
    objc_setAssociatedObject(sheet, dialogHelperKey(), delegate, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    [sheet showInView:window];
    return true;
}

bool showLegacyAlertView(const Dialog &dialog, AnswerFunction answer) {
    if (keyWindow() == nil) {
        return false;
    }
    QVLegacyDialogAnswer *delegate = [[QVLegacyDialogAnswer alloc] initWithDialog:dialog answer:std::move(answer)];
    UIAlertView *alert = [[UIAlertView alloc] initWithTitle:toNSString(dialog.title)
                                                    message:messageOf(dialog)
                                                   delegate:delegate
                                          cancelButtonTitle:nil
                                          otherButtonTitles:nil];
    for (const UiButton &button : dialog.buttons) {
        const NSInteger index = [alert addButtonWithTitle:toNSString(button.title)];
        if (button.role == ButtonRole::Cancel) {
            alert.cancelButtonIndex = index;
        }
    }
    if (dialog.textField) {
        alert.alertViewStyle = UIAlertViewStylePlainTextInput;
        [alert textFieldAtIndex:0].placeholder = toNSString(dialog.textField->placeholder);
    }
    objc_setAssociatedObject(alert, dialogHelperKey(), delegate, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    [alert show];
    return true;
}

} // namespace qv::darwin
