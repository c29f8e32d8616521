// The in-app web browser: a web view in a navigation controller, with a share button that can leave for a browser.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/strings.h"
#include "store/available_tweaks.h"

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
        _convert = [convert copy];
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

@interface QVWebBrowserController : UIViewController <WKNavigationDelegate>
@property(nonatomic, strong) WKWebView *webView;
@end

@implementation QVWebBrowserController {
    qv::BrowserPage _page;
}

- (void)loadView {
    self.webView = [[WKWebView alloc] initWithFrame:CGRectZero configuration:[WKWebViewConfiguration new]];
    self.webView.navigationDelegate = self;
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
    if (const auto address = _page.viewLoaded()) {
        [self load:*address];
    }
}

// Asked before the view exists (the browser is presented first), the address waits for it.
- (void)loadURLString:(NSString *)address {
    if (const auto now = _page.open(qv::darwin::toStdStringOrEmpty(address))) {
        [self load:*now];
    }
}

- (void)load:(const std::string &)address {
    NSURL *url = [NSURL URLWithString:qv::darwin::toNSString(address)];
    if (url == nil || url.scheme == nil) {
        [self showLoadError:@"This is not a web address." address:address];
        return;
    }
    [self.webView loadRequest:[NSURLRequest requestWithURL:url]];
}

- (void)showLoadError:(NSString *)reason address:(const std::string &)address {
    const std::string page = qv::pageLoadErrorDocument(address, qv::darwin::toStdStringOrEmpty(reason));
    [self.webView loadHTMLString:qv::darwin::toNSString(page) baseURL:nil];
}

- (void)failedNavigationWithError:(NSError *)error {
    // A page left for another before it finished is no failure to show.
    if ([error.domain isEqualToString:NSURLErrorDomain] && error.code == NSURLErrorCancelled) {
        return;
    }
    NSString *address = error.userInfo[NSURLErrorFailingURLStringErrorKey] ?: self.webView.URL.absoluteString;
    [self showLoadError:error.localizedDescription ?: @"" address:qv::darwin::toStdStringOrEmpty(address)];
}

- (void)webView:(WKWebView *)webView
    didFailProvisionalNavigation:(WKNavigation *)navigation
                       withError:(NSError *)error {
    [self failedNavigationWithError:error];
}

- (void)webView:(WKWebView *)webView didFailNavigation:(WKNavigation *)navigation withError:(NSError *)error {
    [self failedNavigationWithError:error];
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
    // The page appears first and then starts loading: the address waits for the browser's view.
    [browser loadURLString:address];
    return navigation;
}

} // namespace qv::darwin
