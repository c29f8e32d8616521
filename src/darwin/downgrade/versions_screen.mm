// QVPossibleVersionsController: draws the "Known Versions" model as a table and forwards the user's taps to it.
#include "darwin/downgrade/versions_screen.h"

#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"

@interface QVPossibleVersionsController : UITableViewController
- (instancetype)initWithModel:(std::shared_ptr<qv::VersionsListModel>)model;
// For owners that make the screen by name: the versions of one app, the chosen identifier to completion (nil for
// a row without one), and cancel when the user leaves.
- (instancetype)initWithAppIdentifier:(NSString *)identifier;
- (void)setCompletion:(void (^)(NSString *))completion;
- (void)setCancel:(void (^)(void))cancel;
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

- (void)setCompletion:(void (^)(NSString *))completion {
    _model->setCompletion([completion](std::optional<std::string> identifier) {
        if (completion != nil) {
            completion(identifier ? qv::darwin::toNSString(*identifier) : nil);
        }
    });
}

- (void)setCancel:(void (^)(void))cancel {
    _model->setCancel([cancel] {
        if (cancel != nil) {
            cancel();
        }
    });
}

- (void)viewDidLoad {
    [super viewDidLoad];
    self.title = qv::darwin::toNSString(_model->title());
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
    _model->setOnChange([weakSelf] { [weakSelf modelChanged]; });
}

- (void)viewWillAppear:(BOOL)animated {
    [super viewWillAppear:animated];
    qv::darwin::ui().recordScreen(*_model, self.navigationController ?: self);
}

- (void)viewDidAppear:(BOOL)animated {
    [super viewDidAppear:animated];
    qv::darwin::guarded([&] { _model->appeared(); });
    [self showRefreshing];
}

- (void)modelChanged {
    [self.tableView reloadData];
    [self showRefreshing];
}

- (void)showRefreshing {
    if (_model->refreshing() && !self.refreshControl.refreshing) {
        [self.refreshControl beginRefreshing];
    } else if (!_model->refreshing() && self.refreshControl.refreshing) {
        [self.refreshControl endRefreshing];
    }
}

- (void)getLatestVersions {
    qv::darwin::guarded([&] { _model->refresh(); });
}

- (void)done:(id)sender {
    qv::darwin::guarded([&] { _model->leave(); });
}

- (void)showCustomVersionIdentifierAlert:(id)sender {
    qv::darwin::guarded([&] { _model->typeVersion(); });
}

- (NSInteger)numberOfSectionsInTableView:(UITableView *)tableView {
    return 1;
}

- (NSInteger)tableView:(UITableView *)tableView numberOfRowsInSection:(NSInteger)section {
    return static_cast<NSInteger>(_model->rows().size());
}

- (UITableViewCell *)tableView:(UITableView *)tableView cellForRowAtIndexPath:(NSIndexPath *)indexPath {
    NSString *identifier = qv::darwin::toNSString(qv::kVersionCellIdentifier);
    UITableViewCell *cell = [tableView dequeueReusableCellWithIdentifier:identifier];
    if (cell == nil) {
        cell = [[UITableViewCell alloc] initWithStyle:UITableViewCellStyleSubtitle reuseIdentifier:identifier];
    }
    const auto &rows = _model->rows();
    const auto row = static_cast<std::size_t>(indexPath.row);
    if (row < rows.size()) {
        cell.textLabel.text = qv::darwin::toNSString(rows[row].text);
        cell.detailTextLabel.text = qv::darwin::toNSString(rows[row].detailText);
    }
    return cell;
}

- (void)tableView:(UITableView *)tableView didSelectRowAtIndexPath:(NSIndexPath *)indexPath {
    [tableView deselectRowAtIndexPath:indexPath animated:YES];
    qv::darwin::guarded([&] { _model->chooseRow(static_cast<std::size_t>(indexPath.row)); });
}

@end

namespace qv::darwin {

UIViewController *makeVersionsScreen(std::shared_ptr<VersionsListModel> model) {
    return [[QVPossibleVersionsController alloc] initWithModel:std::move(model)];
}

} // namespace qv::darwin
