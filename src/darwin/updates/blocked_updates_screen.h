// The "Blocked App Updates" screen's controller, made for a model by the Ui adapter.
#pragma once

#include "updates/blocked_list_model.h"

#import <UIKit/UIKit.h>

#include <memory>

@protocol QVBlockedUpdatesViewControllerDelegate <NSObject>
@optional
- (void)hiddenUpdatesDidDeleteUpdate;
@end

@interface QVBlockedUpdatesViewController : UITableViewController
@property(nonatomic, weak) id<QVBlockedUpdatesViewControllerDelegate> delegate;
- (instancetype)initWithModel:(std::shared_ptr<qv::BlockedListModel>)model;
// For owners that make the screen by name: the shared store's records, and the delegate told of each deletion.
- (instancetype)initWithDelegate:(id<QVBlockedUpdatesViewControllerDelegate>)delegate;
// The store keys the rows stand for, in row order.
- (NSArray *)blockedItems;
@end

namespace qv::darwin {

UIViewController *makeBlockedUpdatesScreen(std::shared_ptr<BlockedListModel> model);

} // namespace qv::darwin
