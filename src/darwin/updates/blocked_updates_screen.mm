// QVBlockedUpdatesViewController: draws the blocked-updates model as a table and forwards edits and deletions to it.
#include "darwin/updates/blocked_updates_screen.h"

#include "darwin/adapters/application_proxy_apps.h"
#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/updates/app_cell.h"

namespace {

// Moves a back button's title out of sight, so that only its arrow shows.
void hideBackTitle(UIBarButtonItem *item) {
    [item setBackButtonTitlePositionAdjustment:UIOffsetMake(0, -9999) forBarMetrics:UIBarMetricsDefault];
}

} // namespace

@implementation QVBlockedUpdatesViewController {
    std::shared_ptr<qv::BlockedListModel> _model;
}

- (instancetype)initWithModel:(std::shared_ptr<qv::BlockedListModel>)model {
    if ((self = [super initWithStyle:UITableViewStylePlain])) {
        _model = std::move(model);
    }
    return self;
}

- (instancetype)initWithDelegate:(id<QVBlockedUpdatesViewControllerDelegate>)delegate {
    if ((self = [self initWithModel:nullptr])) {
        self.delegate = delegate;
        static_cast<void>([self model]);
    }
    return self;
}

// Whatever initialiser made the screen, it lists the shared store's records as they are when it is first asked.
// The delegate is read when a record is deleted, so one set after init is told too.
- (qv::BlockedListModel &)model {
    if (_model == nullptr) {
        _model =
            std::make_shared<qv::BlockedListModel>(qv::darwin::blockedUpdates(), qv::darwin::installedApps(), [] {});
    }
    return *_model;
}

- (void)tellDelegateOfDeletion {
    id<QVBlockedUpdatesViewControllerDelegate> delegate = self.delegate;
    if ([delegate respondsToSelector:@selector(hiddenUpdatesDidDeleteUpdate)]) {
        [delegate hiddenUpdatesDidDeleteUpdate];
    }
}

- (NSArray *)blockedItems {
    NSMutableArray *keys = [NSMutableArray arrayWithCapacity:[self model].rowCount()];
    for (const qv::Value &key : [self model].keys()) {
        [keys addObject:qv::darwin::objectFromValue(key)];
    }
    return keys;
}

- (void)viewDidLoad {
    [super viewDidLoad];
    [self.tableView registerClass:QVAppCell.class
           forCellReuseIdentifier:qv::darwin::toNSString(qv::kAppCellIdentifier)];
    self.title = qv::darwin::toNSString([self model].title());
    [self showEditButton];
    // Pushed, the screen goes back with the navigation bar; presented on its own, it needs a way out.
    if (self.navigationController.viewControllers.firstObject == self) {
        self.navigationItem.leftBarButtonItem =
            [[UIBarButtonItem alloc] initWithBarButtonSystemItem:UIBarButtonSystemItemDone
                                                          target:self
                                                          action:@selector(done:)];
    }
}

- (void)viewWillAppear:(BOOL)animated {
    [super viewWillAppear:animated];
    [self hideBackTitles];
}

- (void)viewDidAppear:(BOOL)animated {
    [super viewDidAppear:animated];
    [self hideBackTitles];
    self.navigationItem.backBarButtonItem.title = @"";
}

- (void)hideBackTitles {
    hideBackTitle(self.navigationController.navigationItem.backBarButtonItem);
    hideBackTitle(self.navigationItem.backBarButtonItem);
}

- (void)showEditButton {
    const UIBarButtonSystemItem item = [self model].editing() ? UIBarButtonSystemItemDone : UIBarButtonSystemItemEdit;
    self.navigationItem.rightBarButtonItem =
        [[UIBarButtonItem alloc] initWithBarButtonSystemItem:item target:self action:@selector(toggleEditing:)];
}

- (void)toggleEditing:(id)sender {
    [self model].toggleEditing();
    [self.tableView setEditing:[self model].editing() animated:YES];
    [self showEditButton];
}

- (void)done:(id)sender {
    [self dismissViewControllerAnimated:YES completion:nil];
}

- (NSInteger)numberOfSectionsInTableView:(UITableView *)tableView {
    return 1;
}

- (NSInteger)tableView:(UITableView *)tableView numberOfRowsInSection:(NSInteger)section {
    return static_cast<NSInteger>([self model].rowCount());
}

- (CGFloat)tableView:(UITableView *)tableView heightForRowAtIndexPath:(NSIndexPath *)indexPath {
    return qv::kBlockedRowHeight;
}

- (UITableViewCell *)tableView:(UITableView *)tableView cellForRowAtIndexPath:(NSIndexPath *)indexPath {
    UITableViewCell *cell = [tableView dequeueReusableCellWithIdentifier:qv::darwin::toNSString(qv::kAppCellIdentifier)
                                                            forIndexPath:indexPath];
    qv::darwin::guarded([&] {
        const qv::BlockedListModel::Row row = [self model].row(static_cast<std::size_t>(indexPath.row));
        cell.imageView.image = qv::darwin::applicationIcon(qv::darwin::toNSString(row.iconBundleIdentifier));
        cell.textLabel.text = qv::darwin::toNSString(row.title);
        cell.detailTextLabel.text = qv::darwin::toNSString(row.detail);
    });
    return cell;
}

- (BOOL)tableView:(UITableView *)tableView canEditRowAtIndexPath:(NSIndexPath *)indexPath {
    return YES;
}

- (void)tableView:(UITableView *)tableView
    commitEditingStyle:(UITableViewCellEditingStyle)editingStyle
     forRowAtIndexPath:(NSIndexPath *)indexPath {
    if (editingStyle != UITableViewCellEditingStyleDelete) {
        return;
    }
    qv::darwin::guarded([&] {
        const auto row = static_cast<std::size_t>(indexPath.row);
        if (row >= [self model].rowCount()) {
            return;
        }
        [tableView beginUpdates];
        // A failed save keeps the record in the file; the row goes all the same, and the next screen shows it again.
        static_cast<void>([self model].deleteRow(row));
        [tableView deleteRowsAtIndexPaths:@[ indexPath ] withRowAnimation:UITableViewRowAnimationAutomatic];
        [tableView endUpdates];
        [self tellDelegateOfDeletion];
    });
}

@end

namespace qv::darwin {

UIViewController *makeBlockedUpdatesScreen(std::shared_ptr<BlockedListModel> model) {
    return [[QVBlockedUpdatesViewController alloc] initWithModel:std::move(model)];
}

} // namespace qv::darwin
