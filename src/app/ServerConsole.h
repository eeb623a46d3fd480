#pragma once
// The commands with which the operator steers the running server.
//
// Threads: as Console. A listing first copies what it lists under the lock of its owner and then
// prints it.

#include <functional>
#include <string_view>

#include "app/Console.h"
#include "app/ServerDirectory.h"
#include "app/ServerSettings.h"
#include "base/Random.h"
#include "client/ClientService.h"

namespace vorrim {

class ServerConsole final : public Console {
public:
    // Everything outlives the console. `sweep` saves the server list and calls the known servers
    // soon, from any thread; `random` is for the self tests.
    ServerConsole(ConsoleInput& input, const ServerSettings& settings, ClientService& service,
                  const ServerDirectory& directory, std::function<void()> sweep,
                  const Random& random);

private:
    void help() const;
    void quit();
    void view_clients() const;
    void view_options() const;
    void view_servers() const;
    void broadcast(std::string_view line) const;
    void set_password(std::string_view line);
    void statistics() const;
    void welcome(std::string_view line) const;
    void self_test() const;
    void free_memory() const;
    void client_address(std::string_view line) const;
    void disconnect(std::string_view line) const;

    const ServerSettings& settings_;
    ClientService& service_;
    const ServerDirectory& directory_;
    const std::function<void()> sweep_;
    const Random random_;
};

}  // namespace vorrim
