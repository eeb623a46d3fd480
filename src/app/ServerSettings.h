#pragma once
// The one record of all settings, and at the same time the server's own record towards clients and
// other servers: the inherited Name and Description tags, address (id) and port.
//
//     vorrim.ini ──► IniFile ──► load ──► the fields here
//                                    └──► LoadedSettings: what other objects take over
//
// Fields are named after the keys of the file. `port` hides Meta::port(), the 16 bits of it that
// the record carries.
//
// Threads: written at start-up, before there is another thread; read without a lock afterwards.
// The welcome lines have a lock of their own and may change at any time.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/IniFile.h"
#include "app/LimitSettings.h"
#include "base/Output.h"
#include "client/WelcomeLines.h"
#include "meta/Meta.h"
#include "search/Search.h"

namespace vorrim {

// What the settings file holds for others, in its order.
struct LoadedSettings {
    struct Administrator {
        std::string name;
        std::string password;
    };

    std::vector<std::string> rooms;
    std::vector<Search> filters;
    std::optional<Administrator> administrator;  // none unless both parts are there
};

// The rows of the file that may change while the server runs.
struct ChangeableSettings {
    std::vector<std::string> welcome;  // the version line first
    std::vector<Search> filters;
};

class ServerSettings final : public Meta, public LimitSettings {
public:
    static constexpr std::int32_t kVersionMajor = 16;
    static constexpr std::string_view kSection = "server";

    // The address of this host when the file names none; in identifier form.
    using LocalAddress = std::function<std::uint32_t()>;

    std::string serverListFile = "serverList.met";
    std::optional<std::string> desc;
    std::optional<std::string> seedIP;
    std::int32_t seedPort = 4661;
    bool publicServer = false;  // key "public"
    bool logFile = false;
    bool console = true;
    bool verbose = false;
    bool keywordSearch = true;
    WelcomeLines welcome;
    std::int32_t maxClients = 600;
    std::int32_t maxSearchResults = 200;
    std::int32_t port = 4661;
    std::int32_t adminPort = 4663;
    std::uint32_t adminBind = 0;  // administrators come in on this local address; 0: on all
    std::int32_t threads = 5;
    std::int32_t minVersion = 50;
    std::int32_t maxVersion = 2000;
    std::int32_t tableSize = 2333;
    std::uint32_t thisIP = 0;
    std::int32_t versionMinor = 36;

    ServerSettings();

    // Reads the file, or keeps the defaults and says so. Call once. Messages go to `output`, whose
    // verbose flag follows the file. Raises nothing.
    [[nodiscard]] LoadedSettings load(const std::string& file_name, Output& output,
                                      const LocalAddress& local_address);

    // Any thread: what a running server takes over from the file as it is now; nothing when it
    // cannot be read. Bad filters are reported and left out, as by load.
    [[nodiscard]] std::optional<ChangeableSettings> readAgain(const std::string& file_name,
                                                              Output& output) const;

    // Clients are served on the low 16 bits of the port, datagrams four above.
    [[nodiscard]] std::uint16_t clientPort() const noexcept;
    [[nodiscard]] std::uint16_t datagramPort() const noexcept;
    [[nodiscard]] std::uint16_t administrationPort() const noexcept;

    // What a value of `adminBind` means. A text that is no address counts as 127.0.0.1, so that a
    // slip never opens the door to everybody.
    [[nodiscard]] static std::uint32_t bindAddress(std::string_view text) noexcept;

private:
    void apply(const IniFile& ini, Output& output, const LocalAddress& local_address,
               LoadedSettings& loaded);
    [[nodiscard]] std::string versionLine() const;
    void setDescription(std::string_view text);
};

}  // namespace vorrim
