// The server list file under a server that is killed while it saves: whatever the moment, the file
// is the old one or the new one, whole.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

constexpr std::uint32_t kServers = 600;
constexpr int kKills = 300;
constexpr const char* kFile = "serverList.met";
constexpr const char* kBeside = "serverList.met.new";

ServerProcess::Setup saving_on(const std::shared_ptr<ScratchFolder>& folder,
                               const std::shared_ptr<PortBlock>& ports) {
    return {.settings = "threads=1\nadminName=root\nadminPass=secret",
            .ready = ServerProcess::Ready::at_once,
            .folder = folder,
            .ports = ports};
}

TEST(ListFile, AKillAtAnyMomentLeavesTheOldFileOrTheNewOne) {
    const auto folder = std::make_shared<ScratchFolder>();
    const auto ports = std::make_shared<PortBlock>();
    const std::string old_list = server_list(kServers);
    folder->write(kFile, old_list);
    const auto begin = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration until_saved{};
    {
        ServerProcess server(saving_on(folder, ports));
        wait_until("the first save", [&] { return folder->read(kFile) != old_list; });
        until_saved = std::chrono::steady_clock::now() - begin;
        EXPECT_EQ(server.stop(SIGTERM), 1);
    }
    const std::string new_list = folder->read(kFile);
    ASSERT_GT(new_list.size(), old_list.size());

    std::string saves;  // one after the other, for longer than any test waits
    for (int i = 0; i < 2000; ++i)
        saves += "sweep\n";
    std::minstd_rand random(4661);
    int old_ones = 0;
    int in_the_middle = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        folder->write(kFile, old_list);
        ServerProcess server(saving_on(folder, ports));
        server.type(saves);
        // From before the first save, however slow the measured start was, into the later ones.
        const auto share = std::uniform_int_distribution<int>(0, 160)(random);
        std::this_thread::sleep_for(until_saved * share / 100);
        ASSERT_EQ(server.stop(SIGKILL), -SIGKILL);
        const std::string found = folder->read(kFile);
        ASSERT_TRUE(found == old_list || found == new_list)
            << "after kill " << kill << " the file has " << found.size() << " bytes";
        old_ones += found == old_list ? 1 : 0;
        in_the_middle += folder->has(kBeside) ? 1 : 0;
        std::filesystem::remove(folder->path() / kBeside);
    }
    EXPECT_GT(old_ones, 0);
    EXPECT_LT(old_ones, kKills);
    EXPECT_GT(in_the_middle, 0);
}

TEST(ListFile, WhatAKillLeavesBesideTheFileIsNeitherReadNorInTheWay) {
    const auto folder = std::make_shared<ScratchFolder>();
    folder->write(kFile, server_list(kServers));
    folder->write(kBeside, server_list(kServers).substr(0, 1000));
    ServerProcess server(
        ServerProcess::Setup{.settings = "adminName=root\nadminPass=secret", .folder = folder});
    server.wait_for_prompt();
    const Administrator admin(server, "root", "secret");
    admin.send_command("vs");
    const std::string known = admin.receive_until("Working:");
    EXPECT_NE(known.find("\n(1)\t(null)\t127.0.0.1\t1000\t0\n"), std::string::npos);
    EXPECT_TRUE(known.ends_with("\n(600)\t(null)\t127.87.2.1\t1599\t0\nWorking:\n"));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_FALSE(folder->has(kBeside));
}

}  // namespace
}  // namespace vorrim::wire
