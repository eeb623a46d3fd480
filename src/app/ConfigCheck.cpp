#include "app/ConfigCheck.h"

#include <map>
#include <string_view>

#include "app/SettingKeys.h"
#include "meta/ClientId.h"

namespace vorrim {

namespace {

constexpr std::size_t kNameWidth = 23;
constexpr std::size_t kValueWidth = 28;

// Loading has nothing to say that the report does not say better.
class Silence final : public Output {
public:
    void vprintLine(const char*, va_list) override {}
};

class Listing {
public:
    Listing(const IniFile& ini, const ServerSettings& settings) : ini_(ini), settings_(settings) {
        std::size_t number = 0;
        for (const IniFile::Line& line : ini.lines()) {
            ++number;
            if (line.section == ServerSettings::kSection && !line.text.empty())
                lines_.try_emplace(IniFile::split(line.text).key, number);
        }
    }

    std::string run() {
        for (const SettingKey& key : kSettingKeys) {
            if (key.number != nullptr) {
                add(key.name, std::to_string(settings_.*key.number), lines_.contains(key.name));
            } else if (key.flag != nullptr) {
                add(key.name, settings_.*key.flag ? "true" : "false",
                    ini_.getBool(ServerSettings::kSection, key.name).has_value());
            } else if (key.kind == SettingKind::address) {
                add_address(key.name);
            } else if (key.kind == SettingKind::networks) {
                add(key.name, settings_.limitExempt.empty() ? "none" : settings_.limitExempt,
                    lines_.contains(key.name));
            } else if (key.kind == SettingKind::row) {
                add_row(key.name);
            } else {
                add_text(key.name);
            }
        }
        return std::move(text_);
    }

private:
    // `from_file`: the value is the one of the key's line, not the default.
    void add(std::string_view name, std::string value, bool from_file,
             std::string_view otherwise = "default") {
        std::string line = "  " + std::string(name);
        line.resize(std::max(line.size(), kNameWidth), ' ');
        line += " = " + value;
        line.resize(std::max(line.size(), kNameWidth + kValueWidth), ' ');
        const auto place = lines_.find(name);
        line += from_file && place != lines_.end()
                    ? "  (line " + std::to_string(place->second) + ")"
                    : "  (" + std::string(otherwise) + ")";
        text_ += line + '\n';
    }

    void add_address(std::string_view name) {
        const bool given = lines_.contains(name);
        if (name == SettingName::thisIP) {
            add(name, ipToText(settings_.thisIP), given,
                lines_.empty() ? "default" : "this host's first address");
        } else if (name == SettingName::adminBind) {
            add(name, settings_.adminBind == 0 ? "all" : ipToText(settings_.adminBind), given);
        } else {
            add(name, given ? ipToText(textToIp(*settings_.seedIP)) : "none", given);
        }
    }

    void add_text(std::string_view name) {
        const auto value = ini_.getString(ServerSettings::kSection, name);
        if (!value) {
            add(name, "none", false);
        } else if (name == SettingName::adminPass) {
            // The report may be shown to others.
            add(name, "(not shown)", true);
        } else {
            add(name, '"' + std::string(*value) + '"', true);
        }
    }

    void add_row(std::string_view name) {
        if (name == SettingName::welcome) {
            settings_.welcome.for_each([&, n = -1](const std::string& line) mutable {
                add(n < 0 ? std::string(name) : IniFile::indexedKey(name, n), '"' + line + '"',
                    n >= 0, "always first");
                ++n;
            });
            return;
        }
        std::int32_t n = 0;
        while (const auto value = ini_.getIndexed(ServerSettings::kSection, name, n)) {
            add(IniFile::indexedKey(name, n), '"' + std::string(*value) + '"', true);
            ++n;
        }
        if (n == 0) add(name, "none", false);
    }

    const IniFile& ini_;
    const ServerSettings& settings_;
    std::map<std::string_view, std::size_t> lines_;  // key to line
    std::string text_;
};

}  // namespace

ConfigReport checkConfig(const std::string& file_name, MissingFile missing,
                         const ServerSettings::LocalAddress& local_address) {
    IniFile ini;
    const bool opened = ini.open(file_name);
    std::vector<ConfigProblem> problems;
    if (opened) {
        problems = findProblems(ini);
    } else if (missing == MissingFile::is_a_problem) {
        problems.push_back({0, "cannot be read: the defaults would apply"});
    }

    ServerSettings settings;
    Silence silence;
    const LoadedSettings loaded = settings.load(file_name, silence, local_address);
    std::string text = file_name + (opened ? "" : " (cannot be read: defaults)") + '\n' +
                       Listing(ini, settings).run();
    for (const ConfigProblem& problem : problems) {
        text += file_name;
        if (problem.line != 0) text += ':' + std::to_string(problem.line);
        text += ": " + problem.text + '\n';
    }
    if (problems.empty()) {
        text += "no problem\n";
    } else {
        text +=
            std::to_string(problems.size()) + (problems.size() == 1 ? " problem\n" : " problems\n");
    }
    return {std::move(text), problems.empty()};
}

}  // namespace vorrim
