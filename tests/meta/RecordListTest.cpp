#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <unistd.h>

#include "base/kx_err.h"
#include "meta/FileList.h"
#include "meta/ServerList.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

using test::Bytes;
using test::operator+;
using test::hex;

const Bytes kNoTags = hex("00 00 00 00");
const Bytes kFile = test::kCountingHash + hex("05 00 00 00 36 12") + kNoTags;
const Bytes kServer = hex("7F 00 00 01 35 12") + kNoTags;

FileList::Record file(std::uint8_t key) {
    auto record = std::make_shared<Meta>();
    FileHash hash;
    hash.bytes[0] = std::byte{key};
    record->setHash(hash);
    return record;
}

ServerList::Record server(const char* address, std::uint16_t port) {
    auto record = std::make_shared<ServerMeta>();
    EXPECT_TRUE(record->setAddress(address, port));
    return record;
}

template <typename List>
bool decode_network(List& list, const Bytes& bytes) {
    kx_memory_file stream = test::stream_of(bytes);
    return list.fromNetwork(stream);
}

template <typename List>
bool decode_disk(List& list, const Bytes& bytes) {
    kx_memory_file stream = test::stream_of(bytes);
    return list.fromDisk(stream);
}

class ScratchFile : public testing::Test {
protected:
    ScratchFile() {
        std::string pattern = (std::filesystem::temp_directory_path() / "listXXXXXX").string();
        folder_ = mkdtemp(pattern.data());
        name_ = (folder_ / "serverList.met").string();
    }
    ~ScratchFile() override { std::filesystem::remove_all(folder_); }

    void write(const Bytes& bytes) const {
        std::ofstream out(name_, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    [[nodiscard]] Bytes read() const {
        std::ifstream in(name_, std::ios::binary);
        Bytes bytes;
        for (std::istreambuf_iterator<char> at(in), end; at != end; ++at) {
            bytes.push_back(static_cast<std::byte>(*at));
        }
        return bytes;
    }

    std::filesystem::path folder_;
    std::string name_;
};

using ServerListFile = ScratchFile;

TEST(FileList, NetworkFormTravelsBothWays) {
    FileList list;
    ASSERT_TRUE(decode_network(list, hex("02 00 00 00") + kFile + kFile));
    EXPECT_EQ(list.count(), 2U);
    EXPECT_EQ(test::network_form(list), hex("02 00 00 00") + kFile + kFile);
    EXPECT_GE(list.size(), test::network_form(list).size());
    ASSERT_TRUE(decode_network(list, hex("01 00 00 00") + kFile));
    EXPECT_EQ(list.count(), 3U) << "decoding appends";
    ASSERT_TRUE(decode_network(list, hex("FF FF FF FF") + kFile));
    EXPECT_EQ(list.count(), 3U) << "a negative count reads none";
}

TEST(FileList, ARecordThatCannotBeReadIsSaidAndThoseBeforeItStay) {
    test::RecordedOutput output;
    FileList list;
    EXPECT_FALSE(decode_network(list, hex("FF FF FF 7F") + kFile + hex("00")));
    EXPECT_EQ(output.take(), "V:meta #:2147483647, n=1\nV:ERROR: FileList::fromNetwork()\n");
    EXPECT_EQ(list.count(), 1U);
    EXPECT_FALSE(decode_network(list, hex("01 00 00")));
    EXPECT_EQ(output.take(), "");

    ServerList servers;
    EXPECT_FALSE(decode_network(servers, hex("02 00 00 00") + kFile));
    EXPECT_EQ(output.take(), "V:meta #:2, n=1\nV:ERROR: ServerList::fromBytes()\n");
    EXPECT_EQ(servers.count(), 1U);
}

TEST(FileList, DiskFormStartsWithItsMarker) {
    test::RecordedOutput output;
    const Bytes record = kNoTags + test::kCountingHash + hex("00 00") + kNoTags;
    FileList list;
    EXPECT_FALSE(decode_disk(list, hex("0D 01 00 00 00") + record));
    EXPECT_EQ(output.take(), "");
    ASSERT_TRUE(decode_disk(list, hex("0E 01 00 00 00") + record));
    EXPECT_EQ(test::disk_form(list), hex("0E 01 00 00 00") + record);
    Bytes promised_tag = record;
    promised_tag[promised_tag.size() - 4] = std::byte{1};
    EXPECT_FALSE(decode_disk(list, hex("0E 01 00 00 00") + promised_tag));
    EXPECT_EQ(output.take(),
              "E:ERROR: Meta::fromDisk()\nV:meta #:1, n=0\nE:ERROR: FileList::fromDisk()\n");
}

TEST(FileList, AddUniqueGoesByHashAndLeavesARefusedRecordWithTheCaller) {
    FileList list;
    EXPECT_FALSE(list.addUnique(file(1)));
    EXPECT_FALSE(list.addUnique(file(2)));
    const FileList::Record again = file(1);
    EXPECT_TRUE(list.addUnique(again));
    EXPECT_EQ(again.use_count(), 1);
    EXPECT_EQ(list.count(), 2U);
    EXPECT_EQ(list.findByHash(again->hash())->hash(), again->hash());
    EXPECT_EQ(list.findByHash(file(3)->hash()), nullptr);
}

TEST(FileList, ClearEndsRecordsAndRemoveAllHandsThemOver) {
    FileList list;
    list.append(file(1));
    const std::weak_ptr<Meta> watched = list.findByHash(file(1)->hash());
    {
        const auto records = list.removeAll();
        EXPECT_EQ(list.count(), 0U);
        EXPECT_FALSE(watched.expired());
        list.append(records.front());
    }
    list.clear();
    EXPECT_TRUE(watched.expired());
}

TEST(FileList, SetOwnerReachesEveryRecord) {
    FileList list;
    list.append(file(1));
    list.append(file(2));
    list.setOwner(ClientId(7), 4662);
    list.forEach([](const Meta& record) {
        EXPECT_EQ(record.id(), 7U);
        EXPECT_EQ(record.port(), 4662);
    });
}

TEST(FileList, ARecordThatFailsToEncodeIsSaidAndTheOthersAreWritten) {
    test::RecordedOutput output;
    FileList list;
    list.append(file(1));
    const std::string too_long(65'535, 'x');
    list.append(file(2));
    list.findByHash(file(2)->hash())->setName(too_long);
    list.append(file(3));
    kx_memory_file out(1024);
    EXPECT_FALSE(list.toNetwork(out));
    EXPECT_EQ(output.take(),
              "V:**KX error in MetaTagString::toBytes()\n"
              "E:ERROR: Serializable::saveList()\n"    // the tag, said by its record
              "E:ERROR: Serializable::saveList()\n");  // the record, said by the list
    const Bytes bytes = test::copy_of(out.contents());
    EXPECT_EQ(test::to_hex(std::span(bytes).first(5)), "03 00 00 00 01 ");
    EXPECT_EQ(bytes[bytes.size() - kFile.size()], std::byte{3});
}

TEST(ServerList, FindsByAddressAndPort) {
    ServerList list;
    EXPECT_FALSE(list.addUnique(server("1.2.3.4", 4661)));
    EXPECT_FALSE(list.addUnique(server("1.2.3.4", 4662)));
    EXPECT_TRUE(list.addUnique(server("1.2.3.4", 4661)));
    EXPECT_EQ(list.find(0x04030201, 4662)->port(), 4662);
    EXPECT_EQ(list.find(0x04030201, 4663), nullptr);
    const ServerList::Record added = list.findOrAdd(0x04030201, 4663);
    EXPECT_TRUE(added->tags().empty());
    EXPECT_EQ(added->history(), 0U);
    EXPECT_EQ(list.findOrAdd(0x04030201, 4663), added);
    EXPECT_EQ(list.count(), 3U);
    EXPECT_TRUE(list.remove(*added));
    EXPECT_FALSE(list.remove(*added));
}

TEST(ServerList, AVisitRemovesWhatItJudgesSo) {
    ServerList list;
    for (std::uint16_t port = 1; port <= 5; ++port)
        list.append(server("1.2.3.4", port));
    const auto removed = list.visit([](ServerMeta& seen) {
        seen.addPing();
        return seen.port() % 2 == 0 ? Visit::remove : Visit::keep;
    });
    ASSERT_EQ(removed.size(), 2U);
    EXPECT_EQ(removed.front()->port(), 2);
    std::string order;
    list.forEach([&](const ServerMeta& left) {
        EXPECT_EQ(left.history(), 1U);
        order += std::to_string(left.port());
    });
    EXPECT_EQ(order, "135");
}

TEST(ServerList, CopiesAreRecordsOfTheirOwn) {
    ServerList list;
    list.append(server("1.2.3.4", 4661));
    ServerList copy;
    copy.append(server("5.6.7.8", 1));
    copy.copyFrom(list);
    copy.copyFrom(copy);
    ASSERT_EQ(copy.count(), 1U);
    EXPECT_NE(copy.find(0x04030201, 4661), nullptr);
    EXPECT_NE(copy.find(0x04030201, 4661), list.find(0x04030201, 4661));
    EXPECT_NE(copy.find(0x04030201, 4661)->findTag("users"), nullptr) << "copies are normalised";
}

TEST_F(ServerListFile, AnEmptyListIsFiveBytes) {
    ServerList list;
    ASSERT_TRUE(list.saveToFile(name_));
    EXPECT_EQ(read(), hex("0E 00 00 00 00"));
    EXPECT_TRUE(list.loadFromFile(name_));
    EXPECT_EQ(list.count(), 0U);
}

TEST_F(ServerListFile, OneServerIsLoadedAndNormalised) {
    write(hex("0E 01 00 00 00") + kServer);
    ServerList list;
    ASSERT_TRUE(list.loadFromFile(name_));
    const ServerList::Record loaded = list.find(0x0100007F, 4661);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->tags().size(), 5U);
    loaded->setHistory(4);
    ASSERT_TRUE(list.saveToFile(name_));
    ServerList again;
    ASSERT_TRUE(again.loadFromFile(name_));
    EXPECT_EQ(again.find(0x0100007F, 4661)->history(), 4U);
}

TEST_F(ServerListFile, AMissingFileAndAForeignMarkerLoadNothing) {
    test::RecordedOutput output;
    ServerList list;
    EXPECT_FALSE(list.loadFromFile(name_));
    write(hex("0D 01 00 00 00") + kServer);
    EXPECT_FALSE(list.loadFromFile(name_));
    EXPECT_EQ(list.count(), 0U);
    EXPECT_EQ(output.take(), "");
}

TEST_F(ServerListFile, EndingInsideFixedFieldsRaisesAndInsideTagsIsSaid) {
    test::RecordedOutput output;
    write(hex("0E 02 00 00 00") + kServer);
    ServerList list;
    EXPECT_THROW((void)list.loadFromFile(name_), kx_err);
    EXPECT_EQ(list.count(), 1U);
    EXPECT_EQ(output.take(), "");

    write(hex("0E 02 00 00 00") + kServer + hex("01 02 03 04 35 12 01 00 00 00"));
    EXPECT_FALSE(list.loadFromFile(name_));
    EXPECT_EQ(list.count(), 2U);
    EXPECT_EQ(output.take(),
              "E:ERROR: ServerMeta::fromDisk()\nV:meta #:2, n=1\n"
              "E:ERROR: ServerList::fromBytes()\n");
    write({});
    EXPECT_THROW((void)list.loadFromFile(name_), kx_err);
}

TEST_F(ServerListFile, ASaveThatFailsLeavesTheOldFile) {
    test::RecordedOutput output;
    write(hex("0E 01 00 00 00") + kServer);
    ServerList list;
    list.append(server("1.2.3.4", 4661));
    list.find(0x04030201, 4661)->setName(std::string(65'535, 'x'));
    EXPECT_FALSE(list.saveToFile(name_));
    EXPECT_EQ(read(), hex("0E 01 00 00 00") + kServer);
    EXPECT_FALSE(list.saveToFile((folder_ / "missing" / "serverList.met").string()));
}

TEST_F(ServerListFile, LoadsListsLongerThanOneChunk) {
    ServerList list;
    for (std::uint32_t i = 1; i <= 1000; ++i)
        (void)list.findOrAdd(i, 4661);
    ASSERT_TRUE(list.saveToFile(name_));
    ServerList again;
    ASSERT_TRUE(again.loadFromFile(name_));
    EXPECT_EQ(again.count(), 1000U);
    EXPECT_NE(again.find(1000, 4661), nullptr);
}

}  // namespace
}  // namespace vorrim
