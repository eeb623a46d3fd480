#include <algorithm>
#include <thread>

#include "client/ClientConnection.h"
#include "client/ClientTable.h"
#include "client/KeywordFileIndex.h"
#include "meta/Meta.h"
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

    Random random_{7};
    ClientTable table_{random_, kHighestLowId - 3};
    KeywordFileIndex files_;
    RoomList rooms_;
    WelcomeLines welcome_;
    NoServers servers_;
    ServiceSettings settings_;
    FrozenRecord own_ = FrozenRecord::from(Meta());
    ClientService service_{settings_, own_, table_, files_, rooms_, welcome_, servers_};
};

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

TEST_F(ClientTableTest, AWalkMeetsOnceAndInOrderWhoeverStaysWhileOthersLeave) {
    std::vector<std::uint64_t> staying;
    std::vector<std::unique_ptr<ClientConnection>> clients;
    std::vector<std::unique_ptr<ClientConnection>> leaving;
    for (int i = 0; i < 5000; ++i) {
        auto client = std::make_unique<ClientConnection>(nullptr, pool_, service_);
        if (i % 2 == 0) staying.push_back(client->arrival());
        (i % 2 == 0 ? clients : leaving).push_back(std::move(client));
    }
    std::vector<std::uint64_t> met;
    {
        const std::jthread others([&leaving] { leaving.clear(); });
        table_.for_each(
            [&met](const ClientConnection& client) { met.push_back(client.arrival()); });
    }
    EXPECT_TRUE(std::ranges::is_sorted(met, std::ranges::less_equal()));
    EXPECT_TRUE(std::ranges::includes(met, staying));
}

}  // namespace
}  // namespace vorrim
