#include <sqlite3.h>
#include <stdexcept>

#include "base/file/primitives.h"
#include "bench/common/Engine.h"

namespace vorrim::bench {
namespace {

class Fts5 final : public Engine {
public:
    Fts5() {
        must(sqlite3_open(":memory:", &database_));
        // The forms that answer fastest: no copy of the texts, no positions within them.
        run("CREATE VIRTUAL TABLE words USING fts5(texts, content='', detail=none, columnsize=0,"
            " tokenize='ascii')");
        run("CREATE TABLE records(number INTEGER PRIMARY KEY, record BLOB)");
    }
    ~Fts5() override {
        sqlite3_finalize(find_);
        sqlite3_close(database_);
    }

    [[nodiscard]] const char* name() const override { return "fts5"; }
    [[nodiscard]] bool answers(const QueryClass& of) const override { return !of.scan; }

    void load(const std::vector<RecordView>& records) override {
        run("BEGIN");
        sqlite3_stmt* const texts = prepare("INSERT INTO words(rowid, texts) VALUES(?, ?)");
        sqlite3_stmt* const blob = prepare("INSERT INTO records VALUES(?, ?)");
        sqlite3_int64 number = 0;
        for (const RecordView record : records) {
            ++number;
            const std::string folded = folded_texts(record);
            must(sqlite3_bind_int64(texts, 1, number));
            must(sqlite3_bind_text(texts, 2, folded.data(), static_cast<int>(folded.size()),
                                   SQLITE_TRANSIENT));
            step(texts);
            must(sqlite3_bind_int64(blob, 1, number));
            must(sqlite3_bind_blob(blob, 2, record.bytes().data(),
                                   static_cast<int>(record.bytes().size()), SQLITE_STATIC));
            step(blob);
        }
        sqlite3_finalize(texts);
        sqlite3_finalize(blob);
        run("COMMIT");
        run("INSERT INTO words(words) VALUES('optimize')");
        find_ = prepare(
            "SELECT record FROM words JOIN records ON number = words.rowid WHERE words MATCH ?"
            " LIMIT ?");
    }

    std::uint32_t search(const Query& query, kx_memory_file& out) override {
        std::string asked;
        for (const std::string& word : query.words)
            asked += (asked.empty() ? "\"" : " AND \"") + word + "\"";
        must(sqlite3_bind_text(find_, 1, asked.data(), static_cast<int>(asked.size()),
                               SQLITE_STATIC));
        must(sqlite3_bind_int(find_, 2, kLimit));
        std::uint32_t found = 0;
        while (sqlite3_step(find_) == SQLITE_ROW) {
            const auto* const bytes = static_cast<const std::byte*>(sqlite3_column_blob(find_, 0));
            write_bytes(out,
                        std::span(bytes, static_cast<std::size_t>(sqlite3_column_bytes(find_, 0))));
            ++found;
        }
        must(sqlite3_reset(find_));
        return found;
    }

private:
    void must(int result) {
        if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(database_));
    }
    void run(const char* sql) { must(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        must(sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr));
        return statement;
    }
    void step(sqlite3_stmt* statement) {
        if (sqlite3_step(statement) != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(database_));
        must(sqlite3_reset(statement));
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* find_ = nullptr;
};

}  // namespace

std::unique_ptr<Engine> make_fts5() {
    return std::make_unique<Fts5>();
}

}  // namespace vorrim::bench
