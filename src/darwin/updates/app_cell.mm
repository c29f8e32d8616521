// QVAppCell: subtitle cell without selection highlight whose icon is a rounded square beside the texts.
#include "darwin/updates/app_cell.h"

#include "updates/blocked_list_model.h"

namespace {

constexpr CGFloat kIconCornerRadius = 9;

qv::Rect rectOf(CGRect frame) {
    return {frame.origin.x, frame.origin.y, frame.size.width, frame.size.height};
}

CGRect frameOf(const qv::Rect &rect) {
    return CGRectMake(rect.x, rect.y, rect.width, rect.height);
}

} // namespace

@implementation QVAppCell

- (instancetype)initWithStyle:(UITableViewCellStyle)style reuseIdentifier:(NSString *)reuseIdentifier {
    if ((self = [super initWithStyle:UITableViewCellStyleSubtitle reuseIdentifier:reuseIdentifier])) {
        self.selectionStyle = UITableViewCellSelectionStyleNone;
        self.imageView.clipsToBounds = YES;
    }
    return self;
}

- (void)layoutSubviews {
    [super layoutSubviews];
    UIImageView *icon = self.imageView;
    const qv::AppCellFrames frames = qv::appCellLayout(
        {rectOf(icon.frame), rectOf(self.textLabel.frame), rectOf(self.detailTextLabel.frame)}, icon.image != nil);
    icon.frame = frameOf(frames.icon);
    icon.layer.cornerRadius = kIconCornerRadius;
    icon.clipsToBounds = YES;
    icon.contentMode = UIViewContentModeScaleAspectFit;
    self.textLabel.frame = frameOf(frames.title);
    self.detailTextLabel.frame = frameOf(frames.detail);
}

@end
