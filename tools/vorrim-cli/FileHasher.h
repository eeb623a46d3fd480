#pragma once
// The hashes of many files, computed beside the caller and handed out in order.
//
//     files ──► worker, worker ──► results, by index ──► next(), next(), ...
//
// A hash is the first 16 bytes of the SHA-256 of a file's content.
//
// Ownership: the list of files is borrowed and outlives this. Destroying it stops the workers
// between two blocks and joins them.
// Threads: one caller of `next`; the counter may be read from anywhere.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "FileWalk.h"
#include "meta/FileHash.h"

namespace vorrim::cli {

struct HashedFile {
    FileHash hash;
    std::uint64_t size;  // bytes that were hashed: what the file really held
};

// One file, on the calling thread. Nothing when it cannot be read to its end, or when `stop` is set
// meanwhile. `progress` counts the bytes on the way.
[[nodiscard]] std::optional<HashedFile> hash_file(const std::string& path,
                                                  const std::atomic<bool>& stop,
                                                  std::atomic<std::uint64_t>& progress);

class FileHasher {
public:
    // At most two workers: the disk is the limit, and the machine has other work.
    static constexpr unsigned kMostWorkers = 2;

    // Raises Failure when the system refuses even one thread.
    explicit FileHasher(std::span<const FoundFile> files);
    ~FileHasher();
    FileHasher(const FileHasher&) = delete;
    FileHasher& operator=(const FileHasher&) = delete;

    enum class Next { ready, not_yet, finished };
    // The next file in the order of the list; an unreadable one is ready with an empty result.
    // Waits for at most `patience`.
    [[nodiscard]] Next next(std::optional<HashedFile>& result, std::chrono::milliseconds patience);
    // How many files `next` has handed out: the index of the following one.
    [[nodiscard]] std::size_t taken() const noexcept { return taken_; }
    [[nodiscard]] std::uint64_t bytes_done() const noexcept { return bytes_; }

private:
    struct Slot {
        bool done = false;
        std::optional<HashedFile> result;
    };

    void work();

    const std::span<const FoundFile> files_;
    std::size_t taken_ = 0;  // the caller's

    std::atomic<bool> stop_ = false;
    std::atomic<std::size_t> claimed_ = 0;
    std::atomic<std::uint64_t> bytes_ = 0;

    std::mutex lock_;  // guards slots_
    std::condition_variable done_;
    std::vector<Slot> slots_;

    std::vector<std::thread> workers_;
};

}  // namespace vorrim::cli
