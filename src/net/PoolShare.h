#pragma once
// One worker's share of the pool: the tasks it owns, its readiness set, its ready list, its
// deadlines, and the mailbox through which other threads reach it.
//
//      other threads ── add / post ──►  mailbox ┐
//      kernel ────────── ready ──────►  wait    ├──►  ready list ──►  doTask, one turn each
//      clock ─────────── deadlines ──►          ┘                        │ at leisure
//                                                                        ▼
//                                                     patient tasks ──►  doTask, for a while
//
// A step gives all of the ready list a turn, and then some of those who have used theirs up and
// have more to do: who asks for little does not wait for all who ask for much.
//
// Threads: `add`, `post`, `wake` and `load` may be called from any thread; the rest belongs to the
// worker. The mailbox lock is the only lock here and is never held while a task runs.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "base/Annotations.h"
#include "base/Clock.h"
#include "base/file/kx_memory_file.h"
#include "base/kx_critical_section.h"
#include "net/Task.h"
#include "net/kx_socket_set.h"

namespace vorrim {

class PoolShare final {
public:
    PoolShare(socketPool& pool, std::unique_ptr<kx_socket_set> set, const Clock& clock);
    ~PoolShare();
    PoolShare(const PoolShare&) = delete;
    PoolShare& operator=(const PoolShare&) = delete;

    // Any thread: takes the task over. A task whose socket cannot be watched is destroyed.
    void add(std::unique_ptr<Task> task);
    // Any thread that may use the task: gives it a turn. Costs nothing when it has one coming.
    void post(Task& task);
    // Any thread: makes a waiting run_once return.
    void wake() noexcept;
    // Any thread: how many tasks the share has or is about to have.
    [[nodiscard]] std::size_t load() const noexcept { return load_.load(); }

    // One step of the worker: waits until there is something to do, at most `limit`, and gives
    // every task that is ready its turn.
    void run_once(std::optional<std::chrono::nanoseconds> limit = std::nullopt);
    // Destroys every task. Only when no worker runs.
    void delete_all();

    // The share whose worker is the calling thread, or null.
    [[nodiscard]] static PoolShare* current() noexcept;

    // Own worker: room for the bytes of one receive, shared by all its tasks.
    [[nodiscard]] std::span<std::byte> scratch() noexcept { return scratch_; }
    // Own worker: the replies of the connection whose turn it is. Empty between turns.
    [[nodiscard]] kx_memory_file& replies() noexcept { return replies_; }
    // Own worker. Memory that only an uncommonly long reply needed is given back.
    void clear_replies() noexcept;
    // Own worker, for tasks whose work takes many turns: they stand in line, and however many they
    // are, the others wait for one such turn in a step. A task joins the line, and each time it may
    // take a turn it leaves it; with more to do, it joins again.
    void join_long_work(Task& task);
    [[nodiscard]] bool may_take_long_turn(Task& task);
    [[nodiscard]] const Clock& clock() const noexcept { return clock_; }
    // Own worker: the time of the present step, looked at once when somebody asks first. For what
    // need not be exact; it stands still for as long as the step takes.
    [[nodiscard]] Task::TimePoint now() noexcept {
        if (now_ == Task::TimePoint{}) now_ = clock_.now();
        return now_;
    }

private:
    friend class Task;

    void setDeadline(Task& task, Task::TimePoint deadline);
    void wantWritable(Task& task);
    [[nodiscard]] bool watch(Task& task);
    void forget(Task& task);

    void enqueue(Task& task);
    void leave_long_work(const Task& task);
    void adopt(std::unique_ptr<Task> task);
    void dismiss(Task& task);
    enum class Farewell { done, goes_on, later };
    [[nodiscard]] static Farewell part(Task& task);
    void serve_patient();
    void see_off(std::chrono::nanoseconds time);
    void stop_watching(Task& task);
    void destroy(Task& task);
    // Takes a step of the task, and does what it wants then. A raise ends the step only.
    template <class Step>
    void give_turn(Task& task, Step step);
    void take_mail();
    void fire_deadlines();
    void give_back_memory();
    [[nodiscard]] std::optional<std::chrono::nanoseconds> time_to_wait(
        std::optional<std::chrono::nanoseconds> limit);

    socketPool& pool_;
    const Clock& clock_;
    std::unique_ptr<kx_socket_set> set_;

    // The worker's own.
    std::vector<std::unique_ptr<Task>> tasks_;
    std::vector<Task*> ready_;
    std::vector<Task*> running_;
    std::deque<Task*> long_work_;
    bool long_turn_taken_ = false;  // in the present step
    std::deque<Task*> patient_;     // have had their share of work, and have more
    std::deque<Task*> leaving_;     // whose farewells take more than one step
    std::set<std::pair<Task::TimePoint, Task*>> deadlines_;
    std::vector<std::byte> scratch_;
    kx_memory_file replies_;
    Task::TimePoint now_{};  // of the present step; none until somebody asks

    // The mailbox.
    kx_critical_section mail_lock_;
    std::vector<std::unique_ptr<Task>> added_ GUARDED_BY(mail_lock_);
    std::vector<Task*> posted_ GUARDED_BY(mail_lock_);
    bool asleep_ GUARDED_BY(mail_lock_) = false;

    std::atomic<std::size_t> load_{0};
};

}  // namespace vorrim
