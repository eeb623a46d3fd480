#include "net/PoolShare.h"

#include <algorithm>
#include <ctime>
#include <new>

#include "base/Output.h"
#include "base/Rollback.h"
#include "base/kx_err.h"
#include "net/SendQueue.h"

namespace vorrim {

namespace {

constexpr std::size_t kScratchBytes = 64 * 1024;   // received by one system call
constexpr std::uint32_t kReplyGrowth = 16 * 1024;  // of the replies of a turn
constexpr std::uint32_t kRepliesKept = 1024 * 1024;
constexpr std::size_t kFewTasks = 64;
// For those who ask for much, in each step: what somebody who asks for little may wait for them.
constexpr std::chrono::microseconds kPatientTime{200};

// With thousands of tasks the next one is seldom in a cache: a connection, the largest of them, is
// six lines long.
constexpr std::size_t kTasksAhead = 4;
void prefetch(const Task& task) noexcept {
    constexpr std::size_t kLine = 64;
    constexpr std::size_t kLines = 6;
    for (std::size_t line = 0; line < kLines; ++line)
        __builtin_prefetch(reinterpret_cast<const std::byte*>(&task) + line * kLine, 1);
}

thread_local PoolShare* running_share = nullptr;

// What the calling thread has had of a processor.
std::chrono::nanoseconds processor_time() noexcept {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// Names the share whose worker the thread is, for the length of a block.
class RunningShare {
public:
    explicit RunningShare(PoolShare& share) noexcept
        : before_(std::exchange(running_share, &share)) {}
    ~RunningShare() { running_share = before_; }
    RunningShare(const RunningShare&) = delete;
    RunningShare& operator=(const RunningShare&) = delete;

private:
    PoolShare* before_;
};

}  // namespace

PoolShare::PoolShare(socketPool& pool, std::unique_ptr<kx_socket_set> set, const Clock& clock)
    : pool_(pool),
      clock_(clock),
      set_(std::move(set)),
      scratch_(kScratchBytes),
      replies_(kReplyGrowth) {}

PoolShare::~PoolShare() {
    delete_all();
}

PoolShare* PoolShare::current() noexcept {
    return running_share;
}

void PoolShare::add(std::unique_ptr<Task> task) {
    load_.fetch_add(1);
    if (current() == this) {
        task->share_.store(this);
        adopt(std::move(task));
        return;
    }
    Rollback counted([this] { load_.fetch_sub(1); });
    bool sleeping = false;
    {
        const kx_guard hold(mail_lock_);
        Task& added = *task;
        added_.push_back(std::move(task));
        counted.keep();
        // From here on others may post to the task; their posts come after its addition.
        added.share_.store(this);
        sleeping = std::exchange(asleep_, false);
    }
    if (sleeping) set_->wake();
}

void PoolShare::post(Task& task) {
    if (current() == this) {
        enqueue(task);
        return;
    }
    if (task.posted_.exchange(true)) return;
    bool sleeping = false;
    {
        const kx_guard hold(mail_lock_);
        // One that is not in the mailbox can be posted again.
        Rollback marked([&task] { task.posted_.store(false); });
        posted_.push_back(&task);
        marked.keep();
        sleeping = std::exchange(asleep_, false);
    }
    if (sleeping) set_->wake();
}

void PoolShare::clear_replies() noexcept {
    replies_.clear();
    if (replies_.capacity() > kRepliesKept) replies_ = kx_memory_file(kReplyGrowth);
}

void PoolShare::wake() noexcept {
    set_->wake();
}

void PoolShare::enqueue(Task& task) {
    if (task.queued_) return;
    ready_.push_back(&task);
    task.queued_ = true;
}

void PoolShare::join_long_work(Task& task) {
    long_work_.push_back(&task);
    enqueue(*long_work_.front());
}

bool PoolShare::may_take_long_turn(Task& task) {
    if (long_work_.empty() || long_work_.front() != &task) return false;
    if (std::exchange(long_turn_taken_, true)) {
        enqueue(task);
        return false;
    }
    long_work_.pop_front();
    if (!long_work_.empty()) enqueue(*long_work_.front());
    return true;
}

void PoolShare::leave_long_work(const Task& task) {
    if (std::erase(long_work_, &task) > 0 && !long_work_.empty()) enqueue(*long_work_.front());
}

void PoolShare::adopt(std::unique_ptr<Task> owned) {
    Task& task = *owned;
    task.slot_ = static_cast<std::uint32_t>(tasks_.size());
    Rollback counted([this] { load_.fetch_sub(1); });
    tasks_.push_back(std::move(owned));
    counted.keep();
    if (task.socket_ && !watch(task)) task.closing_.store(true);
    // A first turn: packets may have been queued before the task had a share.
    enqueue(task);
}

// The peer sees the end at once, however long the farewell takes.
void PoolShare::dismiss(Task& task) {
    task.leaving_ = true;
    leave_long_work(task);
    setDeadline(task, Task::kNoDeadline);
    stop_watching(task);
    if (part(task) == Farewell::done) {
        destroy(task);
    } else {
        leaving_.push_back(&task);
    }
}

PoolShare::Farewell PoolShare::part(Task& task) {
    try {
        return task.farewell() ? Farewell::done : Farewell::goes_on;
    } catch (const kx_err&) {
    } catch (const std::bad_alloc&) {
    }
    // What memory does not allow now is done when others have left.
    return Farewell::later;
}

// As many as the time allows, but one at least. Whoever has more to do goes to the end.
void PoolShare::serve_patient() {
    const Task::TimePoint end = clock_.now() + kPatientTime;
    for (std::size_t left = patient_.size(); left > 0; --left) {
        Task& task = *patient_.front();
        patient_.pop_front();
        task.queued_ = false;
        if (!task.leaving_) give_turn(task, [&] { return task.doTask(pool_); });
        if (clock_.now() >= end) return;
    }
}

// One farewell after the other, for about as long as the others have just had: they wait for no
// crowd that leaves, and whoever makes one come and go does not outrun its departure.
void PoolShare::see_off(std::chrono::nanoseconds time) {
    if (leaving_.empty()) return;
    const Task::TimePoint end = clock_.now() + time;
    do {
        Task& task = *leaving_.front();
        switch (part(task)) {
            case Farewell::goes_on:
                continue;
            case Farewell::done:
                leaving_.pop_front();
                destroy(task);
                break;
            case Farewell::later:
                leaving_.pop_front();
                leaving_.push_back(&task);
                return;
        }
    } while (!leaving_.empty() && clock_.now() < end);
}

void PoolShare::stop_watching(Task& task) {
    if (!task.socket_ || task.socket_->handle() < 0) return;
    set_->remove(task.socket_->handle());
    task.socket_->close();
}

void PoolShare::destroy(Task& task) {
    stop_watching(task);
    const std::size_t slot = task.slot_;
    const std::unique_ptr<Task> doomed = std::move(tasks_[slot]);
    if (slot + 1 != tasks_.size()) {
        tasks_[slot] = std::move(tasks_.back());
        tasks_[slot]->slot_ = static_cast<std::uint32_t>(slot);
    }
    tasks_.pop_back();
    load_.fetch_sub(1);
}

void PoolShare::forget(Task& task) {
    if (task.posted_.load()) {
        const kx_guard hold(mail_lock_);
        std::erase(posted_, &task);
    }
    if (task.queued_) {
        std::erase(ready_, &task);
        std::erase(patient_, &task);
    }
    leave_long_work(task);
    setDeadline(task, Task::kNoDeadline);
}

void PoolShare::setDeadline(Task& task, Task::TimePoint deadline) {
    if (task.deadline_ == deadline) return;
    if (task.deadline_ != Task::kNoDeadline) deadlines_.erase({task.deadline_, &task});
    task.deadline_ = deadline;
    if (deadline != Task::kNoDeadline) deadlines_.insert({deadline, &task});
}

bool PoolShare::watch(Task& task) {
    return set_->add(task.socket_->handle(), task.interest(), task);
}

void PoolShare::wantWritable(Task& task) {
    if (task.socket_) set_->want_writable(task.socket_->handle(), task);
}

std::optional<std::chrono::nanoseconds> PoolShare::time_to_wait(
    std::optional<std::chrono::nanoseconds> limit) {
    using std::chrono::nanoseconds;
    if (!ready_.empty() || !patient_.empty() || !leaving_.empty()) return nanoseconds(0);
    if (!deadlines_.empty()) {
        const nanoseconds left =
            std::max(nanoseconds(0), nanoseconds(deadlines_.begin()->first - clock_.now()));
        limit = limit ? std::min(*limit, left) : left;
    }
    if (limit && limit->count() <= 0) return nanoseconds(0);
    // Whoever leaves mail from here on sees that we sleep and wakes us.
    const kx_guard hold(mail_lock_);
    if (!added_.empty() || !posted_.empty()) return nanoseconds(0);
    asleep_ = true;
    return limit;
}

void PoolShare::take_mail() {
    std::vector<std::unique_ptr<Task>> added;
    std::vector<Task*> posted;
    {
        const kx_guard hold(mail_lock_);
        asleep_ = false;
        if (added_.empty() && posted_.empty()) return;
        added.swap(added_);
        posted.swap(posted_);
        // Cleared under the lock: a post that follows goes into the next mail.
        for (Task* task : posted)
            task->posted_.exchange(false);
    }
    for (auto& task : added) {
        const Task* const newcomer = task.get();
        try {
            adopt(std::move(task));
        } catch (const std::bad_alloc&) {
            // No memory for one more: those who are there have what they need.
            current_output().printVerbose("*** Exception in Task\n");
            std::erase(posted, newcomer);
        }
    }
    for (Task* task : posted)
        enqueue(*task);
}

void PoolShare::fire_deadlines() {
    if (deadlines_.empty()) return;
    const Task::TimePoint moment = now();
    while (!deadlines_.empty() && deadlines_.begin()->first <= moment) {
        Task& task = *deadlines_.begin()->second;
        setDeadline(task, Task::kNoDeadline);
        give_turn(task, [&] { return task.onDeadline(); });
    }
}

template <class Step>
void PoolShare::give_turn(Task& task, Step step) {
    Turn turn = Turn::wait;
    try {
        turn = step();
    } catch (const kx_err&) {
        current_output().printVerbose("*** Exception in Task\n");
    } catch (const std::bad_alloc&) {
        current_output().printVerbose("*** Exception in Task\n");
    }
    switch (turn) {
        case Turn::wait:
            break;
        case Turn::again:
            enqueue(task);
            break;
        case Turn::at_leisure:
            if (task.queued_) break;
            task.queued_ = true;
            patient_.push_back(&task);
            break;
        case Turn::finished:
            dismiss(task);
            break;
    }
}

void PoolShare::run_once(std::optional<std::chrono::nanoseconds> limit) {
    const RunningShare here(*this);
    for (const ReadyTask& ready : set_->wait(time_to_wait(limit))) {
        ready.task->flags_ |= ready.flags;
        enqueue(*ready.task);
    }
    now_ = {};
    long_turn_taken_ = false;
    take_mail();
    fire_deadlines();

    const bool others_wait = !patient_.empty() || !leaving_.empty();
    const Task::TimePoint begin = others_wait ? clock_.now() : Task::TimePoint{};
    const auto spent = others_wait ? processor_time() : std::chrono::nanoseconds{};
    running_.swap(ready_);
    for (std::size_t at = 0; at < running_.size(); ++at) {
        if (at + kTasksAhead < running_.size()) prefetch(*running_[at + kTasksAhead]);
        Task& task = *running_[at];
        task.queued_ = false;
        if (!task.leaving_) give_turn(task, [&] { return task.doTask(pool_); });
    }
    running_.clear();
    if (others_wait) {
        serve_patient();
        // The time that other processes had in between is none to make up for.
        see_off(std::min(clock_.now() - begin, processor_time() - spent));
    }
    if (tasks_.capacity() > kFewTasks && tasks_.size() < tasks_.capacity() / 4) give_back_memory();
}

// What only a crowd needed that has left.
void PoolShare::give_back_memory() {
    tasks_.shrink_to_fit();
    ready_.shrink_to_fit();
    running_.shrink_to_fit();
    replies_ = kx_memory_file(kReplyGrowth);
    SendQueue::free_spare_memory();
}

void PoolShare::delete_all() {
    const RunningShare here(*this);
    take_mail();
    leaving_.clear();
    while (!tasks_.empty())
        destroy(*tasks_.back());
    ready_.clear();
    patient_.clear();
}

}  // namespace vorrim
