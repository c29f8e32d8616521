// The alert-controller dialog forms: alert and action-sheet style, with an optional text field.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <objc/runtime.h>

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

namespace qv::darwin {

bool presentAlertController(const Dialog &dialog, AnswerFunction answer) {
    UIViewController *presenter = presentingController(dialog.presenter);
    if (!canPresentFrom(presenter)) {
        return false;
    }
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
        objc_setAssociatedObject(alert, dialogHelperKey(), requirement, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    }
    // A sheet shown as a popover must be anchored, or presenting it raises; the centre of the presenter will do.
    if (UIPopoverPresentationController *popover = alert.popoverPresentationController) {
        popover.sourceView = presenter.view;
        popover.sourceRect =
            CGRectMake(CGRectGetMidX(presenter.view.bounds), CGRectGetMidY(presenter.view.bounds), 0, 0);
        popover.permittedArrowDirections = 0;
    }
    [presenter presentViewController:alert animated:YES completion:nil];
    return true;
}

} // namespace qv::darwin
