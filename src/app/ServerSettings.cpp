#include "app/ServerSettings.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "app/FilterExpressions.h"
#include "app/SettingKeys.h"
#include "base/file/primitives.h"
#include "meta/ClientId.h"
#include "meta/Opcodes.h"

namespace vorrim {

namespace {

// Calls `take` with the values of key[0], key[1] and so on, up to the first that is missing.
template <class Take>
void read_row(const IniFile& ini, std::string_view key, Take take) {
    for (std::int32_t n = 0;; ++n) {
        const auto value = ini.getIndexed(ServerSettings::kSection, key, n);
        if (!value) return;
        take(*value);
    }
}

void read_filters(const IniFile& ini, Output& output, std::vector<Search>& filters) {
    read_row(ini, SettingName::filter, [&](std::string_view text) {
        if (auto filter = parseFilter(text)) {
            filters.push_back(std::move(*filter));
        } else {
            output.printLine("Bad filter: %.*s", static_cast<int>(text.size()), text.data());
        }
    });
}

}  // namespace

ServerSettings::ServerSettings() {
    setPort(clientPort());
}

std::uint32_t ServerSettings::bindAddress(std::string_view text) noexcept {
    constexpr std::string_view kAll = "0.0.0.0";
    const std::uint32_t address = textToIp(text);
    return address != 0 || text == kAll ? address : textToIp("127.0.0.1");
}

std::uint16_t ServerSettings::clientPort() const noexcept {
    return static_cast<std::uint16_t>(port);
}

std::uint16_t ServerSettings::datagramPort() const noexcept {
    return static_cast<std::uint16_t>(clientPort() + kDatagramPortOffset);
}

std::uint16_t ServerSettings::administrationPort() const noexcept {
    return static_cast<std::uint16_t>(adminPort);
}

LoadedSettings ServerSettings::load(const std::string& file_name, Output& output,
                                    const LocalAddress& local_address) {
    LoadedSettings loaded;
    std::error_code gone;
    output.printLine("currentDir=%s", std::filesystem::current_path(gone).c_str());
    IniFile ini;
    if (ini.open(file_name)) {
        apply(ini, output, local_address, loaded);
    } else {
        output.printLine("Couldn't open %s (using defaults) \n", file_name.c_str());
    }
    welcome.insert_front(versionLine());
    return loaded;
}

std::string ServerSettings::versionLine() const {
    return "server version " + std::to_string(kVersionMajor) + "." + std::to_string(versionMinor);
}

std::optional<ChangeableSettings> ServerSettings::readAgain(const std::string& file_name,
                                                            Output& output) const {
    IniFile ini;
    if (!ini.open(file_name)) return std::nullopt;
    ChangeableSettings read{{versionLine()}, {}};
    read_row(ini, SettingName::welcome,
             [&](std::string_view line) { read.welcome.emplace_back(line); });
    read_filters(ini, output, read.filters);
    return read;
}

void ServerSettings::apply(const IniFile& ini, Output& output, const LocalAddress& local_address,
                           LoadedSettings& loaded) {
    for (const SettingKey& key : kSettingKeys) {
        if (key.number != nullptr)
            this->*key.number = ini.getInt(kSection, key.name).value_or(this->*key.number);
        if (key.flag != nullptr)
            this->*key.flag = ini.getBool(kSection, key.name).value_or(this->*key.flag);
    }
    output.set_verbose(verbose);
    if (tableSize < 1) {
        output.printLine("tableSize is %d, using 1", tableSize);
        tableSize = 1;
    }

    // With a file the record has both tags, if only with empty texts, and as much of a text as a
    // record can carry.
    setName(writable_part(ini.getString(kSection, SettingName::name).value_or("")));
    setDescription(ini.getString(kSection, SettingName::desc).value_or(""));
    setPort(clientPort());
    const auto address = ini.getString(kSection, SettingName::thisIP);
    thisIP = address ? textToIp(*address) : local_address();
    setId(thisIP);
    if (const auto seed = ini.getString(kSection, SettingName::seedIP)) seedIP = *seed;
    if (const auto bind = ini.getString(kSection, SettingName::adminBind))
        adminBind = bindAddress(*bind);
    if (const auto networks = ini.getString(kSection, SettingName::limitExempt)) {
        limitExempt = *networks;
        NetworkList().add_all(*networks, [&](std::string_view text) {
            output.printLine("limitExempt: \"%.*s\" is no network and passed over",
                             static_cast<int>(text.size()), text.data());
        });
    }

    read_row(ini, SettingName::welcome, [&](std::string_view line) { welcome.append(line); });
    read_row(ini, SettingName::room,
             [&](std::string_view room) { loaded.rooms.emplace_back(room); });
    read_filters(ini, output, loaded.filters);

    const auto admin = ini.getString(kSection, SettingName::adminName);
    const auto password = ini.getString(kSection, SettingName::adminPass);
    if (admin && password) loaded.administrator = {std::string(*admin), std::string(*password)};
}

void ServerSettings::setDescription(std::string_view text) {
    desc = text;
    setTagById(TagId::Description, TagText(writable_part(text)));
}

}  // namespace vorrim
