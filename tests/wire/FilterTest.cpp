// The operator's filters: which files are refused at publication.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Names = std::vector<std::string>;

// Four files that every filter below is tried on.
std::vector<Record> candidates() {
    const auto typed = [](std::uint32_t number, const char* name, std::uint32_t size,
                          const char* type) {
        Record record = file(hash_of(number), name, size);
        record.tags.push_back(text_tag(kType, type));
        return record;
    };
    std::vector<Record> files = {
        typed(1, "Song.mp3", 650, "Audio"), typed(2, "Film.avi", 651, "Video"),
        typed(3, "Tiny song", 1, "audio"), Record{hash_of(4), 0, 0, {int_tag(kSize, 0x80000000)}}};
    files.back().tags.push_back(hash_tag("tag", hash_of(9)));
    return files;
}

const char kSong[] = "Song.mp3";
const char kFilm[] = "Film.avi";
const char kTiny[] = "Tiny song";
const char kBare[] = "";  // the file without any text

// The names of the candidates that a server with these settings takes.
Names kept_with(const std::string& settings) {
    const ServerProcess server(settings);
    const WireClient client = WireClient::high(server);
    client.publish(candidates());
    const Names kept = names(client.search(anything()).records);
    EXPECT_EQ(server.status().files, kept.size()) << settings;
    return kept;
}

Names kept_by(const std::string& filter) {
    return kept_with("filter[0]=" + filter);
}

TEST(Filters, NumbersAreComparedSigned) {
    EXPECT_EQ(kept_by("(#SIZE > 650)"), (Names{kSong, kTiny, kBare}));
    EXPECT_EQ(kept_by("(#SIZE >= 650)"), (Names{kTiny, kBare}));
    EXPECT_EQ(kept_by("(#SIZE < 650)"), (Names{kSong, kFilm}));
    EXPECT_EQ(kept_by("(#SIZE <= 650)"), (Names{kFilm}));
    EXPECT_EQ(kept_by("(#SIZE != 650)"), (Names{kSong}));
    EXPECT_EQ(kept_by("(#SIZE = 650)"), (Names{kFilm, kTiny, kBare}));
}

TEST(Filters, ATermOfThreeWordsForgivesWhatItDoesNotKnow) {
    EXPECT_EQ(kept_by("(#SIZE about 650)"), (Names{kFilm, kTiny, kBare}));  // means equal
    EXPECT_EQ(kept_by("(#SIZE > 650 and more)"), (Names{kSong, kTiny, kBare}));
    EXPECT_EQ(kept_by("(#size > 0)"), (Names{kSong, kFilm, kTiny, kBare}));  // no such tag
    EXPECT_EQ(kept_by("(#SIZE > none)"), (Names{kBare}));                    // means 0
}

TEST(Filters, TextsMatchInSmallLettersOnly) {
    EXPECT_EQ(kept_by("song"), (Names{kFilm, kBare}));
    EXPECT_EQ(kept_by("((song)"), (Names{kFilm, kBare}));
    EXPECT_EQ(kept_by("Song"), (Names{kSong, kFilm, kTiny, kBare}));
    EXPECT_EQ(kept_by("(#TYPE audio)"), (Names{kFilm, kBare}));
    EXPECT_EQ(kept_by("(#TYPE Audio)"), (Names{kSong, kFilm, kTiny, kBare}));
    EXPECT_EQ(kept_by("(#FILENAME tiny)"), (Names{kSong, kFilm, kBare}));
}

TEST(Filters, AStarRefusesEverythingAndNothingWrittenEveryText) {
    EXPECT_EQ(kept_by("*"), Names{});
    EXPECT_EQ(kept_by("(*anything)"), Names{});
    EXPECT_EQ(kept_by(""), (Names{kBare}));
}

TEST(Filters, TermsCombineFromLeftToRight) {
    EXPECT_EQ(kept_by("(mp3)|(avi)"), (Names{kTiny, kBare}));
    EXPECT_EQ(kept_by("(song)!(mp3)"), (Names{kSong, kFilm, kBare}));
    EXPECT_EQ(kept_by("(song)x(mp3)"), (Names{kSong, kFilm, kBare}));
    EXPECT_EQ(kept_by("(song)&(#SIZE > 1)"), (Names{kFilm, kTiny, kBare}));
    EXPECT_EQ(kept_by("(mp3)|(avi)&(film)"), (Names{kSong, kTiny, kBare}));
}

TEST(Filters, BlanksCountOutsideATermAndNotBehindAWord) {
    EXPECT_EQ(kept_by("(mp3) | (song)"), (Names{kFilm, kTiny, kBare}));  // not a bar: and
    EXPECT_EQ(kept_by("( song )"), (Names{kFilm, kBare}));
}

TEST(Filters, AnOperatorWithoutATermHasNoEffect) {
    EXPECT_EQ(kept_by("(song)(mp3)"), (Names{kFilm, kBare}));
    EXPECT_EQ(kept_by("(song)|"), (Names{kFilm, kBare}));
}

TEST(Filters, AnyOneOfThemRefuses) {
    EXPECT_EQ(kept_with("filter[0]=mp3\nfilter[1]=(#SIZE = 651)\nfilter[3]=*"),
              (Names{kTiny, kBare}));
}

TEST(Filters, ABadOneIsReportedAndSkipped) {
    const ServerProcess server(
        "filter[0]=()()\nfilter[1]=(#TYPE audio )\nfilter[2]=(mp3)|(#SIZE > )\nfilter[3]=film");
    const std::string output = server.output();
    EXPECT_NE(output.find("\nBad filter: ()()\nBad filter: (#TYPE audio )\n"
                          "Bad filter: (mp3)|(#SIZE > )\nWelcome"),
              std::string::npos)
        << output;
    const WireClient client = WireClient::high(server);
    client.publish(candidates());
    EXPECT_EQ(server.status().files, 3U);
}

TEST(Filters, ARefusedFileHasNoSource) {
    const ServerProcess server("filter[0]=refused");
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "refused"), file(hash_of(2), "taken")});
    EXPECT_EQ(client.sources(hash_of(1)), std::nullopt);
    client.publish({file(hash_of(1), "under a better name"), file(hash_of(2), "refused now")});
    EXPECT_EQ(client.sources(hash_of(1)), std::vector<Source>{client.source()});
    EXPECT_EQ(client.sources(hash_of(2)), std::vector<Source>{client.source()});
}

}  // namespace
}  // namespace vorrim::wire
