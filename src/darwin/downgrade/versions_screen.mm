// QVPossibleVersionsController: draws the "Known Versions" model as a table and forwards the user's taps to it.
#include "darwin/downgrade/versions_screen.h"

#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"

@interface QVPossibleVersionsController : UITableViewController <UIAdaptivePresentationControllerDelegate>
- (instancetype)initWithModel:(std::shared_ptr<qv::VersionsListModel>)model;
// For owners that make the screen by name: the versions of one app, the chosen identifier to completion (nil for
// a row without one), and cancel when the user leaves.
- (instancetype)initWithAppIdentifier:(NSString *)identifier;
- (NSString *)identifier;
- (void)setCompletion:(void (^)(NSString *))completion;
- (void)setCancel:(void (^)(void))cancel;
- (void)getLatestVersions;
- (void)done:(id)sender;
- (void)showCustomVersionIdentifierAlert:(id)sender;
- (void)dismissWithVersionIdentifier:(NSString *)identifier;
@end

@implementation QVPossibleVersionsController {
    std::shared_ptr<qv::VersionsListModel> _model;
}

- (instancetype)initWithModel:(std::shared_ptr<qv::VersionsListModel>)model {
    if ((self = [super initWithStyle:UITableViewStylePlain])) {
        _model = std::move(model);
    }
    return self;
}

- (instancetype)initWithAppIdentifier:(NSString *)identifier {
    return [self initWithModel:qv::darwin::downgradeFlows().makeVersionsList(
                                   qv::darwin::textForm(identifier).value_or("(null)"))];
}

// Whatever initialiser made the screen (init, initWithStyle:, a nib or a coder), it has a model: one for no app
// in particular, as the formatter names a nil identifier.
- (qv::VersionsListModel &)model {
    if (_model == nullptr) {
        _model = qv::darwin::downgradeFlows().makeVersionsList("(null)");
    }
    return *_model;
}

- (NSString *)identifier {
    return qv::darwin::toNSString([self model].storeIdentifier());
}

- (void)setCompletion:(void (^)(NSString *))completion {
    void (^kept)(NSString *) = [completion copy];
    [self model].setCompletion([kept](std::optional<std::string> identifier) {
        if (kept != nil) {
            kept(identifier ? qv::darwin::toNSString(*identifier) : nil);
        }
    });
}

- (void)setCancel:(void (^)(void))cancel {
    void (^kept)(void) = [cancel copy];
    [self model].setCancel([kept] {
        if (kept != nil) {
            kept();
        }
    });
}

- (void)viewDidLoad {
    [super viewDidLoad];
    self.title = qv::darwin::toNSString([self model].title());
    self.navigationItem.leftBarButtonItem =
        [[UIBarButtonItem alloc] initWithBarButtonSystemItem:UIBarButtonSystemItemCancel
                                                      target:self
                                                      action:@selector(done:)];
    self.navigationItem.rightBarButtonItem =
        [[UIBarButtonItem alloc] initWithBarButtonSystemItem:UIBarButtonSystemItemAdd
                                                      target:self
                                                      action:@selector(showCustomVersionIdentifierAlert:)];
    UIRefreshControl *refresh = [UIRefreshControl new];
    refresh.backgroundColor = UIColor.purpleColor;
    refresh.tintColor = UIColor.whiteColor;
    [refresh addTarget:self action:@selector(getLatestVersions) forControlEvents:UIControlEventValueChanged];
    self.refreshControl = refresh;

    __weak QVPossibleVersionsController *weakSelf = self;
    [self model].setOnChange([weakSelf] { [weakSelf modelChanged]; });
}

- (void)viewWillAppear:(BOOL)animated {
    [super viewWillAppear:animated];
    UIViewController *shown = self.navigationController ?: self;
    qv::darwin::uikitUi().recordScreen([self model], shown);
    // A screen an owner presented by itself is watched too: swiping it away must end it as cancel does.
    if (shown.presentationController.delegate == nil) {
        shown.presentationController.delegate = self;
    }
}

- (void)presentationControllerDidDismiss:(UIPresentationController *)presentationController {
    qv::darwin::guarded([&] { [self model].dismissedByUser(); });
}

- (void)dismissWithVersionIdentifier:(NSString *)identifier {
    qv::darwin::guarded([&] { [self model].choose(qv::darwin::toStdString(identifier)); });
}

- (void)viewDidAppear:(BOOL)animated {
    [super viewDidAppear:animated];
    qv::darwin::guarded([&] { [self model].appeared(); });
    [self showRefreshing];
}

- (void)modelChanged {
    [self.tableView reloadData];
    [self showRefreshing];
}

- (void)showRefreshing {
    if ([self model].refreshing() && !self.refreshControl.refreshing) {
        [self.refreshControl beginRefreshing];
    } else if (![self model].refreshing() && self.refreshControl.refreshing) {
        [self.refreshControl endRefreshing];
    }
}

- (void)getLatestVersions {
    qv::darwin::guarded([&] { [self model].refresh(); });
}

- (void)done:(id)sender {
    qv::darwin::guarded([&] { [self model].leave(); });
}

- (void)showCustomVersionIdentifierAlert:(id)sender {
    qv::darwin::guarded([&] { [self model].typeVersion(); });
}

- (NSInteger)numberOfSectionsInTableView:(UITableView *)tableView {
    return 1;
}

- (NSInteger)tableView:(UITableView *)tableView numberOfRowsInSection:(NSInteger)section {
    return static_cast<NSInteger>([self model].rows().size());
}

- (UITableViewCell *)tableView:(UITableView *)tableView cellForRowAtIndexPath:(NSIndexPath *)indexPath {
    NSString *identifier = qv::darwin::toNSString(qv::kVersionCellIdentifier);
    UITableViewCell *cell = [tableView dequeueReusableCellWithIdentifier:identifier];
    if (cell == nil) {
        cell = [[UITableViewCell alloc] initWithStyle:UITableViewCellStyleSubtitle reuseIdentifier:identifier];
    }
    const auto &rows = [self model].rows();
    const auto row = static_cast<std::size_t>(indexPath.row);
    if (row < rows.size()) {
        cell.textLabel.text = qv::darwin::toNSString(rows[row].text);
        cell.detailTextLabel.text = qv::darwin::toNSString(rows[row].detailText);
    }
    return cell;
}

- (void)tableView:(UITableView *)tableView didSelectRowAtIndexPath:(NSIndexPath *)indexPath {
    [tableView deselectRowAtIndexPath:indexPath animated:YES];
    qv::darwin::guarded([&] { [self model].chooseRow(static_cast<std::size_t>(indexPath.row)); });
}

@end

namespace qv::darwin {

UIViewController *makeVersionsScreen(std::shared_ptr<VersionsListModel> model) {
    return [[QVPossibleVersionsController alloc] initWithModel:std::move(model)];
}

} // namespace qv::darwin
