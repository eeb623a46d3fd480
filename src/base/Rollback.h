#pragma once
// Takes a step back when one of those that follow it raises: destroyed before it was told to keep
// the step, it undoes it. Undoing raises nothing.
#include <utility>

namespace vorrim {

template <class Undo>
class Rollback {
public:
    explicit Rollback(Undo undo) noexcept : undo_(std::move(undo)) {}
    ~Rollback() {
        if (!kept_) undo_();
    }
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;

    void keep() noexcept { kept_ = true; }

private:
    Undo undo_;
    bool kept_ = false;
};

}  // namespace vorrim
