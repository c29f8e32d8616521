// The dark progress overlay with its text label, and the gesture hint that shows where to hold.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/strings.h"

namespace {

constexpr CGFloat kProgressSide = 140;
constexpr CGFloat kTouchSide = 54;
constexpr CGFloat kHintLabelWidth = 260;

UILabel *whiteLabel(const std::string &text, CGFloat width) {
    UILabel *label = [[UILabel alloc] initWithFrame:CGRectMake(0, 0, width, 60)];
    label.text = qv::darwin::toNSString(text);
    label.textColor = UIColor.whiteColor;
    label.textAlignment = NSTextAlignmentCenter;
    label.numberOfLines = 0;
    label.font = [UIFont boldSystemFontOfSize:16];
    return label;
}

} // namespace

// Removes itself at the first tap anywhere.
@interface QVGestureHintView : UIView
@end

@implementation QVGestureHintView
- (void)dismissHint {
    [UIView animateWithDuration:0.2
        animations:^{
          self.alpha = 0;
        }
        completion:^(BOOL) {
          [self removeFromSuperview];
        }];
}
@end

namespace qv::darwin {

UIView *makeProgressOverlay(const std::string &text) {
    UIView *overlay = [[UIView alloc] initWithFrame:CGRectMake(0, 0, kProgressSide, kProgressSide)];
    overlay.backgroundColor = [UIColor colorWithWhite:0 alpha:0.8];
    overlay.layer.cornerRadius = 12;
    overlay.autoresizingMask = UIViewAutoresizingFlexibleLeftMargin | UIViewAutoresizingFlexibleRightMargin |
                               UIViewAutoresizingFlexibleTopMargin | UIViewAutoresizingFlexibleBottomMargin;
    UIActivityIndicatorView *spinner =
        [[UIActivityIndicatorView alloc] initWithActivityIndicatorStyle:UIActivityIndicatorViewStyleWhiteLarge];
    spinner.center = CGPointMake(kProgressSide / 2, kProgressSide * 0.4);
    [spinner startAnimating];
    [overlay addSubview:spinner];
    UILabel *label = whiteLabel(text, kProgressSide - 16);
    label.center = CGPointMake(kProgressSide / 2, kProgressSide * 0.75);
    [overlay addSubview:label];
    return overlay;
}

UIView *makeGestureHint(const std::string &text, CGPoint labelPoint, CGPoint touchPoint) {
    QVGestureHintView *hint = [[QVGestureHintView alloc] initWithFrame:CGRectZero];
    hint.backgroundColor = [UIColor colorWithWhite:0 alpha:0.6];
    hint.autoresizingMask = UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight;
    [hint addGestureRecognizer:[[UITapGestureRecognizer alloc] initWithTarget:hint action:@selector(dismissHint)]];

    UILabel *label = whiteLabel(text, kHintLabelWidth);
    [label sizeToFit];
    label.center = labelPoint;
    [hint addSubview:label];

    UIView *touch = [[UIView alloc] initWithFrame:CGRectMake(0, 0, kTouchSide, kTouchSide)];
    touch.center = touchPoint;
    touch.backgroundColor = [UIColor colorWithWhite:1 alpha:0.7];
    touch.layer.cornerRadius = kTouchSide / 2;
    touch.userInteractionEnabled = NO;
    [hint addSubview:touch];
    // A finger pressing and holding: shrink, stay, come back, again and again.
    touch.transform = CGAffineTransformMakeScale(1.3, 1.3);
    [UIView animateWithDuration:0.8
                          delay:0.3
                        options:UIViewAnimationOptionRepeat | UIViewAnimationOptionAutoreverse |
                                UIViewAnimationOptionCurveEaseInOut
                     animations:^{
                       touch.transform = CGAffineTransformMakeScale(0.8, 0.8);
                     }
                     completion:nil];
    return hint;
}

} // namespace qv::darwin
