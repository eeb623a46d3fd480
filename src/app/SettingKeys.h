#pragma once
// The keys of the section "server", in the order of the documentation. The loader reads by this
// table and the checker judges by it.

#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

#include "app/ServerSettings.h"
#include "meta/Opcodes.h"

namespace vorrim {

enum class SettingKind { number, flag, text, address, networks, row };

// A number below `lowest` or above `highest` is taken as it is, but makes no sense.
struct SettingKey {
    std::string_view name;
    SettingKind kind;
    std::int32_t ServerSettings::*number = nullptr;
    std::int32_t lowest = 0;
    std::int32_t highest = 0;
    bool ServerSettings::*flag = nullptr;

    static constexpr SettingKey numeric(std::string_view name, std::int32_t ServerSettings::*field,
                                        std::int32_t lowest, std::int32_t highest) {
        return {name, SettingKind::number, field, lowest, highest, nullptr};
    }
    static constexpr SettingKey boolean(std::string_view name, bool ServerSettings::*field) {
        return {name, SettingKind::flag, nullptr, 0, 0, field};
    }
    static constexpr SettingKey other(std::string_view name, SettingKind kind) {
        return {name, kind, nullptr, 0, 0, nullptr};
    }
};

inline constexpr std::int32_t kHighestPort = 65535;
inline constexpr std::int32_t kHighestRate = 65535;  // of the requests a minute
// Workers beyond this only cost; the server makes no more.
inline constexpr std::int32_t kMostThreads = 1024;

namespace SettingName {
inline constexpr std::string_view name = "name";
inline constexpr std::string_view desc = "desc";
inline constexpr std::string_view thisIP = "thisIP";
inline constexpr std::string_view seedIP = "seedIP";
inline constexpr std::string_view adminBind = "adminBind";
inline constexpr std::string_view welcome = "welcome";
inline constexpr std::string_view room = "room";
inline constexpr std::string_view filter = "filter";
inline constexpr std::string_view adminName = "adminName";
inline constexpr std::string_view adminPass = "adminPass";
inline constexpr std::string_view limitExempt = "limitExempt";
}  // namespace SettingName

inline constexpr auto kSettingKeys = [] {
    using Key = SettingKey;
    constexpr std::int32_t kAny = std::numeric_limits<std::int32_t>::max();
    return std::array{
        Key::numeric("maxClients", &ServerSettings::maxClients, 1, kAny),
        Key::other(SettingName::name, SettingKind::text),
        Key::other(SettingName::desc, SettingKind::text),
        Key::boolean("public", &ServerSettings::publicServer),
        Key::boolean("logFile", &ServerSettings::logFile),
        Key::boolean("console", &ServerSettings::console),
        Key::boolean("verbose", &ServerSettings::verbose),
        Key::numeric("port", &ServerSettings::port, 1, kHighestPort - kDatagramPortOffset),
        Key::boolean("keywordSearch", &ServerSettings::keywordSearch),
        Key::other(SettingName::thisIP, SettingKind::address),
        Key::numeric("threads", &ServerSettings::threads, 1, kMostThreads),
        Key::numeric("seedPort", &ServerSettings::seedPort, 1, kHighestPort - kDatagramPortOffset),
        Key::other(SettingName::seedIP, SettingKind::address),
        Key::numeric("minVersion", &ServerSettings::minVersion, 0, kAny),
        Key::numeric("maxVersion", &ServerSettings::maxVersion, 0, kAny),
        Key::numeric("tableSize", &ServerSettings::tableSize, 1, kAny),
        Key::numeric("adminPort", &ServerSettings::adminPort, 1, kHighestPort),
        Key::other(SettingName::adminBind, SettingKind::address),
        Key::other(SettingName::welcome, SettingKind::row),
        Key::other(SettingName::room, SettingKind::row),
        Key::other(SettingName::filter, SettingKind::row),
        Key::other(SettingName::adminName, SettingKind::text),
        Key::other(SettingName::adminPass, SettingKind::text),
        Key::other(SettingName::limitExempt, SettingKind::networks),
        Key::numeric("firstPacketSeconds", &ServerSettings::firstPacketSeconds, 0, kAny),
        Key::numeric("packetSeconds", &ServerSettings::packetSeconds, 0, kAny),
        Key::numeric("unreadSeconds", &ServerSettings::unreadSeconds, 0, kAny),
        Key::numeric("addressConnections", &ServerSettings::addressConnections, 0, kAny),
        Key::numeric("addressConnects", &ServerSettings::addressConnects, 0, kAny),
        Key::numeric("loginRate", &ServerSettings::loginRate, 0, kHighestRate),
        Key::numeric("offerRate", &ServerSettings::offerRate, 0, kHighestRate),
        Key::numeric("searchRate", &ServerSettings::searchRate, 0, kHighestRate),
        Key::numeric("textRate", &ServerSettings::textRate, 0, kHighestRate),
        Key::numeric("callbackRate", &ServerSettings::callbackRate, 0, kHighestRate),
        Key::numeric("floodSeconds", &ServerSettings::floodSeconds, 0, kAny),
        Key::numeric("clientFiles", &ServerSettings::clientFiles, 0, kAny),
        Key::numeric("recordBytes", &ServerSettings::recordBytes, 0, kAny),
        Key::numeric("recordTags", &ServerSettings::recordTags, 0, kAny),
        Key::numeric("tagNameBytes", &ServerSettings::tagNameBytes, 0, kAny),
        Key::numeric("tagValueBytes", &ServerSettings::tagValueBytes, 0, kAny),
        Key::numeric("reachTests", &ServerSettings::reachTests, 0, kAny),
        Key::numeric("reachTestsPerAddress", &ServerSettings::reachTestsPerAddress, 0, kAny),
        Key::numeric("reachMinPort", &ServerSettings::reachMinPort, 0, kHighestPort),
        Key::boolean("reachPrivate", &ServerSettings::reachPrivate),
        Key::numeric("datagramBytes", &ServerSettings::datagramBytes, 0, kAny),
        Key::numeric("datagramBurst", &ServerSettings::datagramBurst, 0, kAny),
        Key::numeric("datagramStatus", &ServerSettings::datagramStatus, 0, kAny),
        Key::boolean("datagramCountOnly", &ServerSettings::datagramCountOnly),
        Key::numeric("knownServers", &ServerSettings::knownServers, 0, kAny),
        Key::numeric("serversPerNetwork", &ServerSettings::serversPerNetwork, 0, kAny),
    };
}();

}  // namespace vorrim
