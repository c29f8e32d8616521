// Composes the support mail with the system's composer; QVUIKitHelper's shared instance closes it again.
#include "darwin/adapters/mail_composer.h"

#include "darwin/adapters/uikit_ui.h"
#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/uikit_helper.h"

#import <MessageUI/MessageUI.h>
#import <objc/message.h>

@interface QVUIKitHelper (SupportMail) <MFMailComposeViewControllerDelegate>
+ (instancetype)sharedInstance;
@end

@implementation QVUIKitHelper (SupportMail)

+ (instancetype)sharedInstance {
    static QVUIKitHelper *shared = nil;
    static dispatch_once_t once;
    dispatch_once(&once, ^{
      shared = [QVUIKitHelper new];
    });
    return shared;
}

- (void)mailComposeController:(MFMailComposeViewController *)controller
          didFinishWithResult:(MFMailComposeResult)result
                        error:(NSError *)error {
    qv::darwin::guarded([&] { [controller dismissViewControllerAnimated:YES completion:nil]; });
}

@end

namespace qv::darwin {
namespace {

// Looked up by name: the framework may be missing from a system, and then no mail can be sent.
Class composerClass() {
    return NSClassFromString(@"MFMailComposeViewController");
}

id sendMessage(id receiver, NSString *selectorName) {
    SEL selector = NSSelectorFromString(selectorName);
    if (![receiver respondsToSelector:selector]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(receiver, selector);
}

} // namespace

bool MailComposer::canSend() const {
    bool possible = false;
    guarded([&] {
        Class composer = composerClass();
        possible = composer != nil && [composer respondsToSelector:@selector(canSendMail)] && [composer canSendMail];
    });
    return possible;
}

std::optional<std::string> MailComposer::signedInUsername() const {
    std::optional<std::string> username;
    guarded([&] {
        username = toStdString(sendMessage(sendMessage(NSClassFromString(@"QVPUser"), @"currentUser"), @"username"));
    });
    return username;
}

void MailComposer::compose(const MailMessage &message) {
    guarded([&] {
        MFMailComposeViewController *composer = [[composerClass() alloc] initWithNibName:nil bundle:nil];
        if (composer == nil) {
            return;
        }
        composer.mailComposeDelegate = [QVUIKitHelper sharedInstance];
        [composer setToRecipients:@[ toNSString(message.recipient) ]];
        [composer setSubject:toNSString(message.subject)];
        [composer setMessageBody:toNSString(message.body) isHTML:NO];
        [topMostController() presentViewController:composer animated:YES completion:nil];
        // Shown a second time on purpose: what is then on top goes away first, and the composer comes back over
        // whatever remains.
        [topMostController() dismissViewControllerAnimated:YES
                                                completion:^{
                                                  guarded([&] {
                                                      [topMostController() presentViewController:composer
                                                                                        animated:YES
                                                                                      completion:nil];
                                                  });
                                                }];
    });
}

} // namespace qv::darwin
