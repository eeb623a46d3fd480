#pragma once
// A thread that serves one share of the pool. Idle, it sleeps in its readiness set.

#include "net/PoolShare.h"
#include "net/kx_thread.h"
#include "net/socketPool.h"

namespace vorrim {

class Worker final : public kx_thread {
public:
    // The pool must outlive the worker. Create all workers before anything is added to the pool.
    explicit Worker(socketPool& pool) : share_(pool.add_share()) {}
    ~Worker() override { stop(); }

    void run_once() override { share_.run_once(); }

private:
    void wake() override { share_.wake(); }

    PoolShare& share_;
};

}  // namespace vorrim
