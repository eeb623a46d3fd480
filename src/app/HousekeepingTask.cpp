#include "app/HousekeepingTask.h"

#include <new>
#include <utility>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "client/messages.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"

namespace vorrim {

namespace {

// What memory does not allow now is done the next time; nobody else has to do without the server.
template <class Work>
void attempt(Work work) {
    try {
        work();
    } catch (const kx_err&) {
        current_output().printVerbose("*** Exception in HousekeepingTask\n");
    } catch (const std::bad_alloc&) {
        current_output().printVerbose("*** Exception in HousekeepingTask\n");
    }
}

}  // namespace

void HousekeepingTask::run_once() {
    cycle();
    const auto end = std::chrono::steady_clock::now() + kCycle;
    while (take_request(end))
        attempt([this] { upkeep(); });
}

void HousekeepingTask::requestUpkeep() {
    const kx_guard hold(request_lock_);
    ++requests_;
    requested_.notify_all();
}

void HousekeepingTask::wake() {
    const kx_guard hold(request_lock_);
    requested_.notify_all();
}

bool HousekeepingTask::take_request(std::chrono::steady_clock::time_point until) {
    const kx_guard hold(request_lock_);
    while (!stop_requested()) {
        if (requests_ > 0) {
            --requests_;
            return true;
        }
        if (!requested_.wait_until(request_lock_, until)) return false;
    }
    return false;
}

void HousekeepingTask::cycle() {
    --serverCountdown_;
    --statusCountdown_;
    if (statusCountdown_ < 0) {
        statusCountdown_ = kStatusCountdown;
        attempt([this] { announce_status(); });
    }
    if (serverCountdown_ < 0) {
        serverCountdown_ = kServerCountdown;
        attempt([this] { upkeep(); });
    }
    if (limits_ != nullptr) limits_->report(clock_.now());
}

void HousekeepingTask::upkeep() {
    if (directory_ == nullptr) return;
    directory_->save();
    directory_->sweep();
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
