// Settings command: settings list/get/set over a preferences property list, with the factory defaults beneath.
#include "commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/json.h"
#include "posix/plist_preferences.h"
#include "settings/settings_model.h"

namespace qvdovrin {

namespace {

struct SettingsOptions {
    std::string prefsFile{qv::posix::kPreferencesFileName};
    std::string defaultsFile{QV_DEFAULT_PREFERENCES_FILE};
    bool json = false;
    std::string key;
    std::string value;
};

// Remembers what the model posted, so the command can say it; the terminal has no daemon to tell.
class RecordingNotifier : public qv::Notifier {
  public:
    void postSystemWide(const std::string &name) override { posted.push_back(name + " (system-wide)"); }
    void postLocal(const std::string &name) override { posted.push_back(name + " (this process)"); }
    std::vector<std::string> posted;
};

// The property name, or the stored key with its suffix; anything else is not a setting.
qv::Setting parseSetting(const std::string &text) {
    std::string name = text;
    const std::string suffix(qv::kStoredKeySuffix);
    if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
        name.resize(name.size() - suffix.size());
    }
    const auto setting = qv::settingNamed(name);
    if (!setting) {
        throw BadInput("unknown setting \"" + text +
                       "\"; the settings are enableDowngradeOptions, "
                       "longPressToShowDowngradeOptions, holdToDowngradeTipsShown, disableAppCaching, "
                       "disableUpdateBlocker");
    }
    return *setting;
}

bool parseSwitch(const std::string &text) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    if (lower == "on" || lower == "true" || lower == "yes" || lower == "1") {
        return true;
    }
    if (lower == "off" || lower == "false" || lower == "no" || lower == "0") {
        return false;
    }
    throw BadInput("bad value \"" + text + "\": expected on or off");
}

const char *onOff(bool on) {
    return on ? "on" : "off";
}

// The preferences file (never written unless a change is made) with the factory defaults registered beneath.
// A defaults file that cannot be read leaves every setting off, as on the phone.
class OpenedSettings {
  public:
    OpenedSettings(const SettingsOptions &options, Io &io)
        : preferences_(valueOrBadInput(qv::posix::PlistPreferences::open(options.prefsFile))) {
        const auto defaults = qv::posix::readPropertyListDictionaryFile(options.defaultsFile);
        if (!defaults) {
            io.err << "qvdovrin: no factory defaults (" << defaults.error().describe()
                   << "); settings default to off\n";
        }
        qv::registerFactoryDefaults(*preferences_, defaults);
        model_ = std::make_unique<qv::SettingsModel>(*preferences_, notifier_);
    }

    qv::SettingsModel &model() { return *model_; }
    const std::vector<std::string> &posted() const { return notifier_.posted; }

  private:
    std::unique_ptr<qv::posix::PlistPreferences> preferences_;
    RecordingNotifier notifier_;
    std::unique_ptr<qv::SettingsModel> model_;
};

void listSettings(const SettingsOptions &options, Io &io) {
    OpenedSettings opened(options, io);
    qv::Dictionary values;
    for (const qv::Setting setting : qv::kAllSettings) {
        const bool on = opened.model().value(setting);
        values.set(qv::Value(qv::settingName(setting)), qv::Value(on));
        if (!options.json) {
            io.out << qv::settingName(setting) << "  " << onOff(on) << "\n";
        }
    }
    if (options.json) {
        io.out << qv::toJson(qv::Value(values)) << "\n";
    }
}

void getSetting(const SettingsOptions &options, Io &io) {
    const qv::Setting setting = parseSetting(options.key);
    OpenedSettings opened(options, io);
    const bool on = opened.model().value(setting);
    if (options.json) {
        io.out << qv::toJson(qv::Value(qv::Dictionary{{qv::Value(qv::settingName(setting)), qv::Value(on)}})) << "\n";
    } else {
        io.out << onOff(on) << "\n";
    }
}

void setSetting(const SettingsOptions &options, Io &io) {
    const qv::Setting setting = parseSetting(options.key);
    const bool on = parseSwitch(options.value);
    OpenedSettings opened(options, io);
    const auto saved = opened.model().set(setting, on);
    if (!saved) {
        throw BadInput("not saved: " + saved.error().describe());
    }
    if (options.json) {
        qv::Array posted;
        for (const std::string &post : opened.posted()) {
            posted.push_back(qv::Value(post));
        }
        io.out << qv::toJson(qv::Value(qv::Dictionary{{"key", qv::Value(qv::settingName(setting))},
                                                      {"value", qv::Value(on)},
                                                      {"posted", qv::Value(posted)}}))
               << "\n";
        return;
    }
    io.out << qv::settingName(setting) << "  " << onOff(on) << "\n";
    for (const std::string &post : opened.posted()) {
        io.out << "posted " << post << "\n";
    }
}

} // namespace

void registerSettingsCommand(CLI::App &app, Io &io) {
    auto options = std::make_shared<SettingsOptions>();
    CLI::App *settings = app.add_subcommand("settings", "Read and change the settings in a preferences file");
    settings->require_subcommand(1);
    settings->add_option("--prefs", options->prefsFile, "preferences property list (created by set)")
        ->capture_default_str();
    settings->add_option("--defaults", options->defaultsFile, "factory defaults property list")->capture_default_str();

    CLI::App *list = settings->add_subcommand("list", "Show every setting, on or off");
    list->add_flag("--json", options->json, "print JSON");
    list->callback([options, &io] { listSettings(*options, io); });

    CLI::App *get = settings->add_subcommand("get", "Show one setting");
    get->add_option("KEY", options->key, "setting name")->required();
    get->add_flag("--json", options->json, "print JSON");
    get->callback([options, &io] { getSetting(*options, io); });

    CLI::App *set = settings->add_subcommand("set", "Change one setting and save the file");
    set->add_option("KEY", options->key, "setting name")->required();
    set->add_option("VALUE", options->value, "on or off")->required();
    set->add_flag("--json", options->json, "print JSON");
    set->callback([options, &io] { setSetting(*options, io); });
}

} // namespace qvdovrin
