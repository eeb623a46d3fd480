#pragma once
// A server without threads, clock or network of its own: its parts, one share of the pool, and the
// network in memory. When everybody has left, nothing may be left of them.

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "app/ServerDirectory.h"
#include "app/ServerSettings.h"
#include "base/Random.h"
#include "client/ClientConnection.h"
#include "client/ClientService.h"
#include "client/KeywordFileIndex.h"
#include "client/RoomList.h"
#include "fuzz/Input.h"
#include "net/Limits.h"
#include "net/PoolShare.h"
#include "net/socketPool.h"
#include "tests/base/ManualClock.h"
#include "tests/net/MemoryNet.h"

namespace vorrim::fuzz {

class World final {
public:
    World() {
        settings.publicServer = true;
        settings.thisIP = 0x0100007F;
        settings.limitExempt.clear();
        settings.apply_to(limits, random);
        service_settings.max_files = 100;
        service_settings.record_limits = {.bytes = 500, .tags = 9, .tag_name = 40, .tag_value = 90};
        files.init(7);
        rooms.add("Lobby");
        rooms.add("Attic");
        settings.welcome.append("welcome");
    }

    // A client connects; its line.
    Line* arrive(std::uint32_t address) {
        auto [socket, line] = net.arrival(address);
        pool.add(std::make_unique<ClientConnection>(std::move(socket), pool, service));
        return line;
    }
    void turn() { share.run_once(std::chrono::nanoseconds(0)); }
    void settle() {
        for (int i = 0; i < 200; ++i)
            turn();
    }
    // What one byte of the input lets happen to one of the lines.
    using Step = std::function<void(Line*&)>;
    // The rest of the input, step by step, until everybody leaves. Of so many kinds those without a
    // step of their own bring a piece of the input over the line as a packet.
    void play(Input& input, std::span<Line*> lines, std::span<const Step> steps,
              std::size_t kinds) {
        while (!input.empty()) {
            const std::size_t byte = input.u8();
            Line*& line = lines[byte % lines.size()];
            const std::size_t kind = byte / lines.size() % kinds;
            if (kind < steps.size()) {
                steps[kind](line);
                continue;
            }
            if (const auto payload = input.counted(); !payload.empty())
                line->bring(frame_of(payload));
            turn();
        }
        everybody_leaves();
    }
    // The claim of the whole: once all are gone, so is what they brought. What they published
    // before they had an identifier goes with the next who leaves without one.
    void everybody_leaves() {
        settle();
        pool.delete_all();
        arrive(0x0300000AU);
        pool.delete_all();
        must(clients.count() == 0);
        must(files.source_total() == 0 && files.file_total() == 0 && files.keyword_total() == 0);
        must(rooms.find(2)->member_count() == 0 && rooms.find(3)->member_count() == 0);
    }

    MemoryNet net;
    ManualClock clock;
    Random random{1};
    ServerSettings settings;
    Limits limits;
    ServerDirectory directory{settings, net, limits.log};
    // Searches of a few records take more than one step.
    KeywordFileIndex files{{.step = 60}};
    ClientTable clients{random};
    RoomList rooms;
    FrozenRecord own_record = FrozenRecord::from(settings);
    ServiceSettings service_settings;
    ClientService service{service_settings, own_record, clients, files, rooms,
                          settings.welcome, directory};
    socketPool pool{net, clock, limits};
    PoolShare& share = pool.add_share();
};

}  // namespace vorrim::fuzz
