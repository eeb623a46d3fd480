#pragma once
// All that a client's connection asks of its server, on a pool that a test drives by hand.

#include "client/ClientConnection.h"
#include "client/ClientService.h"
#include "client/KeywordFileIndex.h"
#include "meta/Meta.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {

class NoServers final : public KnownServers {
public:
    [[nodiscard]] bool is_public() const override { return false; }
    void onHello(std::uint32_t, std::uint16_t, Told) override {}
    void onListHeader(std::uint32_t, std::uint16_t, Told) override {}
    void learn(std::uint32_t, std::uint16_t, Told) override {}
    void writeWorkingList(kx_memory_file&) const override {}
};

class ServiceFixture : public PoolFixture {
protected:
    explicit ServiceFixture(std::uint32_t first_low_id = 1) : clients_(random_, first_low_id) {}

    Random random_{7};
    ClientTable clients_;
    KeywordFileIndex files_;
    RoomList rooms_;
    WelcomeLines welcome_;
    NoServers servers_;
    ServiceSettings settings_;
    FrozenRecord own_ = FrozenRecord::from(Meta());
    ClientService service_{settings_, own_, clients_, files_, rooms_, welcome_, servers_};
};

}  // namespace vorrim
