#pragma once
// How much work a step of a search may still do, in units of about ten nanoseconds: what waits
// behind the step (a writer, the other connections of its worker) waits for about as long, whatever
// is searched for and however large the index is.
//
// Threads     Belongs to one step.
#include <cstdint>

namespace vorrim {

class StepBudget {
public:
    explicit StepBudget(std::uint32_t units) noexcept : left_(units) {}

    void charge(std::uint32_t units) noexcept { left_ -= units; }
    [[nodiscard]] bool spent() const noexcept { return left_ <= 0; }

private:
    std::int64_t left_;
};

// What a row costs of which a list tells the number only.
inline constexpr std::uint32_t kRowCost = 2;
// What an entry costs whose record is evaluated, beside what the Evaluator asks for it.
inline constexpr std::uint32_t kRecordCost = 10;

}  // namespace vorrim
