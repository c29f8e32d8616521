// QVPPSettingsViewController: draws the settings form as a grouped table and hands switches and taps to the model.
#include "darwin/settings/settings_screen.h"

#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/service/resources.h"

#import <MessageUI/MessageUI.h>

using qv::darwin::guarded;
using qv::darwin::toNSString;

namespace {

// A switch knows its row by its tag: the section in the high half, the row in the low half.
constexpr NSInteger kRowBits = 16;

NSInteger switchTag(NSIndexPath *indexPath) {
    return (indexPath.section << kRowBits) | indexPath.row;
}

std::pair<std::size_t, std::size_t> rowOfTag(NSInteger tag) {
    return {static_cast<std::size_t>(tag >> kRowBits),
            static_cast<std::size_t>(tag & ((NSInteger{1} << kRowBits) - 1))};
}

} // namespace

#ifndef QV_SUPPORT_EMAIL
#define QV_SUPPORT_EMAIL "support@quorvane.com"
#endif

@interface QVPPSettingsViewController : UITableViewController <MFMailComposeViewControllerDelegate, UITextFieldDelegate>
// The one settings screen, over the process's settings form; each presentation wraps it anew.
+ (instancetype)sharedInstance;
- (instancetype)initWithModel:(std::shared_ptr<qv::SettingsFormModel>)model;
- (id)formController;
- (void)dismiss;
- (void)resetForm;
- (void)didTapBlockedUpdates:(id)sender;
- (void)hiddenUpdatesDidDeleteUpdate;
@end

@implementation QVPPSettingsViewController {
    std::shared_ptr<qv::SettingsFormModel> _model;
}

+ (instancetype)sharedInstance {
    static QVPPSettingsViewController *shared = nil;
    static dispatch_once_t once;
    dispatch_once(&once, ^{
      shared = [[QVPPSettingsViewController alloc] initWithModel:qv::darwin::settingsForm()];
    });
    return shared;
}

- (instancetype)initWithModel:(std::shared_ptr<qv::SettingsFormModel>)model {
    if ((self = [super initWithStyle:UITableViewStyleGrouped])) {
        _model = std::move(model);
    }
    return self;
}

// Whatever initialiser made the screen, it shows the process's settings form.
- (qv::SettingsFormModel &)model {
    if (_model == nullptr) {
        _model = qv::darwin::settingsForm();
    }
    return *_model;
}

// The screen draws its form itself, so it is its own form controller.
- (id)formController {
    return self;
}

- (void)resetForm {
    guarded([&] { [self model].appeared(); });
    [self.tableView reloadData];
}

- (void)didTapBlockedUpdates:(id)sender {
    guarded([&] {
        const auto &sections = [self model].sections();
        for (std::size_t section = 0; section < sections.size(); ++section) {
            for (std::size_t row = 0; row < sections[section].rows.size(); ++row) {
                if (sections[section].rows[row].action == qv::kBlockedUpdatesAction) {
                    [self model].tapRow(section, row);
                    return;
                }
            }
        }
    });
}

- (void)hiddenUpdatesDidDeleteUpdate {
    guarded([&] { [self model].hiddenUpdatesDidDeleteUpdate(); });
}

- (void)viewDidLoad {
    [super viewDidLoad];
    UIButton *share = [UIButton buttonWithType:UIButtonTypeCustom];
    share.frame = CGRectMake(0, 0, 21, 20);
    [share setBackgroundImage:[[UIImage qv_imageNamed:@"share.png"]
                                  imageWithRenderingMode:UIImageRenderingModeAlwaysOriginal]
                     forState:UIControlStateNormal];
    share.tintColor = UIColor.whiteColor;
    [share addTarget:self action:@selector(tweetMe) forControlEvents:UIControlEventTouchUpInside];
    self.navigationItem.rightBarButtonItem = [[UIBarButtonItem alloc] initWithCustomView:share];
    self.tableView.tableFooterView =
        [[UIView alloc] initWithFrame:CGRectMake(0, 0, self.tableView.bounds.size.width, 60)];
    self.tableView.tableFooterView.backgroundColor = UIColor.clearColor;
}

- (void)viewWillAppear:(BOOL)animated {
    [super viewWillAppear:animated];
    UINavigationController *navigation = self.navigationController;
    // Shown at the bottom of a navigation stack of its own, the screen was presented and can be dismissed; pushed
    // onto someone else's, it keeps the back button.
    if (navigation == nil || navigation.viewControllers.firstObject == self) {
        self.navigationItem.leftBarButtonItem = [[UIBarButtonItem alloc] initWithTitle:toNSString(qv::kDismissTitle)
                                                                                 style:UIBarButtonItemStylePlain
                                                                                target:self
                                                                                action:@selector(dismiss)];
        qv::darwin::uikitUi().recordScreen([self model], navigation ?: self);
    }
    guarded([&] { [self model].appeared(); });
    self.title = toNSString([self model].title());
    [self.tableView reloadData];
}

- (void)viewWillDisappear:(BOOL)animated {
    [super viewWillDisappear:animated];
    guarded([&] { static_cast<void>([self model].disappearing()); });
    self.title = toNSString([self model].title());
}

- (void)dismiss {
    [self dismissViewControllerAnimated:YES completion:nil];
}

// The share button's action, and two observers' selectors that callers may name: answered, doing nothing.
- (void)tweetMe {
}

- (void)userLoginStatusChanged:(NSNotification *)notification {
}

- (void)paymentCompleteNotification:(NSNotification *)notification {
}

// Part of the screen, though no row or button of this form leads here.
- (void)userTappedTwitter:(id)sender {
    guarded([&] {
        UIApplication *application = UIApplication.sharedApplication;
        const std::string address = qv::makerProfileAddress([application](std::string_view scheme) {
            NSURL *url = [NSURL URLWithString:toNSString(scheme)];
            return url != nil && [application canOpenURL:url];
        });
        NSURL *url = [NSURL URLWithString:toNSString(address)];
        if (url != nil) {
            [application openURL:url options:@{} completionHandler:nil];
        }
    });
}

// Part of the screen, though no row or button of this form leads here.
- (void)userTappedEmail:(id)sender {
    guarded([&] {
        Class composerClass = NSClassFromString(@"MFMailComposeViewController");
        if (composerClass == nil || ![composerClass canSendMail]) {
            return;
        }
        MFMailComposeViewController *composer = [composerClass new];
        composer.mailComposeDelegate = self;
        [composer setToRecipients:@[ @QV_SUPPORT_EMAIL ]];
        [composer setSubject:toNSString(qv::kSupportMailSubject)];
        [self presentViewController:composer animated:YES completion:nil];
    });
}

- (void)mailComposeController:(MFMailComposeViewController *)controller
          didFinishWithResult:(MFMailComposeResult)result
                        error:(NSError *)error {
    [controller dismissViewControllerAnimated:YES completion:nil];
}

- (const qv::FormRow *)rowAt:(NSIndexPath *)indexPath {
    const auto &sections = [self model].sections();
    const auto section = static_cast<std::size_t>(indexPath.section);
    const auto row = static_cast<std::size_t>(indexPath.row);
    if (section >= sections.size() || row >= sections[section].rows.size()) {
        return nullptr;
    }
    return &sections[section].rows[row];
}

- (NSInteger)numberOfSectionsInTableView:(UITableView *)tableView {
    return static_cast<NSInteger>([self model].sections().size());
}

- (NSInteger)tableView:(UITableView *)tableView numberOfRowsInSection:(NSInteger)section {
    const auto &sections = [self model].sections();
    const auto index = static_cast<std::size_t>(section);
    return index < sections.size() ? static_cast<NSInteger>(sections[index].rows.size()) : 0;
}

- (NSString *)tableView:(UITableView *)tableView titleForHeaderInSection:(NSInteger)section {
    const auto &sections = [self model].sections();
    const auto index = static_cast<std::size_t>(section);
    return index < sections.size() ? toNSString(sections[index].header) : nil;
}

- (NSString *)tableView:(UITableView *)tableView titleForFooterInSection:(NSInteger)section {
    const auto &sections = [self model].sections();
    const auto index = static_cast<std::size_t>(section);
    return index < sections.size() && sections[index].footer ? toNSString(*sections[index].footer) : nil;
}

- (UITableViewCell *)tableView:(UITableView *)tableView cellForRowAtIndexPath:(NSIndexPath *)indexPath {
    UITableViewCell *cell = [[UITableViewCell alloc] initWithStyle:UITableViewCellStyleDefault reuseIdentifier:nil];
    const qv::FormRow *row = [self rowAt:indexPath];
    if (row == nullptr) {
        return cell;
    }
    cell.textLabel.text = toNSString(row->title);
    if (row->kind == qv::FormRow::Kind::Action) {
        cell.textLabel.textAlignment = NSTextAlignmentLeft;
        cell.accessoryType =
            row->disclosure ? UITableViewCellAccessoryDisclosureIndicator : UITableViewCellAccessoryNone;
        return cell;
    }
    if (row->kind == qv::FormRow::Kind::Text) {
        UITextField *field =
            [[UITextField alloc] initWithFrame:CGRectMake(0, 0, tableView.bounds.size.width * 0.6, 30)];
        field.text = toNSString(row->text);
        field.placeholder = toNSString(row->placeholder);
        field.textAlignment = NSTextAlignmentRight;
        field.keyboardType = UIKeyboardTypeURL;
        field.autocapitalizationType = UITextAutocapitalizationTypeNone;
        field.autocorrectionType = UITextAutocorrectionTypeNo;
        field.clearButtonMode = UITextFieldViewModeWhileEditing;
        field.returnKeyType = UIReturnKeyDone;
        field.delegate = self;
        field.tag = switchTag(indexPath);
        [field addTarget:self action:@selector(textEnded:) forControlEvents:UIControlEventEditingDidEnd];
        cell.accessoryView = field;
        cell.selectionStyle = UITableViewCellSelectionStyleNone;
        return cell;
    }
    UISwitch *toggle = [UISwitch new];
    toggle.on = row->on ? YES : NO;
    toggle.tag = switchTag(indexPath);
    [toggle addTarget:self action:@selector(switchChanged:) forControlEvents:UIControlEventValueChanged];
    cell.accessoryView = toggle;
    cell.selectionStyle = UITableViewCellSelectionStyleNone;
    return cell;
}

- (void)switchChanged:(UISwitch *)toggle {
    const auto where = rowOfTag(toggle.tag);
    guarded([&] { static_cast<void>([self model].setSwitch(where.first, where.second, toggle.on == YES)); });
}

- (BOOL)textFieldShouldReturn:(UITextField *)field {
    [field resignFirstResponder];
    return NO;
}

// The model keeps the text or refuses it with an alert; the row then shows what is kept.
- (void)textEnded:(UITextField *)field {
    const auto where = rowOfTag(field.tag);
    guarded([&] {
        static_cast<void>([self model].setText(where.first, where.second, qv::darwin::toStdStringOrEmpty(field.text)));
    });
    [self.tableView reloadData];
}

- (void)tableView:(UITableView *)tableView didSelectRowAtIndexPath:(NSIndexPath *)indexPath {
    [tableView deselectRowAtIndexPath:indexPath animated:YES];
    guarded([&] {
        [self model].tapRow(static_cast<std::size_t>(indexPath.section), static_cast<std::size_t>(indexPath.row));
    });
}

@end

namespace qv::darwin {

UIViewController *makeSettingsScreen(std::shared_ptr<SettingsFormModel> model) {
    // The one screen serves every presentation, unless it is on screen already (then a second one shows the form).
    QVPPSettingsViewController *shared = [QVPPSettingsViewController sharedInstance];
    if (model == settingsForm() && shared.viewIfLoaded.window == nil) {
        return shared;
    }
    return [[QVPPSettingsViewController alloc] initWithModel:std::move(model)];
}

} // namespace qv::darwin
