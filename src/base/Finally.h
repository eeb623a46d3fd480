#pragma once
// Does what has to be done at the end of a block, however it is left. It raises nothing.
#include <utility>

namespace vorrim {

template <class Act>
class Finally {
public:
    explicit Finally(Act act) noexcept : act_(std::move(act)) {}
    ~Finally() { act_(); }
    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;

private:
    Act act_;
};

}  // namespace vorrim
