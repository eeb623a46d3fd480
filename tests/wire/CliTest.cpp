// vorrim-cli as its users meet it: what it prints, what it exits with, what it leaves at the
// server.
#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

// One run of the program, its output caught in files. Still running when the object goes: killed.
class Cli final {
public:
    explicit Cli(Arguments arguments) {
        pid_ = ::fork();
        if (pid_ < 0) throw WireFailure("cannot fork");
        if (pid_ > 0) return;
        const auto catch_in = [&](const char* name, int descriptor) {
            const std::string path = captured_.path() / name;
            ::dup2(::open(path.c_str(), O_WRONLY | O_CREAT, 0600), descriptor);
        };
        catch_in("out", STDOUT_FILENO);
        catch_in("err", STDERR_FILENO);
        arguments.insert(arguments.begin(), VORRIM_CLI_BINARY);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    Cli(const ServerProcess& server, Arguments arguments)
        : Cli(with_port(std::move(arguments), server.ports().client())) {}
    ~Cli() {
        if (exit_) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    Cli(const Cli&) = delete;
    Cli& operator=(const Cli&) = delete;

    int exit() {
        wait_until("vorrim-cli to end", [&] {
            int status = 0;
            if (!exit_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
                exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
            }
            return exit_.has_value();
        });
        return *exit_;
    }
    void interrupt() const { ::kill(pid_, SIGINT); }
    [[nodiscard]] std::string output() const { return captured_.read("out"); }
    [[nodiscard]] std::string errors() const { return captured_.read("err"); }
    void wait_for_output(std::string_view text) const {
        wait_until(text, [&] { return output().find(text) != std::string::npos; });
    }

private:
    static Arguments with_port(Arguments arguments, std::uint16_t port) {
        arguments.insert(arguments.end(), {"--port", std::to_string(port)});
        return arguments;
    }

    ScratchFolder captured_;
    pid_t pid_ = -1;
    std::optional<int> exit_;
};

Json json_of(const ServerProcess& server, Arguments arguments, int exit = 0) {
    arguments.push_back("--json");
    Cli cli(server, arguments);
    EXPECT_EQ(cli.exit(), exit) << cli.errors();
    EXPECT_EQ(cli.errors(), "");
    return Json::parse(cli.output());
}

// Exit code 2, nothing on standard output, and this one line.
void expect_failure(Cli&& cli, const std::string& line) {
    EXPECT_EQ(cli.exit(), 2);
    EXPECT_EQ(cli.output(), "");
    EXPECT_EQ(cli.errors(), "vorrim-cli: " + line + "\n");
}

std::vector<Record> named_files(std::uint32_t count, const std::string& word) {
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < count; ++i) {
        files.push_back(file(hash_of(i), word + ' ' + std::to_string(i), i));
    }
    return files;
}

// SHA-256 of "hello\n" and of nothing, cut to sixteen bytes.
constexpr const char* kHelloHash = "5891b5b522d5df086d0ff0b110fbd9d2";
constexpr const char* kEmptyHash = "e3b0c44298fc1c149afbf4c8996fb924";

TEST(Cli, StatusShowsWhatTheServerCountsAndSaysOfItself) {
    const ServerProcess server("name=Test server\ndesc=for tests\n");
    const WireClient client = WireClient::high(server);
    client.publish(named_files(3, "some"));
    const Json status = json_of(server, {"status"});
    EXPECT_EQ(status["users"], 1);
    EXPECT_EQ(status["files"], 3);
    EXPECT_EQ(status["name"], "Test server");
    EXPECT_EQ(status["description"], "for tests");
    EXPECT_EQ(status["address"], "127.0.0.1");
    EXPECT_EQ(json_of(server, {"status", "--udp"})["name"], nullptr);
}

TEST(Cli, PublishedFilesAreFoundWithTheirTagsUntilCtrlC) {
    const ServerProcess server;
    const ScratchFolder folder;
    folder.write("hello.txt", "hello\n");
    folder.write("nothing", "");
    std::filesystem::create_directory(folder.path() / "deep");
    folder.write("deep/copy of hello.txt", "hello\n");
    folder.write("deep/Song.MP3", std::string(3'000'000, 'x'));
    std::filesystem::create_symlink(folder.path(), folder.path() / "deep" / "loop");

    Cli publisher(server, {"publish", folder.path()});
    publisher.wait_for_output("staying connected");
    EXPECT_NE(publisher.output().find("found 4 files, 2.9 MiB\n"), std::string::npos)
        << publisher.output();
    EXPECT_NE(publisher.output().find("published 3 files (2.9 MiB) in "), std::string::npos);
    EXPECT_NE(publisher.output().find("; left out 1 copy of the same content\n"),
              std::string::npos);
    EXPECT_EQ(publisher.output().find('\x1b'), std::string::npos);
    EXPECT_EQ(server.status(), (Status{1, 3}));

    // The asker comes from the publisher's address, so its identifier is low: the publisher is
    // seen because it listens.
    const Json song = json_of(server, {"search", "song", "size>2M", "type=audio"});
    ASSERT_EQ(song["count"], 1);
    EXPECT_FALSE(song["more"]);
    EXPECT_EQ(song["results"][0]["name"], "Song.MP3");
    EXPECT_EQ(song["results"][0]["size"], 3'000'000);
    EXPECT_EQ(song["results"][0]["type"], "Audio");
    EXPECT_EQ(song["results"][0]["format"], "mp3");
    EXPECT_EQ(song["results"][0]["sources"], 1);

    for (const Arguments& how : {Arguments{}, Arguments{"--udp"}}) {
        Arguments words = {"sources", kHelloHash};
        words.insert(words.end(), how.begin(), how.end());
        const Json sources = json_of(server, words);
        ASSERT_EQ(sources["count"], 1);
        EXPECT_EQ(sources["sources"][0]["address"], "127.0.0.1");
        EXPECT_TRUE(sources["sources"][0]["reachable"]);
        EXPECT_GT(sources["sources"][0]["port"], 0);
    }
    EXPECT_EQ(json_of(server, {"search", "nothing", "--udp"})["results"][0]["hash"], kEmptyHash);

    publisher.interrupt();
    EXPECT_EQ(publisher.exit(), 0);
    EXPECT_EQ(publisher.errors(), "");
    server.wait_for_status({0, 0});
    EXPECT_EQ(json_of(server, {"search", "song"}, 1)["count"], 0);
    EXPECT_EQ(json_of(server, {"sources", kHelloHash}, 1)["count"], 0);
    EXPECT_EQ(json_of(server, {"sources", kHelloHash, "--udp"}, 1)["count"], 0);
}

TEST(Cli, ManyFilesGoOutInSeveralListsAndAllArrive) {
    const ServerProcess server;
    const ScratchFolder folder;
    for (int i = 0; i < 450; ++i)
        folder.write("file " + std::to_string(i), std::to_string(i));
    Cli publisher(server, {"publish", folder.path(), "--json"});
    publisher.wait_for_output("\n}\n");
    const Json done = Json::parse(publisher.output());
    EXPECT_EQ(done["files"], 450);
    EXPECT_EQ(done["lists"], 3);
    EXPECT_TRUE(done["self"]["reachable"]);
    EXPECT_EQ(server.status(), (Status{1, 450}));
}

TEST(Cli, MoreFetchesEveryPage) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server);
    client.publish(named_files(450, "page"));
    const Json first = json_of(server, {"search", "page"});
    EXPECT_EQ(first["count"], 201);
    EXPECT_TRUE(first["more"]);
    const Json all = json_of(server, {"search", "page", "--more"});
    EXPECT_EQ(all["count"], 450);
    EXPECT_FALSE(all["more"]);
}

TEST(Cli, APhraseIsFoundAsAWholeAndDeniedWordsStayAway) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "blue sky.ogg"), file(hash_of(2), "sky blue.ogg"),
                    file(hash_of(3), "blue_sky-2.ogg"), file(hash_of(4), "blue sky draft.ogg")});
    const auto found = [&](const Arguments& words) {
        Arguments arguments = {"search"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        std::vector<std::string> names;
        const Json document = json_of(server, arguments);
        for (const Json& result : document["results"])
            names.push_back(result["name"]);
        return names;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(found({"blue", "sky"}).size(), 4U);
    EXPECT_EQ(found({"blue sky"}), (Names{"blue sky.ogg", "blue sky draft.ogg"}));
    EXPECT_EQ(found({"blue sky", "-draft"}), (Names{"blue sky.ogg"}));
    EXPECT_EQ(found({"blue_sky-2.ogg"}), (Names{"blue_sky-2.ogg"}));
    EXPECT_EQ(found({"draft", "OR", "\"sky blue\""}).size(), 2U);
}

TEST(Cli, PeopleGetATableAndPipesNoEscapes) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server, "alice");
    client.publish({file(hash_of(1), "evil \x1b[31m name", 2048)});
    Cli search(server, {"search", "evil"});
    EXPECT_EQ(search.exit(), 0);
    EXPECT_EQ(search.output().rfind("NAME                SIZE  TYPE  FORMAT  SOURCES  HASH\n"
                                    "evil ?[31m name  2.0 KiB                      1  0100",
                                    0),
              0U)
        << search.output();
    EXPECT_NE(search.output().find("\n1 file in "), std::string::npos);
    EXPECT_EQ(search.output().find('\x1b'), std::string::npos);

    Cli users(server, {"users"});
    EXPECT_EQ(users.exit(), 0);
    EXPECT_NE(users.output().find("alice"), std::string::npos);
    EXPECT_NE(users.output().find("\n1 user in "), std::string::npos) << users.output();
    EXPECT_EQ(json_of(server, {"users", "--udp"})["results"][0]["name"], "alice");
}

TEST(Cli, ServersAreNoneWhenTheServerKnowsNone) {
    const ServerProcess server;
    EXPECT_EQ(json_of(server, {"servers"}, 1)["count"], 0);
}

TEST(Cli, ACallBackReachesTheWantedClientWithAnAddressToConnectTo) {
    const ServerProcess server;
    const WireClient wanted = WireClient::low(server);
    const std::string id = std::to_string(wanted.id());
    for (const Arguments& how : {Arguments{}, Arguments{"--udp"}}) {
        Arguments words = {"callback", id};
        words.insert(words.end(), how.begin(), how.end());
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

TEST(Cli, APublisherPrintsWhoWantsToBeCalled) {
    const ServerProcess server;
    const WireClient holder = WireClient::high(server, "high", kLocalhost);
    const ScratchFolder folder;
    folder.write("a.txt", "a");
    Cli publisher(server, {"publish", folder.path()});  // its address is taken: it becomes low
    publisher.wait_for_output("staying connected");
    EXPECT_NE(publisher.output().find("not reachable from outside"), std::string::npos);
    holder.send(callback(1));
    publisher.wait_for_output("127.0.0.1:" + std::to_string(holder.announced_port()) +
                              " asks this client to connect\n");
}

TEST(Cli, FailuresAreOneLineAndTheNumberTwo) {
    const PortBlock nobody;
    const std::string port = std::to_string(nobody.client());
    const std::string udp_port = std::to_string(nobody.udp());
    expect_failure(Cli({"search", "a", "--port", port}),
                   "cannot connect to 127.0.0.1:" + port + ": Connection refused");
    expect_failure(Cli({"status", "--port", port}),
                   "cannot reach 127.0.0.1:" + udp_port + " (UDP): nothing listens there");
    expect_failure(Cli({"search", "size>big"}), "'size' is a number: 'big' is none");
    expect_failure(Cli({"sources", "xyz"}), "a hash is 32 hexadecimal digits, not 'xyz'");
    expect_failure(Cli({"callback", "0"}),
                   "an identifier is a number such as 5 or an address such as 1.0.0.0, not '0'");
    const ServerProcess server;
    expect_failure(Cli(server, {"search", "a", "--more", "--udp"}),
                   "datagrams have no further pages: leave out --more or --udp");
    Cli missing(server, {"publish", "/no/such/folder"});
    EXPECT_EQ(missing.exit(), 2);
    EXPECT_EQ(missing.errors(),
              "vorrim-cli: cannot publish /no/such/folder: No such file or directory\n");
}

TEST(Cli, AServerThatRefusesTheVersionIsQuoted) {
    const ServerProcess server("minVersion=61\n");
    Cli search(server, {"search", "a"});
    EXPECT_EQ(search.exit(), 2);
    EXPECT_EQ(search.errors().rfind("vorrim-cli: the server closed the connection (its last words: "
                                    "You have an out of date client",
                                    0),
              0U)
        << search.errors();
    const std::string errors = search.errors();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1);

    const ScratchFolder folder;
    folder.write("a.txt", "a");
    Cli publisher(server, {"publish", folder.path()});
    EXPECT_EQ(publisher.exit(), 2);
    EXPECT_EQ(publisher.errors(), errors);
}

TEST(Cli, APublisherSaysThatTheServerWentAway) {
    ServerProcess server;
    const ScratchFolder folder;
    folder.write("a.txt", "a");
    Cli publisher(server, {"publish", folder.path()});
    publisher.wait_for_output("staying connected");
    server.stop(SIGKILL);
    EXPECT_EQ(publisher.exit(), 2);
    EXPECT_EQ(publisher.errors(), "vorrim-cli: the server closed the connection\n");
}

TEST(Cli, SilenceEndsAtTheTimeout) {
    const Socket mute = Socket::open(SOCK_STREAM);
    mute.bind(kLocalhost, 0);
    ASSERT_EQ(::listen(mute.descriptor(), 1), 0);
    expect_failure(Cli({"servers", "--timeout", "0.2", "--port", std::to_string(mute.port())}),
                   "no answer from the server within 200.0 ms");
}

}  // namespace
}  // namespace vorrim::wire
