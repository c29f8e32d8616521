// The in-app web browser: a web view in a navigation controller, with a share button that can leave for a browser.
#include "darwin/adapters/uikit_ui.h"

#import <WebKit/WebKit.h>

// Opens the shared address in an outside browser; the scheme tells which.
@interface QVOpenAddressActivity : UIActivity
- (instancetype)initWithTitle:(NSString *)title type:(NSString *)type convert:(NSURL * (^)(NSURL *))convert;
@end

@implementation QVOpenAddressActivity {
    NSString *_title;
    NSString *_type;
    NSURL * (^_convert)(NSURL *);
    NSURL *_address;
}

- (instancetype)initWithTitle:(NSString *)title type:(NSString *)type convert:(NSURL * (^)(NSURL *))convert {
    if ((self = [super init])) {
        _title = title;
        _type = type;
        _convert = convert;
    }
    return self;
}

- (NSString *)activityTitle {
    return _title;
}

- (UIActivityType)activityType {
    return _type;
}

- (NSURL *)convertedFrom:(NSArray *)items {
    for (id item in items) {
        if ([item isKindOfClass:NSURL.class]) {
            return _convert(item);
        }
    }
    return nil;
}

// The host cannot ask whether another browser is installed (its query schemes are not ours to declare), so the
// choice is always offered and opening simply does nothing without it.
- (BOOL)canPerformWithActivityItems:(NSArray *)items {
    return [self convertedFrom:items] != nil;
}

- (void)prepareWithActivityItems:(NSArray *)items {
    _address = [self convertedFrom:items];
}

- (void)performActivity {
    [UIApplication.sharedApplication openURL:_address options:@{} completionHandler:nil];
    [self activityDidFinish:YES];
}

@end

@interface QVWebBrowserController : UIViewController
@property(nonatomic, strong) WKWebView *webView;
@end

@implementation QVWebBrowserController

- (void)loadView {
    self.webView = [[WKWebView alloc] initWithFrame:CGRectZero configuration:[WKWebViewConfiguration new]];
    self.view = self.webView;
}

- (void)viewDidLoad {
    [super viewDidLoad];
    self.navigationItem.leftBarButtonItem =
        [[UIBarButtonItem alloc] initWithBarButtonSystemItem:UIBarButtonSystemItemDone
                                                      target:self
                                                      action:@selector(done:)];
    self.navigationItem.rightBarButtonItem =
        [[UIBarButtonItem alloc] initWithBarButtonSystemItem:UIBarButtonSystemItemAction
                                                      target:self
                                                      action:@selector(share:)];
}

- (void)loadURLString:(NSString *)address {
    NSURL *url = [NSURL URLWithString:address];
    if (url != nil) {
        [self.webView loadRequest:[NSURLRequest requestWithURL:url]];
    }
}

- (void)done:(id)sender {
    [self dismissViewControllerAnimated:YES completion:nil];
}

- (void)share:(UIBarButtonItem *)sender {
    NSURL *address = self.webView.URL;
    if (address == nil) {
        return;
    }
    QVOpenAddressActivity *safari = [[QVOpenAddressActivity alloc] initWithTitle:@"Open in Safari"
                                                                            type:@"com.quorvane.open-in-safari"
                                                                         convert:^NSURL *(NSURL *url) {
                                                                           return url;
                                                                         }];
    // The other browser registers its own schemes for plain and secure pages.
    QVOpenAddressActivity *chrome = [[QVOpenAddressActivity alloc]
        initWithTitle:@"Open in Chrome"
                 type:@"com.quorvane.open-in-chrome"
              convert:^NSURL *(NSURL *url) {
                NSURLComponents *components = [NSURLComponents componentsWithURL:url resolvingAgainstBaseURL:NO];
                components.scheme = [url.scheme isEqualToString:@"https"] ? @"googlechromes" : @"googlechrome";
                return components.URL;
              }];
    UIActivityViewController *activities = [[UIActivityViewController alloc] initWithActivityItems:@[ address ]
                                                                             applicationActivities:@[ safari, chrome ]];
    activities.popoverPresentationController.barButtonItem = sender;
    [self presentViewController:activities animated:YES completion:nil];
}

@end

namespace qv::darwin {

UIViewController *makeBrowser(NSString *address) {
    QVWebBrowserController *browser = [QVWebBrowserController new];
    UINavigationController *navigation = [[UINavigationController alloc] initWithRootViewController:browser];
    // The page appears first and then starts loading.
    dispatch_async(dispatch_get_main_queue(), ^{
      [browser loadURLString:address];
    });
    return navigation;
}

} // namespace qv::darwin
