// QVAppCell: a blocked-updates row with the app's icon at a fixed size and the texts beside it.
#pragma once

#import <UIKit/UIKit.h>

@interface QVAppCell : UITableViewCell
@end
