#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <vector>

#include "base/Random.h"
#include "base/kx_list.h"

namespace vorrim {
namespace {

// Random operations on a list and on a vector; the tail is where a list goes wrong unseen, so each
// round ends with an append.
TEST(KxList, BehavesAsAVector) {
    std::array<int, 10> items{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    Random random(3);
    kx_list<int*> list;
    kx_list<int*> other;
    std::vector<int*> model;
    const auto remove = [&model](const int* item) {
        const auto at = std::find(model.begin(), model.end(), item);
        if (at != model.end()) model.erase(at);
    };
    for (int round = 0; round < 20'000; ++round) {
        int* const item = &items[random.below(items.size())];
        const std::size_t place = random.below(model.size() + 2);
        const auto at = model.begin() + static_cast<long>(std::min(place, model.size()));
        switch (random.below(7)) {
            case 0:
                list.prepend(item);
                model.insert(model.begin(), item);
                break;
            case 1:
                list.insert_at(place, item);
                model.insert(at, item);
                break;
            case 2:
                list.set_at(place, item);
                if (at == model.end()) {
                    model.push_back(item);
                } else {
                    *at = item;
                }
                break;
            case 3:
                list.sort([](int a, int b) { return a % 3 < b % 3; });
                std::stable_sort(model.begin(), model.end(),
                                 [](const int* a, const int* b) { return *a % 3 < *b % 3; });
                break;
            case 4:
                other.append(item);
                list.splice(other);
                model.push_back(item);
                break;
            default:
                list.remove(item);
                remove(item);
        }
        list.append(item);
        model.push_back(item);
        while (model.size() > 12) {
            list.remove(model.back());
            remove(model.back());
        }
        ASSERT_TRUE(std::equal(list.begin(), list.end(), model.begin(), model.end())) << round;
    }
    list.sort([](int, int) { return true; });  // no order at all
    EXPECT_EQ(list.count(), model.size());
}

}  // namespace
}  // namespace vorrim
