#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <xapian.h>

#include "base/file/primitives.h"
#include "bench/common/Engine.h"
#include "client/index/keyword_hash.h"

namespace vorrim::bench {
namespace {

// Bool weights and documents in order of their numbers: no ranking, which nobody asked for here.
class XapianEngine final : public Engine {
public:
    explicit XapianEngine(XapianKind kind) : kind_(kind) {
        if (kind == XapianKind::memory) {
            database_ = Xapian::WritableDatabase("", Xapian::DB_BACKEND_INMEMORY);
            return;
        }
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vorrim-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
        folder_ = pattern;
        database_ = Xapian::WritableDatabase((folder_ / "xapian").string(),
                                             Xapian::DB_CREATE | Xapian::DB_NO_SYNC);
    }
    ~XapianEngine() override {
        database_.close();
        if (!folder_.empty()) std::filesystem::remove_all(folder_);
    }

    [[nodiscard]] const char* name() const override {
        return kind_ == XapianKind::memory ? "xapian_memory" : "xapian_disk";
    }
    [[nodiscard]] bool answers(const QueryClass& of) const override { return !of.scan; }

    void load(const std::vector<RecordView>& records) override {
        for (const RecordView record : records) {
            Xapian::Document document;
            document.set_data(std::string(reinterpret_cast<const char*>(record.bytes().data()),
                                          record.bytes().size()));
            const std::string texts = folded_texts(record);
            for (std::size_t at = texts.find_first_not_of(kWordSeparators); at != texts.npos;) {
                const std::size_t end =
                    std::min(texts.find_first_of(kWordSeparators, at), texts.size());
                document.add_boolean_term(texts.substr(at, end - at));
                at = texts.find_first_not_of(kWordSeparators, end);
            }
            database_.add_document(document);
        }
        database_.commit();
    }

    std::uint32_t search(const Query& query, kx_memory_file& out) override {
        Xapian::Enquire enquire(database_);
        enquire.set_query(
            Xapian::Query(Xapian::Query::OP_AND, query.words.begin(), query.words.end()));
        enquire.set_weighting_scheme(Xapian::BoolWeight());
        enquire.set_docid_order(Xapian::Enquire::ASCENDING);
        const Xapian::MSet found = enquire.get_mset(0, kLimit);
        for (auto each = found.begin(); each != found.end(); ++each) {
            const std::string record = each.get_document().get_data();
            write_bytes(out, std::as_bytes(std::span(record)));
        }
        return found.size();
    }

private:
    const XapianKind kind_;
    std::filesystem::path folder_;
    Xapian::WritableDatabase database_;
};

}  // namespace

std::unique_ptr<Engine> make_xapian(XapianKind kind) {
    return std::make_unique<XapianEngine>(kind);
}

}  // namespace vorrim::bench
