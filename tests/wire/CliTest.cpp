// vorrim-cli as its users meet it: what it prints, what it exits with, what it leaves at the
// server.
#include <nlohmann/json.hpp>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

Arguments of(const ServerProcess& server, Arguments arguments) {
    return cli(std::move(arguments), server.ports().client());
}

Json json_of(const ServerProcess& server, Arguments arguments, int exit = 0) {
    arguments.push_back("--json");
    Program program(of(server, std::move(arguments)));
    EXPECT_EQ(program.exit(), exit) << program.errors();
    EXPECT_EQ(program.errors(), "");
    return Json::parse(program.output());
}

// Exit code 2, nothing on standard output but how far a publication came, and this one line.
void expect_failure(const Arguments& arguments, std::uint16_t port, const std::string& line) {
    Program program(cli(arguments, port));
    EXPECT_EQ(program.exit(), 2) << line;
    EXPECT_TRUE(program.output().empty() || arguments.front() == "publish") << program.output();
    EXPECT_EQ(program.errors(), "vorrim-cli: " + line + "\n");
}

// Contains, with what there is in its place.
void expect_in(const Program& program, const std::string& text) {
    EXPECT_NE(program.output().find(text), std::string::npos) << program.output();
}

// SHA-256 of "hello\n" and of nothing, cut to sixteen bytes.
constexpr const char* kHelloHash = "5891b5b522d5df086d0ff0b110fbd9d2";
constexpr const char* kEmptyHash = "e3b0c44298fc1c149afbf4c8996fb924";

TEST(Cli, PublishedFilesAreFoundWithTheirTagsUntilCtrlC) {
    const ServerProcess server;
    const ScratchFolder folder;
    folder.write("hello.txt", "hello\n");
    folder.write("nothing", "");
    std::filesystem::create_directory(folder.path() / "deep");
    folder.write("deep/copy of hello.txt", "hello\n");
    folder.write("deep/Song.MP3", std::string(3'000'001, 'x'));
    std::filesystem::create_symlink(folder.path(), folder.path() / "deep" / "loop");

    Program publisher(of(server, {"publish", folder.path()}));
    publisher.wait_for_output("staying connected");
    expect_in(publisher, "found 4 files, 2.9 MiB\n");
    expect_in(publisher, "published 3 files (2.9 MiB) in ");
    expect_in(publisher, "; left out 1 copy of the same content\n");
    EXPECT_EQ(publisher.output().find('\x1b'), std::string::npos);
    EXPECT_EQ(server.status(), (Status{1, 3}));

    // The asker comes from the publisher's address, so its identifier is low: the publisher is
    // seen because it listens.
    const Json song = json_of(server, {"search", "song", "size>2M", "type=audio"});
    ASSERT_EQ(song["count"], 1);
    const Json wanted = {{"name", "Song.MP3"},
                         {"size", 3'000'001},
                         {"hash", "a3ccf84896e3e6d1185dee335e2f3226"},  // blocks, the last one odd
                         {"type", "Audio"},
                         {"format", "mp3"},
                         {"sources", 1}};
    for (const auto& [key, value] : wanted.items())
        EXPECT_EQ(song["results"][0][key], value) << key;

    for (const Arguments& words :
         {Arguments{"sources", kHelloHash}, Arguments{"sources", kHelloHash, "--udp"}}) {
        const Json sources = json_of(server, words);
        ASSERT_EQ(sources["count"], 1);
        EXPECT_EQ(sources["sources"][0]["address"], "127.0.0.1");
        EXPECT_TRUE(sources["sources"][0]["reachable"]);
        EXPECT_GT(sources["sources"][0]["port"], 0);
    }
    EXPECT_EQ(json_of(server, {"search", "nothing", "--udp"})["results"][0]["hash"], kEmptyHash);

    publisher.signal(SIGINT);
    EXPECT_EQ(publisher.exit(), 0);
    EXPECT_EQ(publisher.errors(), "");
    server.wait_for_status({0, 0});
    EXPECT_EQ(json_of(server, {"search", "song"}, 1)["count"], 0);
    EXPECT_EQ(json_of(server, {"sources", kHelloHash}, 1)["count"], 0);
    EXPECT_EQ(json_of(server, {"sources", kHelloHash, "--udp"}, 1)["count"], 0);
}

TEST(Cli, ManyFilesGoOutInSeveralListsAndMoreFetchesEveryPage) {
    const ServerProcess server;
    const ScratchFolder folder;
    for (int i = 0; i < 450; ++i)
        folder.write("page " + std::to_string(i), std::to_string(i));
    Program publisher(of(server, {"publish", folder.path(), "--json"}));
    publisher.wait_for_output("\n}\n");
    const Json done = Json::parse(publisher.output());
    EXPECT_EQ(done["files"], 450);
    EXPECT_EQ(done["lists"], 3);
    EXPECT_TRUE(done["self"]["reachable"]);
    EXPECT_EQ(server.status(), (Status{1, 450}));
    const Json first = json_of(server, {"search", "page"});
    EXPECT_EQ(first["count"], 201);
    EXPECT_TRUE(first["more"]);
    const Json all = json_of(server, {"search", "page", "--more"});
    EXPECT_EQ(all["count"], 450);
    EXPECT_FALSE(all["more"]);
}

TEST(Cli, PeopleGetATableAndPipesNoEscapes) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server, "alice");
    client.publish({file(hash_of(1), "evil \x1b[31m name", 2048)});
    Program search(of(server, {"search", "evil"}));
    EXPECT_EQ(search.exit(), 0);
    EXPECT_TRUE(
        search.output().starts_with("NAME                SIZE  TYPE  FORMAT  SOURCES  HASH\n"
                                    "evil ?[31m name  2.0 KiB                      1  0100"))
        << search.output();
    expect_in(search, "\n1 file in ");
    EXPECT_EQ(search.output().find('\x1b'), std::string::npos);

    Program users(of(server, {"users"}));
    EXPECT_EQ(users.exit(), 0);
    expect_in(users, "alice");
    expect_in(users, "\n1 user in ");
    EXPECT_EQ(json_of(server, {"users", "--udp"})["results"][0]["name"], "alice");
    EXPECT_EQ(json_of(server, {"servers"}, 1)["count"], 0);
}

TEST(Cli, ACallBackReachesTheWantedClientWithAnAddressToConnectTo) {
    const ServerProcess server;
    const WireClient wanted = WireClient::low(server);
    const std::string id = std::to_string(wanted.id());
    for (Arguments words : {Arguments{"callback", id}, Arguments{"callback", id, "--udp"}}) {
        const Json asked = json_of(server, words);
        EXPECT_TRUE(asked["passed_on"]);
        EXPECT_EQ(wanted.receive(), Bytes()
                                        .u8(0x35)
                                        .u32(kLocalhost.value())
                                        .u16(asked["listening"]["port"].get<std::uint32_t>()));
        words[1] = "99999";
        const Json refused = json_of(server, words, 1);
        EXPECT_FALSE(refused["passed_on"]);
        EXPECT_EQ(refused["refusal"], "no client has the identifier 159.134.1.0");
    }
}

TEST(Cli, APublisherPrintsWhoWantsToBeCalledAndThatTheServerWentAway) {
    ServerProcess server;
    const WireClient holder = WireClient::high(server, "high", kLocalhost);
    const ScratchFolder folder;
    folder.write("a.txt", "a");
    expect_failure({"publish", "/no/such/folder"}, server.ports().client(),
                   "cannot publish /no/such/folder: No such file or directory");
    // Its address is taken: it becomes low.
    Program publisher(of(server, {"publish", folder.path()}));
    publisher.wait_for_output("staying connected");
    expect_in(publisher, "not reachable from outside");
    holder.send(callback(1));
    publisher.wait_for_output("127.0.0.1:" + std::to_string(holder.announced_port()) +
                              " asks this client to connect\n");
    server.stop(SIGKILL);
    EXPECT_EQ(publisher.exit(), 2);
    EXPECT_EQ(publisher.errors(), "vorrim-cli: the server closed the connection\n");
}

TEST(Cli, FailuresAreOneLineAndTheNumberTwo) {
    const PortBlock nobody;
    const std::uint16_t port = nobody.client();
    const Socket mute = Socket::open(SOCK_STREAM);
    mute.bind(kLocalhost, 0);
    mute.listen(1);
    const std::string here = " 127.0.0.1:";
    const std::vector<std::pair<Arguments, std::string>> rows = {
        {{"search", "a"},
         "cannot connect to" + here + std::to_string(port) + ": Connection refused"},
        {{"status"},
         "cannot reach" + here + std::to_string(nobody.udp()) + " (UDP): nothing listens there"},
        {{"sources", "xyz"}, "a hash is 32 hexadecimal digits, not 'xyz'"},
        {{"callback", "0"},
         "an identifier is a number such as 5 or an address such as 1.0.0.0, not '0'"},
        {{"search", "a", "--more", "--udp"},
         "datagrams have no further pages: leave out --more or --udp"},
    };
    for (const auto& [words, line] : rows)
        expect_failure(words, port, line);
    expect_failure({"servers", "--timeout", "0.2"}, mute.port(),
                   "no answer from the server within 200.0 ms");
}

TEST(Cli, AServerThatRefusesTheVersionIsQuoted) {
    const ServerProcess server("minVersion=61\n");
    server.folder()->write("a.txt", "a");
    for (const Arguments& words :
         {Arguments{"search", "a"}, Arguments{"publish", server.folder()->path() / "a.txt"}})
        expect_failure(words, server.ports().client(),
                       "the server closed the connection (its last words: You have an out of date "
                       "client please go to https://vorrim.example/ and upgrade.)");
}

}  // namespace
}  // namespace vorrim::wire
