#pragma once
// Whatever can be asked the searches that are measured: the index, other search engines on the same
// records, and the plainest ways there are.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "bench/common/Queries.h"
#include "meta/RecordView.h"

namespace vorrim::bench {

// At most so many results are wanted, as a server's default.
inline constexpr std::uint32_t kLimit = 200;

class Engine {
public:
    virtual ~Engine() = default;
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    [[nodiscard]] virtual const char* name() const = 0;
    [[nodiscard]] virtual bool answers(const QueryClass&) const { return true; }
    // All records, in the order of their publication, valid as long as the engine.
    virtual void load(const std::vector<RecordView>& records) = 0;
    // Appends the records that match, in full, and returns their number.
    virtual std::uint32_t search(const Query& query, kx_memory_file& out) = 0;
};

// The first word's list, front to back, every record evaluated; for a scan all records.
[[nodiscard]] std::unique_ptr<Engine> make_walk();
// Sorted lists of whole words, intersected, nothing evaluated: no expression, no substring, no
// source that leaves.
[[nodiscard]] std::unique_ptr<Engine> make_postings();
// A scan of the folded texts that lie behind one another in memory, of all of them or until there
// are enough; scans only.
enum class LinearKind { whole, stopping };
[[nodiscard]] std::unique_ptr<Engine> make_linear(LinearKind kind);
// SQLite's full-text search, in memory, with the records in a table beside it.
[[nodiscard]] std::unique_ptr<Engine> make_fts5();
// RediSearch in a server of its own, which has to be installed.
[[nodiscard]] bool has_redisearch();
[[nodiscard]] std::unique_ptr<Engine> make_redisearch();
// Xapian, in memory or in files in the folder for temporary ones, the records as documents' data.
enum class XapianKind { memory, disk };
[[nodiscard]] std::unique_ptr<Engine> make_xapian(XapianKind kind);

// The name of a file and its other texts, folded, one behind the other.
[[nodiscard]] std::string folded_texts(RecordView record);

}  // namespace vorrim::bench
