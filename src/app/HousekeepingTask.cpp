#include "app/HousekeepingTask.h"

#include <utility>

#include "base/file/primitives.h"
#include "client/messages.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"

namespace vorrim {

void HousekeepingTask::run_once() {
    cycle();
    pause(kCycle);
}

void HousekeepingTask::cycle() {
    --serverCountdown_;
    --statusCountdown_;
    if (statusCountdown_ < 0) {
        statusCountdown_ = kStatusCountdown;
        announce_status();
    }
    if (serverCountdown_ < 0) {
        serverCountdown_ = kServerCountdown;
        if (directory_ != nullptr) {
            directory_->save();
            directory_->sweep();
        }
    }
}

void HousekeepingTask::announce_status() const {
    constexpr std::uint32_t kPayload = 9;
    Packet status = begin_packet(Opcode::OP_SERVER_STATUS, kPayload);
    write_32(status.body(), static_cast<std::uint32_t>(clients_.count()));
    write_32(status.body(), static_cast<std::uint32_t>(files_.source_total()));
    status.finish();
    clients_.send_to_all(std::move(status));
}

}  // namespace vorrim
