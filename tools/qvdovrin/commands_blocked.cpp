// Blocked-updates commands: blocked list/add/remove/check/merge/review over a blocked-updates archive file.
#include "commands.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/text.h"
#include "platform/installed_apps.h"
#include "posix/archive_file_posix.h"
#include "posix/file_io.h"
#include "posix/json_file.h"
#include "updates/blocked_list_model.h"
#include "updates/blocked_updates.h"

namespace qvdovrin {

namespace {

// A system whose update records keep their version inside their offers.
constexpr double kDefaultCoreFoundationVersion = 1665.15;

struct ListOptions {
    std::string file;
    bool json = false;
    double coreFoundationVersion = kDefaultCoreFoundationVersion;
};

struct AddOptions {
    std::string file;
    std::string key;
    std::string version;
    bool all = false;
    double coreFoundationVersion = kDefaultCoreFoundationVersion;
};

struct RemoveOptions {
    std::string file;
    std::string key;
    double coreFoundationVersion = kDefaultCoreFoundationVersion;
};

// check and merge take the same options: the blocked-updates file and a JSON file of updates from a system of the
// given version.
struct UpdatesOptions {
    std::string file;
    std::string updatesFile;
    double coreFoundationVersion = kDefaultCoreFoundationVersion;
};
using CheckOptions = UpdatesOptions;
using MergeOptions = UpdatesOptions;

struct ReviewOptions {
    std::string file;
    std::string appsFile;
};

// Says what the store posted; the terminal has no daemon or update screens to tell.
class PrintingNotifier : public qv::Notifier {
  public:
    explicit PrintingNotifier(std::ostream *out = nullptr) : out_(out) {}
    void postSystemWide(const std::string &name) override { say(name + " (system-wide)"); }
    void postLocal(const std::string &name) override { say(name + " (this process)"); }

  private:
    void say(const std::string &text) {
        if (out_ != nullptr) {
            *out_ << "posted " << text << "\n";
        }
    }
    std::ostream *out_;
};

// On a terminal, a wait for another process's lock shows, so the command does not seem to hang.
void sayWaiting(const std::string &lockPath, Io &io) {
    if (::isatty(STDERR_FILENO) == 1) {
        io.err << "waiting for another process to release " << lockPath << "..." << std::endl;
    }
}

// A command that changes the file holds its change lock from before it reads the records until it has written
// them, so that commands running side by side never drop each other's records. `refusal` starts the error line.
qv::posix::FileChangeLock changeLock(const std::string &path, const std::string &refusal, Io &io) {
    auto lock = qv::posix::FileChangeLock::acquire(path, qv::posix::FileChangeLock::kDefaultWait,
                                                   [&io](const std::string &lockPath) { sayWaiting(lockPath, io); });
    if (!lock) {
        throw BadInput(refusal + ": " + lock.error().describe());
    }
    return std::move(*lock);
}

// The store over one file, opened only after the file is known to be usable, so a corrupt file is never rewritten.
class OpenedStore {
  public:
    OpenedStore(const std::string &path, bool createIfMissing, double coreFoundationVersion,
                std::ostream *notices = nullptr)
        : notifier_(notices) {
        std::error_code ignored;
        const bool missing = !std::filesystem::exists(path, ignored);
        if (!(missing && createIfMissing)) {
            const qv::Result<qv::Value> loaded = file_.load(path);
            if (!loaded) {
                throw BadInput(loaded.error().describe());
            }
            if (loaded->asDictionary() == nullptr) {
                throw BadInput(path + ": the archive holds no dictionary of blocked updates");
            }
        }
        store_ = std::make_unique<qv::BlockedUpdates>(qv::BlockedUpdates::Environment{
            &file_, &notifier_, [path] { return std::optional<std::string>(path); }, coreFoundationVersion});
    }

    qv::BlockedUpdates &store() { return *store_; }

  private:
    qv::posix::PosixArchiveFile file_;
    PrintingNotifier notifier_;
    std::unique_ptr<qv::BlockedUpdates> store_;
};

// All digits: a store item identifier (a 64-bit integer); anything else: a bundle identifier.
qv::Value parseKey(const std::string &text) {
    if (text.empty()) {
        throw BadInput("KEY must not be empty");
    }
    const auto identifier = qv::strictInteger(text);
    if (!identifier && identifier.error().code == qv::ErrorCode::IntegerOutOfRange) {
        throw BadInput("store item identifier " + text + " is too large (at most 9223372036854775807)");
    }
    return identifier ? qv::Value(static_cast<long long>(*identifier)) : qv::Value(text);
}

std::string keyText(const qv::Value &key) {
    if (const auto *text = key.asString()) {
        return *text;
    }
    if (const auto *integer = key.asInteger()) {
        return std::to_string(*integer);
    }
    return qv::toJson(key);
}

void listRecords(const ListOptions &options, Io &io) {
    OpenedStore opened(options.file, false, options.coreFoundationVersion);
    const qv::Dictionary records = opened.store().snapshot();
    qv::Array rows;
    for (const auto &[key, record] : records) {
        const qv::Dictionary *fields = record.asDictionary();
        const qv::Value *version = fields ? fields->find(qv::Value(qv::kBlockedVersionKey)) : nullptr;
        const bool allUpdates = qv::recordBlocksAllUpdates(record);
        if (options.json) {
            rows.push_back(qv::Value(qv::Dictionary{
                {"key", key}, {"version", version ? *version : qv::Value()}, {"all", qv::Value(allUpdates)}}));
            continue;
        }
        const std::string versionText =
            version == nullptr ? "(none)" : (version->asString() ? *version->asString() : qv::toJson(*version));
        io.out << keyText(key) << "  version: " << (versionText.empty() ? "\"\"" : versionText)
               << "  all: " << (allUpdates ? "yes" : "no") << "\n";
    }
    if (options.json) {
        io.out << qv::toJson(qv::Value(rows)) << "\n";
    } else if (records.empty()) {
        io.out << "no blocked updates\n";
    }
}

void addRecord(const AddOptions &options, Io &io) {
    const qv::Value key = parseKey(options.key);
    const qv::posix::FileChangeLock lock = changeLock(options.file, "nothing was blocked", io);
    OpenedStore opened(options.file, true, options.coreFoundationVersion);
    const auto saved = opened.store().saveRecord(key, qv::BlockedUpdates::makeRecord(options.version, options.all));
    if (!saved) {
        throw BadInput("nothing was blocked: " + saved.error().describe());
    }
    io.out << "blocked " << keyText(key) << (options.all ? " (all updates)" : " version \"" + options.version + "\"")
           << "\n";
}

void removeRecord(const RemoveOptions &options, Io &io) {
    const qv::Value key = parseKey(options.key);
    const qv::posix::FileChangeLock lock = changeLock(options.file, "nothing was unblocked", io);
    OpenedStore opened(options.file, false, options.coreFoundationVersion);
    const bool present = opened.store().snapshot().contains(key);
    const auto saved = opened.store().unblockUpdate(key);
    if (!saved) {
        throw BadInput("nothing was unblocked: " + saved.error().describe());
    }
    io.out << (present ? "unblocked " : "was not blocked: ") << keyText(key) << "\n";
}

void checkUpdate(const CheckOptions &options, Io &io) {
    const qv::Value update = valueOrBadInput(qv::posix::readJsonFile(options.updatesFile));
    if (update.asDictionary() == nullptr) {
        throw BadInput(options.updatesFile + ": expected one update dictionary");
    }
    OpenedStore opened(options.file, false, options.coreFoundationVersion);
    io.out << (opened.store().updateBlocked(update) ? "blocked" : "not blocked") << "\n";
}

void mergeUpdates(const MergeOptions &options, Io &io) {
    const qv::Value updates = valueOrBadInput(qv::posix::readJsonFile(options.updatesFile));
    if (updates.asArray() == nullptr) {
        throw BadInput(options.updatesFile + ": expected an array of update dictionaries");
    }
    OpenedStore opened(options.file, false, options.coreFoundationVersion);
    std::int64_t count = 0;
    const auto kept = opened.store().mergeAvailableUpdates(updates.asArray()->items(), &count);
    qv::Array keptUpdates;
    for (const std::size_t position : kept) {
        keptUpdates.push_back((*updates.asArray())[position]);
    }
    io.out << qv::toJson(qv::Value(qv::Dictionary{{"updates", qv::Value(keptUpdates)}, {"count", qv::Value(count)}}))
           << "\n";
}

// The installed apps a phone would know, from a JSON array of {"bundleId", "itemId", "name", "shortVersion",
// "bundleVersion"}; without a file no app is installed.
class JsonInstalledApps : public qv::InstalledApps {
  public:
    explicit JsonInstalledApps(const std::string &path) {
        if (path.empty()) {
            return;
        }
        const qv::Value apps = valueOrBadInput(qv::posix::readJsonFile(path));
        if (apps.asArray() == nullptr) {
            throw BadInput(path + ": expected an array of apps");
        }
        apps_ = *apps.asArray();
    }

    std::optional<qv::InstalledApp> appForKey(const qv::Value &key) const override {
        const char *field = key.asString() != nullptr ? "bundleId" : "itemId";
        for (const qv::Value &app : apps_) {
            if (app[field] == key) {
                return qv::InstalledApp{text(app["bundleId"]).value_or(""), text(app["name"]).value_or(""),
                                        text(app["shortVersion"]), text(app["bundleVersion"])};
            }
        }
        return std::nullopt;
    }

  private:
    static std::optional<std::string> text(const qv::Value &value) {
        if (value.asString() != nullptr) {
            return *value.asString();
        }
        return std::nullopt;
    }
    qv::Array apps_;
};

void printReviewScreen(const qv::BlockedListModel &screen, Io &io) {
    io.out << screen.title() << "  [" << screen.editButtonTitle() << "]\n";
    if (screen.rowCount() == 0) {
        io.out << "  (no blocked updates)\n";
    }
    for (std::size_t index = 0; index < screen.rowCount(); ++index) {
        const qv::BlockedListModel::Row row = screen.row(index);
        io.out << "  " << index + 1 << ". " << (row.title.empty() ? keyText(screen.keys()[index]) : row.title);
        if (!row.iconBundleIdentifier.empty()) {
            io.out << " (" << row.iconBundleIdentifier << ")";
        }
        io.out << "\n     " << row.detail << "\n";
    }
}

// The blocked-updates screen in the terminal: "d N" deletes row N (unblocking it), "e" toggles Edit/Done,
// "q" or the end of input leaves.
void reviewRecords(const ReviewOptions &options, Io &io) {
    const JsonInstalledApps apps(options.appsFile);
    OpenedStore opened(options.file, true, kDefaultCoreFoundationVersion, &io.out);
    PrintingNotifier screens(&io.out);
    // The settings screen is the delegate on the phone: after each deletion it tells the update screens.
    const auto makeScreen = [&] {
        return std::make_unique<qv::BlockedListModel>(
            opened.store(), apps, [&screens] { screens.postLocal(std::string(qv::kReloadUpdatesNotification)); });
    };
    auto screen = makeScreen();
    printReviewScreen(*screen, io);
    std::string line;
    while (io.out << "> " << std::flush, std::getline(io.in, line)) {
        if (line == "q") {
            break;
        }
        if (line == "e") {
            screen->toggleEditing();
        } else if (line.size() > 2 && line.compare(0, 2, "d ") == 0 && qv::strictInteger(line.substr(2))) {
            const auto number = qv::strictInteger(line.substr(2), 1, static_cast<std::int64_t>(screen->rowCount()));
            if (!number) {
                io.out << "no row " << line.substr(2) << "\n";
                continue;
            }
            const std::string key = keyText(screen->keys()[static_cast<std::size_t>(*number - 1)]);
            // The screen stays open while others change the file: each deletion reads the records afresh under
            // the change lock, so it removes one record and keeps everything added meanwhile.
            const auto lock =
                qv::posix::FileChangeLock::acquire(options.file, qv::posix::FileChangeLock::kDefaultWait,
                                                   [&io](const std::string &lockPath) { sayWaiting(lockPath, io); });
            if (!lock) {
                io.out << "not saved: " << lock.error().describe() << "\n";
                continue;
            }
            opened.store().reloadBlockedUpdatesDict();
            const auto unblocked = screen->deleteRow(static_cast<std::size_t>(*number - 1));
            io.out << (unblocked ? "unblocked " + key : "not saved: " + unblocked.error().describe()) << "\n";
        } else {
            io.out << "commands: d N (delete row N), e (Edit/Done), q (quit)\n";
            continue;
        }
        // Drawn again from the file as it is now, so rows another process added or removed show as they are.
        const bool editing = screen->editing();
        opened.store().reloadBlockedUpdatesDict();
        screen = makeScreen();
        if (editing) {
            screen->toggleEditing();
        }
        printReviewScreen(*screen, io);
    }
    io.out << "\n";
}

} // namespace

void registerBlockedCommands(CLI::App &app, Io &io) {
    CLI::App *blocked = app.add_subcommand("blocked", "Read and change a blocked-updates file (a keyed archive)");
    blocked->require_subcommand(1);

    auto listOptions = std::make_shared<ListOptions>();
    CLI::App *list = blocked->add_subcommand("list", "Show the blocked updates: key, version, all");
    list->add_option("FILE", listOptions->file, "blocked-updates file")->required();
    list->add_flag("--json", listOptions->json, "print the records as JSON");
    list->callback([listOptions, &io] { listRecords(*listOptions, io); });

    auto addOptions = std::make_shared<AddOptions>();
    CLI::App *add = blocked->add_subcommand("add", "Block one version or all updates of an app (creates FILE)");
    add->add_option("FILE", addOptions->file, "blocked-updates file")->required();
    add->add_option("KEY", addOptions->key, "store item identifier (digits) or bundle identifier")->required();
    CLI::Option *version = add->add_option("--version", addOptions->version, "the version to block");
    CLI::Option *all = add->add_flag("--all", addOptions->all, "block every future update");
    version->excludes(all);
    add->callback([addOptions, &io] { addRecord(*addOptions, io); });

    auto removeOptions = std::make_shared<RemoveOptions>();
    CLI::App *remove = blocked->add_subcommand("remove", "Unblock an app");
    remove->add_option("FILE", removeOptions->file, "blocked-updates file")->required();
    remove->add_option("KEY", removeOptions->key, "store item identifier (digits) or bundle identifier")->required();
    remove->callback([removeOptions, &io] { removeRecord(*removeOptions, io); });

    auto checkOptions = std::make_shared<CheckOptions>();
    CLI::App *check = blocked->add_subcommand("check", "Say whether one update dictionary is blocked");
    check->add_option("FILE", checkOptions->file, "blocked-updates file")->required();
    check->add_option("UPDATE", checkOptions->updatesFile, "JSON file holding one update dictionary")->required();
    check
        ->add_option("--cf-version", checkOptions->coreFoundationVersion,
                     "CoreFoundation version of the system the update comes from")
        ->capture_default_str();
    check->callback([checkOptions, &io] { checkUpdate(*checkOptions, io); });

    auto mergeOptions = std::make_shared<MergeOptions>();
    CLI::App *merge = blocked->add_subcommand("merge", "Drop the blocked updates from an array of update dictionaries");
    merge->add_option("FILE", mergeOptions->file, "blocked-updates file")->required();
    merge->add_option("UPDATES", mergeOptions->updatesFile, "JSON file holding an array of update dictionaries")
        ->required();
    merge
        ->add_option("--cf-version", mergeOptions->coreFoundationVersion,
                     "CoreFoundation version of the system the updates come from")
        ->capture_default_str();
    merge->callback([mergeOptions, &io] { mergeUpdates(*mergeOptions, io); });

    auto reviewOptions = std::make_shared<ReviewOptions>();
    CLI::App *review = blocked->add_subcommand("review", "The blocked-updates screen: delete rows to unblock");
    review->add_option("FILE", reviewOptions->file, "blocked-updates file")->required();
    review->add_option("--apps", reviewOptions->appsFile, "JSON array of installed apps (names and versions)");
    review->callback([reviewOptions, &io] { reviewRecords(*reviewOptions, io); });
}

} // namespace qvdovrin
