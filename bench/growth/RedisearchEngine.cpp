#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <hiredis/hiredis.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/file/primitives.h"
#include "bench/common/Engine.h"
#include "client/index/keyword_hash.h"

namespace vorrim::bench {
namespace {

constexpr const char* kModule = "/usr/lib/redis/modules/redisearch.so";

// A server of its own, asked over a local socket: its times have that way, too. Results come in the
// order of its own weights, and the records with them.
class Redisearch final : public Engine {
public:
    Redisearch() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vorrim-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
        folder_ = pattern;
        start();
        // Whole words and nothing else: no stems, no stop words, no places within the texts.
        one("FT.CREATE files NOOFFSETS NOFIELDS NOFREQS STOPWORDS 0 SCHEMA texts TEXT NOSTEM");
    }
    ~Redisearch() override {
        redisFree(server_);
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        std::filesystem::remove_all(folder_);
    }

    [[nodiscard]] const char* name() const override { return "redisearch"; }
    [[nodiscard]] bool answers(const QueryClass& of) const override { return !of.scan; }

    void load(const std::vector<RecordView>& records) override {
        constexpr std::size_t kAtOnce = 500;
        std::size_t open = 0;
        for (std::size_t number = 0; number < records.size(); ++number) {
            const std::string words = words_of(folded_texts(records[number]));
            const auto record = records[number].bytes();
            redisAppendCommand(server_, "FT.ADD files %u 1.0 FIELDS texts %b record %b",
                               static_cast<unsigned>(number), words.data(), words.size(),
                               record.data(), record.size());
            if (++open < kAtOnce && number + 1 < records.size()) continue;
            for (; open > 0; --open)
                freeReplyObject(next());
        }
    }

    std::uint32_t search(const Query& query, kx_memory_file& out) override {
        std::string asked;
        for (const std::string& word : query.words)
            asked += (asked.empty() ? "" : " ") + word;
        redisAppendCommand(server_, "FT.SEARCH files %b LIMIT 0 %u RETURN 1 record", asked.data(),
                           asked.size(), kLimit);
        redisReply* const reply = next();
        std::uint32_t found = 0;
        for (std::size_t at = 2; at < reply->elements; at += 2, ++found) {
            const redisReply& record = *reply->element[at]->element[1];
            write_bytes(out, std::as_bytes(std::span(record.str, record.len)));
        }
        freeReplyObject(reply);
        return found;
    }

private:
    static std::string words_of(const std::string& texts) {
        std::string words;
        for (std::size_t at = texts.find_first_not_of(kWordSeparators); at != texts.npos;) {
            const std::size_t end =
                std::min(texts.find_first_of(kWordSeparators, at), texts.size());
            words += texts.substr(at, end - at) + ' ';
            at = texts.find_first_not_of(kWordSeparators, end);
        }
        return words;
    }

    void start() {
        const std::string socket = folder_ / "socket";
        const std::string folder = folder_;
        process_ = fork();
        if (process_ == 0) {
            execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", socket.c_str(),
                   "--save", "", "--appendonly", "no", "--dir", folder.c_str(), "--logfile", "log",
                   "--loadmodule", kModule, nullptr);
            _exit(1);
        }
        for (int attempt = 0; attempt < 100; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            server_ = redisConnectUnix(socket.c_str());
            if (server_ != nullptr && server_->err == 0) return;
            redisFree(server_);
        }
        throw std::runtime_error("redis-server does not start");
    }
    void one(const char* command) {
        redisAppendCommand(server_, command);
        freeReplyObject(next());
    }
    redisReply* next() {
        void* reply = nullptr;
        if (redisGetReply(server_, &reply) != REDIS_OK) throw std::runtime_error(server_->errstr);
        auto* const answer = static_cast<redisReply*>(reply);
        if (answer->type == REDIS_REPLY_ERROR) throw std::runtime_error(answer->str);
        return answer;
    }

    std::filesystem::path folder_;
    pid_t process_ = 0;
    redisContext* server_ = nullptr;
};

}  // namespace

bool has_redisearch() {
    return std::filesystem::exists(kModule);
}

std::unique_ptr<Engine> make_redisearch() {
    return std::make_unique<Redisearch>();
}

}  // namespace vorrim::bench
