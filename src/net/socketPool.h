#pragma once
// The pool of everything the server runs: it splits the tasks into one share per worker.
//
// There is no thread of the pool's own: each worker waits on the readiness set of its share, so a
// request never changes hands. Without workers there are no shares, and what is added waits
// unserved. As many shares are given tasks as there are processors.
//
// Threads: `add` from any thread; the rest before the workers start or after they have stopped.

#include <cstddef>
#include <memory>
#include <vector>

#include "base/Annotations.h"
#include "base/Clock.h"
#include "base/kx_critical_section.h"
#include "net/Limits.h"
#include "net/PoolShare.h"
#include "net/Task.h"
#include "net/kx_net.h"

namespace vorrim {

class socketPool final {
public:
    // All must outlive the pool. Without limits none apply.
    socketPool(kx_net_protocol& net, const Clock& clock);
    socketPool(kx_net_protocol& net, const Clock& clock, Limits& limits);
    ~socketPool();
    socketPool(const socketPool&) = delete;
    socketPool& operator=(const socketPool&) = delete;

    // Makes the share of one more worker.
    [[nodiscard]] PoolShare& add_share();
    // Takes the task over; null is ignored. It goes to the share of the worker that adds it while
    // that has not many more tasks than the others, else to the one with the fewest.
    void add(std::unique_ptr<Task> task);
    // Destroys every task.
    void delete_all();

    [[nodiscard]] kx_net_protocol& net() const noexcept { return net_; }
    [[nodiscard]] const Clock& clock() const noexcept { return clock_; }
    [[nodiscard]] Limits& limits() const noexcept { return limits_; }

private:
    kx_net_protocol& net_;
    const Clock& clock_;
    const std::unique_ptr<Limits> no_limits_;  // when none were given
    Limits& limits_;
    const std::size_t useful_shares_;
    std::vector<std::unique_ptr<PoolShare>> shares_;
    kx_critical_section unserved_lock_;
    std::vector<std::unique_ptr<Task>> unserved_ GUARDED_BY(unserved_lock_);
};

}  // namespace vorrim
