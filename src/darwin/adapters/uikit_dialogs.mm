// The dialog forms: the alert controller, and block-answering wrappers of the legacy action sheet and alert view.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <objc/runtime.h>

// The legacy action sheet and alert view serve systems that predate alert controllers.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

using qv::DialogAnswer;
using AnswerFunction = std::function<void(const DialogAnswer &)>;

// Keeps the OK action of a text-field alert disabled while the field is empty.
@interface QVTextRequirement : NSObject
@property(nonatomic, weak) UIAlertAction *confirm;
- (void)textChanged:(UITextField *)field;
@end

@implementation QVTextRequirement
- (void)textChanged:(UITextField *)field {
    self.confirm.enabled = field.text.length > 0;
}
@end

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
namespace {

// The address of this byte is the key under which a dialog keeps its helper object.
const char kHelperKey = 0;

const void *legacyAnswerKey() {
    return &kHelperKey;
}

NSString *messageOf(const Dialog &dialog) {
    return dialog.message ? toNSString(*dialog.message) : nil;
}

} // namespace

void presentAlertController(const Dialog &dialog, AnswerFunction answer) {
    const UIAlertControllerStyle style =
        dialog.form == DialogForm::Alert ? UIAlertControllerStyleAlert : UIAlertControllerStyleActionSheet;
    UIAlertController *alert = [UIAlertController alertControllerWithTitle:toNSString(dialog.title)
                                                                   message:messageOf(dialog)
                                                            preferredStyle:style];
    if (dialog.textField) {
        NSString *placeholder = toNSString(dialog.textField->placeholder);
        [alert addTextFieldWithConfigurationHandler:^(UITextField *field) {
          field.placeholder = placeholder;
        }];
    }
    auto shared = std::make_shared<AnswerFunction>(std::move(answer));
    __weak UIAlertController *weakAlert = alert;
    QVTextRequirement *requirement = nil;
    for (std::size_t index = 0; index < dialog.buttons.size(); ++index) {
        const UiButton &button = dialog.buttons[index];
        const UIAlertActionStyle actionStyle =
            button.role == ButtonRole::Cancel ? UIAlertActionStyleCancel : UIAlertActionStyleDefault;
        UIAlertAction *action = [UIAlertAction actionWithTitle:localizedTitle(button.title)
                                                         style:actionStyle
                                                       handler:^(UIAlertAction *) {
                                                         NSString *text = weakAlert.textFields.firstObject.text;
                                                         const DialogAnswer chosen{index, toStdStringOrEmpty(text)};
                                                         guarded([&] { (*shared)(chosen); });
                                                       }];
        [alert addAction:action];
        if (dialog.textField && dialog.textField->confirmNeedsText && button.role != ButtonRole::Cancel &&
            requirement == nil) {
            requirement = [QVTextRequirement new];
            requirement.confirm = action;
            action.enabled = NO;
        }
    }
    if (requirement != nil) {
        UITextField *field = alert.textFields.firstObject;
        [field addTarget:requirement action:@selector(textChanged:) forControlEvents:UIControlEventEditingChanged];
        objc_setAssociatedObject(alert, legacyAnswerKey(), requirement, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    }
    [presentingController(dialog.presenter) presentViewController:alert animated:YES completion:nil];
}

void showLegacyActionSheet(const Dialog &dialog, AnswerFunction answer) {
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
    objc_setAssociatedObject(sheet, legacyAnswerKey(), delegate, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    [sheet showInView:keyWindow()];
}

void showLegacyAlertView(const Dialog &dialog, AnswerFunction answer) {
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
    objc_setAssociatedObject(alert, legacyAnswerKey(), delegate, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    [alert show];
}

} // namespace qv::darwin
