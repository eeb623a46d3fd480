#include "client/ClientConnection.h"
#include "client/ClientTable.h"
#include "client/KeywordFileIndex.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

class NoServers final : public KnownServers {
public:
    [[nodiscard]] bool is_public() const override { return false; }
    void onHello(std::uint32_t, std::uint16_t, Told) override {}
    void onListHeader(std::uint32_t, std::uint16_t, Told) override {}
    void learn(std::uint32_t, std::uint16_t, Told) override {}
    void writeWorkingList(kx_memory_file& out) const override { write_8(out, 0); }
};

class ClientTableTest : public PoolFixture {
protected:
    // A connection that is in the table but has never been served.
    std::unique_ptr<ClientConnection> connect() {
        return std::make_unique<ClientConnection>(std::move(make_pair()[0]), pool_, service_);
    }

    static FrozenRecord record(std::uint8_t hash_byte) {
        kx_memory_file bytes(64);
        for (int i = 0; i < 16; ++i)
            write_8(bytes, hash_byte);
        write_32(bytes, 0);
        write_16(bytes, 4662);
        write_32(bytes, 0);
        kx_memory_file stream = kx_memory_file::reading(bytes.written());
        return FrozenRecord::from_network(stream);
    }

    static FileHash hash_of(std::uint8_t byte) {
        FileHash hash;
        hash.bytes.fill(std::byte{byte});
        return hash;
    }

    // The client that answers to the identifier, or null.
    const ClientConnection* holder(ClientId id) const {
        const ClientConnection* found = nullptr;
        table_.with_id(id, [&](ClientConnection& client) { found = &client; });
        return found;
    }

    Random random_{7};
    ClientTable table_{random_, kHighestLowId - 3};
    KeywordFileIndex files_;
    RoomList rooms_;
    WelcomeLines welcome_;
    NoServers servers_;
    ServiceSettings settings_;
    FrozenRecord own_ = record(0);
    ClientService service_{settings_, own_, table_, files_, rooms_, welcome_, servers_};
};

TEST_F(ClientTableTest, AnAddressIsClaimedByOneAndFreeWhenThatOneIsGone) {
    const ClientId address(0x0100007F);
    auto first = connect();
    auto second = connect();
    EXPECT_TRUE(table_.claim(*first, address));
    EXPECT_FALSE(table_.claim(*second, address));
    EXPECT_EQ(holder(address), first.get());
    first.reset();
    EXPECT_EQ(holder(address), nullptr);
    EXPECT_TRUE(table_.claim(*second, address));
    EXPECT_EQ(table_.count(), 1);
}

TEST_F(ClientTableTest, LowIdentifiersRunOutAndComeBackOneAtATime) {
    std::vector<std::unique_ptr<ClientConnection>> clients;
    for (std::uint32_t id = kHighestLowId - 3; id <= kHighestLowId; ++id) {
        clients.push_back(connect());
        ASSERT_TRUE(table_.assign_low_id(*clients.back()));
        EXPECT_EQ(table_.id_of(*clients.back()), ClientId(id));
    }
    auto late = connect();
    EXPECT_FALSE(table_.assign_low_id(*late));
    // Two leave before the next one comes: the later release replaces the earlier.
    clients[0].reset();
    clients[1].reset();
    EXPECT_TRUE(table_.assign_low_id(*late));
    EXPECT_EQ(table_.id_of(*late), ClientId(kHighestLowId - 2));
    auto later = connect();
    EXPECT_FALSE(table_.assign_low_id(*later));
    // The highest low identifier is never recycled.
    clients[3].reset();
    EXPECT_FALSE(table_.assign_low_id(*later));
}

TEST_F(ClientTableTest, AnIdentifierInUseIsNeverGivenTwice) {
    // An address that ends in .0 is a number of the low range.
    auto addressed = connect();
    ASSERT_TRUE(table_.claim(*addressed, ClientId(kHighestLowId - 3)));
    auto low = connect();
    ASSERT_TRUE(table_.assign_low_id(*low));
    EXPECT_EQ(table_.id_of(*low), ClientId(kHighestLowId - 2));
}

TEST_F(ClientTableTest, AmongEqualsTheFirstToArriveIsFound) {
    auto first = connect();
    auto second = connect();
    auto third = connect();
    EXPECT_EQ(holder(ClientId(0)), first.get());
    // Entering a shared key late does not lose the earlier arrival its place.
    table_.set_record(*third, record(9));
    table_.set_record(*second, record(9));
    table_.set_record(*first, record(9));
    const auto first_record = [&] {
        const std::byte* found = nullptr;
        table_.with_hash(hash_of(9), [&](RecordView view) { found = view.bytes().data(); });
        return found;
    };
    EXPECT_EQ(first_record(), table_.record_of(*first).bytes().data());
    ASSERT_TRUE(table_.assign_low_id(*first));
    EXPECT_EQ(holder(ClientId(0)), second.get());
    first.reset();
    EXPECT_EQ(first_record(), table_.record_of(*second).bytes().data());
    third.reset();
    second.reset();
    EXPECT_EQ(first_record(), nullptr);
    EXPECT_EQ(holder(ClientId(0)), nullptr);
    EXPECT_EQ(table_.count(), 0);
}

}  // namespace
}  // namespace vorrim
