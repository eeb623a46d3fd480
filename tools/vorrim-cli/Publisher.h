#pragma once
// Files on their way from the disk into a server's index.
//
//     paths ─► find_files ─► FileHasher ─► records ─► [ list of 200 ] ─► Session
//
// Hashing runs beside sending. A file whose content has been published already in this run is left
// out: the server would only list the same source twice.
//
// Threads: the caller's, besides the hasher's own. Errors: Failure, from the session too.

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "FileHasher.h"
#include "FileWalk.h"
#include "Session.h"
#include "meta/FrozenRecord.h"

namespace vorrim::cli {

inline constexpr std::size_t kFilesPerList = 200;

struct PublishProgress {
    std::uint64_t files_done = 0;
    std::uint64_t files_total = 0;
    std::uint64_t bytes_done = 0;
    std::uint64_t bytes_total = 0;
};

struct PublishResult {
    std::uint64_t files = 0;       // published
    std::uint64_t bytes = 0;       // in them
    std::uint64_t copies = 0;      // left out: content published already
    std::uint64_t unreadable = 0;  // left out: files and folders that could not be read
    std::uint64_t lists = 0;
    bool interrupted = false;
};

class Publisher {
public:
    // `on_progress` is called a few times a second; publishing ends early when it returns false.
    using OnProgress = std::function<bool(const PublishProgress&)>;

    Publisher(Session& session, OnProgress on_progress);

    // When this returns, the server has taken all of it.
    [[nodiscard]] PublishResult publish(const FoundFiles& found);

private:
    void add(const std::string& path, const HashedFile& hashed);
    void send_list();

    struct HashOfHash {
        std::size_t operator()(const FileHash& hash) const noexcept { return hash.first_u32(); }
    };

    Session& session_;
    OnProgress on_progress_;
    PublishResult result_;
    std::unordered_set<FileHash, HashOfHash> published_;
    std::vector<FrozenRecord> list_;
};

// The record of one file: real name, size, type and format.
[[nodiscard]] FrozenRecord file_record(const std::string& path, const HashedFile& hashed);

}  // namespace vorrim::cli
