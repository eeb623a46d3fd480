#include "FileHasher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <system_error>
#include <unistd.h>

#include "Failure.h"
#include "platform/Descriptor.h"

namespace vorrim::cli {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;  // read and hashed at a time
constexpr std::size_t kDigest = 32;

struct ContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct AlgorithmDeleter {
    void operator()(EVP_MD* algorithm) const { EVP_MD_free(algorithm); }
};

// What a thread keeps from one file to the next: finding the algorithm by name takes longer than
// hashing a small file.
class Sha256 {
public:
    bool begin() { return EVP_DigestInit_ex(context_.get(), algorithm_.get(), nullptr) == 1; }
    bool add(std::size_t count) {
        return EVP_DigestUpdate(context_.get(), block_->data(), count) == 1;
    }
    std::optional<FileHash> end() {
        std::array<unsigned char, kDigest> digest{};
        unsigned length = 0;
        if (EVP_DigestFinal_ex(context_.get(), digest.data(), &length) != 1) return std::nullopt;
        FileHash hash;
        std::transform(digest.begin(), digest.begin() + hash.bytes.size(), hash.bytes.begin(),
                       [](unsigned char byte) { return std::byte{byte}; });
        return hash;
    }
    [[nodiscard]] unsigned char* block() { return block_->data(); }

private:
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context_{EVP_MD_CTX_new()};
    std::unique_ptr<EVP_MD, AlgorithmDeleter> algorithm_{EVP_MD_fetch(nullptr, "SHA256", nullptr)};
    std::unique_ptr<std::array<unsigned char, kBlock>> block_{
        std::make_unique<std::array<unsigned char, kBlock>>()};
};

}  // namespace

std::optional<HashedFile> hash_file(const std::string& path, const std::atomic<bool>& stop,
                                    std::atomic<std::uint64_t>& progress) {
    thread_local Sha256 sha;
    // A file that has become a pipe since it was found must not hold us up.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file.open() || !sha.begin()) return std::nullopt;
    std::uint64_t size = 0;
    for (;;) {
        if (stop) return std::nullopt;
        const ssize_t got = ::read(file.get(), sha.block(), kBlock);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        const auto count = static_cast<std::size_t>(got);
        if (!sha.add(count)) return std::nullopt;
        size += count;
        progress += count;
    }
    const std::optional<FileHash> hash = sha.end();
    if (!hash) return std::nullopt;
    return HashedFile{*hash, size};
}

FileHasher::FileHasher(std::span<const FoundFile> files) : files_(files), slots_(files.size()) {
    const unsigned processors = std::max(std::thread::hardware_concurrency(), 1u);
    const unsigned count = std::min(processors, kMostWorkers);
    workers_.reserve(count);
    while (workers_.size() < count) {
        try {
            workers_.emplace_back([this] { work(); });
        } catch (const std::system_error&) {
            if (workers_.empty()) throw Failure("the system refuses another thread");
            return;  // fewer take longer
        }
    }
}

FileHasher::~FileHasher() {
    stop_ = true;
    for (std::thread& worker : workers_)
        worker.join();
}

void FileHasher::work() {
    while (!stop_) {
        const std::size_t index = claimed_++;
        if (index >= files_.size()) return;
        std::optional<HashedFile> result = hash_file(files_[index].path, stop_, bytes_);
        const std::lock_guard guard(lock_);
        slots_[index] = {true, result};
        done_.notify_one();
    }
}

FileHasher::Next FileHasher::next(std::optional<HashedFile>& result,
                                  std::chrono::milliseconds patience) {
    if (taken_ >= files_.size()) return Next::finished;
    std::unique_lock guard(lock_);
    if (!done_.wait_for(guard, patience, [this] { return slots_[taken_].done; })) {
        return Next::not_yet;
    }
    result = slots_[taken_].result;
    ++taken_;
    return Next::ready;
}

}  // namespace vorrim::cli
