#include "search/UnknownOperations.h"

#include <utility>

#include "base/Output.h"

namespace vorrim {

namespace {

thread_local UnknownReports* holder = nullptr;

void print(UnknownOperation what) {
    current_output().printError(what == UnknownOperation::combination
                                    ? "Unknown Operation in Search"
                                    : "Unknown Operation in SN_IntTagCompare");
}

}  // namespace

void report_unknown(UnknownOperation what) {
    if (holder != nullptr) {
        holder->hold(what);
    } else {
        print(what);
    }
}

HeldReports::HeldReports(UnknownReports& into) noexcept : outer_(std::exchange(holder, &into)) {}

HeldReports::~HeldReports() {
    holder = outer_;
}

UnknownReports::~UnknownReports() {
    for (const UnknownOperation what : held_)
        report_unknown(what);
    if (dropped_ > 0)
        current_output().printLine(" and %llu more", static_cast<unsigned long long>(dropped_));
}

void UnknownReports::hold(UnknownOperation what) {
    if (held_.size() < kMostLines) {
        held_.push_back(what);
    } else {
        ++dropped_;
    }
}

}  // namespace vorrim
