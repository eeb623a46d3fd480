// Random operations on the index and on the model; every reply, every resume position, every total
// and every printed line must be the same.
//
//     VORRIM_SEED         the seed of the whole run (random, and printed, when not set)
//     VORRIM_OPERATIONS   operations in each of the runs (default 600)
#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <optional>

#include "client/FileIndex.h"
#include "client/KeywordFileIndex.h"
#include "search/UnknownOperations.h"
#include "tests/base/RecordingOutput.h"
#include "tests/client/Chance.h"
#include "tests/client/IndexModel.h"

namespace vorrim {
namespace {

using namespace test;

constexpr std::uint32_t kLongStay = 60;

struct Setup {
    const char* name;
    bool keywords;
    std::int32_t buckets;
    IndexTuning tuning;
    std::uint32_t distinct;  // how many hashes there are to choose from
    std::uint32_t stay;      // one operation in so many lets a client leave
    std::uint32_t words = 60;
};

class Duel {
public:
    Duel(const Setup& setup, std::uint64_t seed)
        : setup_(setup),
          chance_(seed ^ std::hash<std::string_view>()(setup.name), setup.distinct, setup.words),
          model_(setup.keywords, static_cast<std::uint32_t>(std::max(setup.buckets, 1))) {
        if (setup.keywords)
            index_ = std::make_unique<KeywordFileIndex>(setup.tuning);
        else
            index_ = std::make_unique<FileIndex>(setup.tuning);
        index_->init(setup.buckets);
        if (chance_.one_in(3)) add_filter({1, 0, 0, "abcd", "", {}});
        if (chance_.one_in(3))
            add_filter({0, 2, 0, "", "", {{3, 1, 7, "", "\x02", {}}, {3, 9, 0, "", "\x02", {}}}});
    }

    void operate() {
        if (chance_.one_in(setup_.stay)) return remove_client(chance_.client());
        if (chance_.one_in(16)) return search_while_files_change();
        const std::uint32_t kind = chance_.below(16);
        if (kind < 5) return publish();
        if (kind < 7) return ask_sources(chance_.hash());
        if (kind < 11) return begin_search();
        continue_search();
    }

    void compare_totals() {
        ASSERT_EQ(static_cast<std::size_t>(index_->source_total()), model_.source_total());
        ASSERT_EQ(index_->file_total(), model_.file_total());
        if (setup_.keywords) {
            ASSERT_EQ(static_cast<KeywordFileIndex&>(*index_).keyword_total(),
                      model_.keyword_total());
        }
        ASSERT_EQ(errors_.texts(), model_.lines);
        errors_.take();
        model_.lines.clear();
    }

    void empty() {
        for (int i = 0; i < 200; ++i)
            remove_client(chance_.client());
        compare_totals();
        ASSERT_EQ(index_->file_total(), 0u);
    }

private:
    static constexpr std::uint32_t kPairs = 6;
    struct Pair {
        Search real;
        ModelSearch model;
        std::uint32_t asker = 0;
        std::int32_t limit = 1;
    };

    void add_filter(const ModelNode& filter) {
        model_.filters.push_back(filter);
        std::vector<Filter> filters;
        for (const ModelNode& expression : model_.filters) {
            Search search;
            read_into(search, expression);
            filters.emplace_back(std::move(search));
        }
        index_->replace_filters(std::move(filters));
    }

    void publish() {
        std::vector<wire::Record> records;
        const std::uint32_t most = setup_.stay == kLongStay ? 130 : chance_.one_in(4) ? 90 : 12;
        for (std::uint32_t count = chance_.below(most); count > 0; --count) {
            records.push_back(chance_.record());
            if (chance_.one_in(9)) records.push_back(records.back());
        }
        std::vector<FrozenRecord> frozen;
        for (const wire::Record& record : records) {
            frozen.push_back(test::frozen(record));
            ASSERT_FALSE(frozen.back().empty());
        }
        const std::uint32_t client = chance_.client();
        const auto port = static_cast<std::uint16_t>(chance_.below(65536));
        index_->publish(std::move(frozen), ClientId(client), port);
        model_.publish(records, client, port);
    }

    void remove_client(std::uint32_t client) {
        index_->remove_client(ClientId(client));
        model_.remove_client(client);
    }

    void ask_sources(const wire::Hash& hash) {
        kx_memory_file out(64);
        const bool found = index_->write_sources(file_hash(hash), out);
        const wire::Bytes expected = model_.sources(hash);
        ASSERT_EQ(found, expected.size() != 0);
        ASSERT_EQ(bytes_of(out.written()), expected);
    }

    void begin_search() {
        const ModelNode root = chance_.expression(static_cast<int>(chance_.below(4)));
        Pair& pair = pairs_[chance_.below(kPairs)];
        ASSERT_NO_FATAL_FAILURE(read_into(pair.real, root));
        pair.model = ModelSearch{root, "", -1, 0};
        pair.asker = chance_.client();
        pair.limit = static_cast<std::int32_t>(chance_.one_in(3) ? 200 : 1 + chance_.below(12));
        batch(pair);
    }

    // Goes on where the other batches stopped, whatever has changed meanwhile; at the end, starts
    // over, which is what a walk at position -1 does.
    void continue_search() {
        Pair& pair = pairs_[chance_.below(kPairs)];
        if (pair.model.root) batch(pair);
    }

    // Between the steps of a batch files come, or clients leave: an entry that was there all along
    // is found once and in its place, or left for the next batch.
    void search_while_files_change() {
        const ModelNode root = chance_.expression(static_cast<int>(chance_.below(4)));
        Search real;
        ASSERT_NO_FATAL_FAILURE(read_into(real, root));
        const ModelSearch whole{root, "", -1, 0};
        const std::uint32_t asker = chance_.client();
        using Hashes = std::vector<FileHash>;
        const auto among = [](const Hashes& some, const Hashes& others) {
            Hashes kept;
            std::ranges::copy_if(some, std::back_inserter(kept), [&](const FileHash& hash) {
                return std::ranges::find(others, hash) != others.end();
            });
            return kept;
        };
        const auto all_from = [&](ModelSearch from) {
            Hashes hashes;
            for (const wire::Record& record : model_.search(from, 1'000'000, asker))
                hashes.push_back(file_hash(record.hash));
            return hashes;
        };

        Hashes lasting = all_from(whole);
        const bool come = chance_.one_in(2);
        std::uint32_t changes = 3;
        kx_memory_file out(4096);
        std::optional batch = index_->begin_batch(
            real, static_cast<std::int32_t>(1 + chance_.below(60)), ClientId(asker));
        while (!index_->continue_batch(*batch, out)) {
            if (changes == 0 || !chance_.one_in(3)) continue;
            --changes;
            come ? publish() : remove_client(chance_.client());
            lasting = among(lasting, all_from(whole));
        }

        Hashes found;
        for (out.seek(0); out.remaining() > 0;)
            found.push_back(FrozenRecord::from_network(out).view().hash());
        ASSERT_EQ(found.size(), batch->found());
        Hashes met = among(found, lasting);
        if (real.resume_position >= 0) {
            ModelSearch rest = whole;
            rest.position = real.resume_position;
            rest.offset = real.resume_offset;
            std::ranges::copy(among(all_from(rest), lasting), std::back_inserter(met));
        }
        ASSERT_EQ(met, lasting) << printed(real);
        batch.reset();  // which prints
        model_.lines.clear();
        errors_.take();
    }

    void batch(Pair& pair) {
        wire::Bytes got;
        std::uint32_t count = 0;
        if (chance_.one_in(4)) {
            SearchBatch batch = index_->begin_batch(pair.real, pair.limit, ClientId(pair.asker));
            while (!index_->continue_batch(
                batch, [&](RecordView record) { got.add(bytes_of(record.bytes())); })) {
            }
            count = batch.found();
        } else {
            kx_memory_file out(4096);
            count = index_->search(pair.real, out, pair.limit, ClientId(pair.asker));
            got = bytes_of(out.written());
        }
        const std::size_t lines_before = model_.lines.size();
        const std::vector<wire::Record> expected =
            model_.search(pair.model, pair.limit, pair.asker);
        const std::size_t most = lines_before + UnknownReports::kMostLines;
        if (const std::size_t all = model_.lines.size(); all > most) {
            model_.lines.resize(most);
            model_.lines.push_back(" and " + std::to_string(all - most) + " more\n");
        }
        wire::Bytes expected_bytes;
        for (const wire::Record& record : expected)
            expected_bytes.add(record.encode());
        std::string printed;
        pair.real.print(printed);
        ASSERT_EQ(count, expected.size()) << printed;
        ASSERT_EQ(got, expected_bytes) << printed;
        ASSERT_EQ(pair.real.resume_position, pair.model.position) << printed;
        ASSERT_EQ(pair.real.resume_offset, pair.model.offset) << printed;
    }

    const Setup& setup_;
    Chance chance_;
    ModelIndex model_;
    std::unique_ptr<FileIndex> index_;
    RecordingOutput errors_;
    Pair pairs_[kPairs];
};

class IndexModel : public testing::TestWithParam<Setup> {};

TEST_P(IndexModel, AnswersAsTheModelDoes) {
    const std::uint64_t seed = seed_of_run();
    const std::uint64_t operations = from_environment("VORRIM_OPERATIONS", 600);
    std::cout << "VORRIM_SEED=" << seed << " VORRIM_OPERATIONS=" << operations << '\n';
    Duel duel(GetParam(), seed);
    for (std::uint64_t i = 0; i < operations; ++i) {
        duel.operate();
        duel.compare_totals();
        if (HasFatalFailure()) FAIL() << "operation " << i << " of seed " << seed;
    }
    duel.empty();
}

// Rows run out after a thousand publications, slices and steps are small, and candidates are sorted
// or walked; the long runs have lists of thousands and segments that are packed, the last of them
// words frequent enough for bitmaps: every way through the index is taken.
constexpr IndexTuning kEdges{
    .row_limit = 1100, .segment_rows = 4096, .slice = 5, .rows_to_judge = 8, .step = 40};
constexpr IndexTuning kOnlyWalks{
    .row_limit = 4000, .slice = 64, .rows_to_judge = 100000, .step = 900};
constexpr IndexTuning kLong{
    .row_limit = 60000, .segment_rows = 4096, .slice = 256, .rows_to_judge = 16, .step = 60};
constexpr IndexTuning kFrequent{
    .row_limit = 60000, .segment_rows = 8192, .slice = 256, .rows_to_judge = 16, .step = 60};

INSTANTIATE_TEST_SUITE_P(
    Tables, IndexModel,
    testing::Values(Setup{"PlainOneBucket", false, 0, kEdges, 1000, 8},
                    Setup{"PlainSeven", false, 7, {}, 3000, 5},
                    Setup{"PlainDefault", false, 2333, kOnlyWalks, 3000, 20},
                    Setup{"PlainTwoBillion", false, 2000000000, kEdges, 1000, 8},
                    Setup{"PlainLong", false, 31, {}, 1000000, kLongStay},
                    Setup{"KeywordOneBucket", true, 1, {}, 3000, 20},
                    Setup{"KeywordSeven", true, 7, kEdges, 300, 5},
                    Setup{"KeywordDefault", true, 2333, kEdges, 1000, 8},
                    Setup{"KeywordTwoBillion", true, 2000000000, kOnlyWalks, 3000, 20},
                    Setup{"KeywordLong", true, 2333, kLong, 1000000, kLongStay},
                    Setup{"KeywordFrequent", true, 2333, kFrequent, 1000000, kLongStay, 9}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace vorrim
