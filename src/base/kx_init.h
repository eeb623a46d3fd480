#pragma once
// The services of the library, brought up in the order of their priorities and taken down in the
// opposite one.
//
// A service is a static object: it links itself into the process-wide list when the program is
// loaded. A static library carries only what somebody names, so a service lives in the source file
// of what it serves.
//
// Threads: the main thread only, before all others and after them.

namespace vorrim {

class kx_init_object {
public:
    static constexpr int kFirstPriority = 0;
    static constexpr int kLastPriority = 9;

    kx_init_object() noexcept;
    virtual ~kx_init_object();
    kx_init_object(const kx_init_object&) = delete;
    kx_init_object& operator=(const kx_init_object&) = delete;

    // From kFirstPriority to kLastPriority; services of any other are never called.
    [[nodiscard]] virtual int priority() const noexcept { return kLastPriority; }
    virtual void init() {}
    virtual void uninit() {}

private:
    friend void kx_init();
    friend void kx_uninit();

    kx_init_object* next_ = nullptr;
};

// Calls `init` of every service, lowest priority first; those of one priority in the order in which
// they were made. An error of a service leaves as it was raised.
void kx_init();
// Calls `uninit` of every service, highest priority first.
void kx_uninit();
// From the end of the first priority of kx_init to the end of kx_uninit.
[[nodiscard]] bool kx_initialised() noexcept;

}  // namespace vorrim
