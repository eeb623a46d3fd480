#include "base/kx_thread_registry.h"

#include <algorithm>
#include <deque>
#include <new>
#include <unistd.h>
#include <utility>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "base/kx_err.h"
#include "base/kx_init.h"
#include "base/kx_semaphore.h"

namespace vorrim {

namespace {

// Asked for less, a thread still gets this: sanitizers and the C library live on the same stack,
// and pages that nobody touches cost nothing.
constexpr std::size_t kSmallestStack = std::size_t{1} << 20U;

struct Registry {
    kx_critical_section lock;
    std::deque<kx_thread_id> threads GUARDED_BY(lock);
};

Registry& registry() {
    // Never destroyed: threads may end after the static objects are gone.
    static Registry& one = *new Registry;
    return one;
}

void record_current() {
    Registry& all = registry();
    const kx_guard hold(all.lock);
    all.threads.push_front(kx_current_thread_id());
}

void remove_current() {
    Registry& all = registry();
    const kx_guard hold(all.lock);
    const auto found = std::find(all.threads.begin(), all.threads.end(), kx_current_thread_id());
    if (found != all.threads.end()) all.threads.erase(found);
}

class MainThreadRecord final : public kx_init_object {
public:
    [[nodiscard]] int priority() const noexcept override { return 1; }
    void init() override { record_current(); }
    void uninit() override { remove_current(); }
};
MainThreadRecord main_thread_record;

// Lives on the creator's stack until `recorded` is released; the new thread takes the function out.
struct Start {
    std::function<void()> function;
    kx_semaphore recorded;
};

// Not noexcept: pthread_exit and the exceptions of nobody unwind through here.
void* thread_entry(void* argument) {
    auto& start = *static_cast<Start*>(argument);
    record_current();
    const std::function<void()> function = std::move(start.function);
    start.recorded.release();
    try {
        function();
    } catch (const kx_exit_thread_exception&) {
        // The thread asked to end here, and does.
    } catch (const kx_err& error) {
        kx_fatal_error(error);
    } catch (const std::bad_alloc&) {
        kx_set_error_location(nullptr, 0);
        kx_fatal_error(kx_err("out of memory"));
    }
    remove_current();
    return nullptr;
}

}  // namespace

kx_thread_id kx_current_thread_id() noexcept {
    return gettid();
}

kx_thread_handle::kx_thread_handle(kx_thread_handle&& other) noexcept
    : thread_(other.thread_), valid_(std::exchange(other.valid_, false)) {}

kx_thread_handle& kx_thread_handle::operator=(kx_thread_handle&& other) noexcept {
    if (this != &other) {
        detach();
        thread_ = other.thread_;
        valid_ = std::exchange(other.valid_, false);
    }
    return *this;
}

bool kx_thread_handle::is_current() const noexcept {
    return valid_ && pthread_equal(thread_, pthread_self()) != 0;
}

void kx_thread_handle::join() noexcept {
    if (std::exchange(valid_, false)) pthread_join(thread_, nullptr);
}

void kx_thread_handle::detach() noexcept {
    if (std::exchange(valid_, false)) pthread_detach(thread_);
}

kx_thread_handle kx_thread_create(std::function<void()> function, std::size_t stack_bytes) {
    Start start;
    start.function = std::move(function);
    kx_thread_handle handle;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return handle;
    pthread_attr_setstacksize(&attributes, std::max(stack_bytes, kSmallestStack));
    handle.valid_ = pthread_create(&handle.thread_, &attributes, thread_entry, &start) == 0;
    pthread_attr_destroy(&attributes);
    if (handle) start.recorded.wait(std::chrono::milliseconds(0));
    return handle;
}

std::vector<kx_thread_id> kx_running_threads() {
    Registry& all = registry();
    const kx_guard hold(all.lock);
    return {all.threads.begin(), all.threads.end()};
}

}  // namespace vorrim
