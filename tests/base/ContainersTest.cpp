#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "base/BoolArray.h"
#include "base/HashTable128.h"
#include "base/HashTable32.h"
#include "base/Random.h"
#include "base/file/kx_memory_file.h"
#include "base/kx_err.h"
#include "base/kx_list.h"
#include "base/kx_locked_list.h"
#include "base/memory/kx_grow_array.h"

namespace vorrim {
namespace {

class KxList : public ::testing::Test {
protected:
    using Numbers = std::vector<int>;

    static Numbers in(const kx_list<int*>& list) {
        Numbers all;
        for (const int* item : list)
            all.push_back(*item);
        return all;
    }
    void fill(std::initializer_list<int> numbers) {
        for (const int number : numbers)
            list_.append(&items_[static_cast<std::size_t>(number)]);
    }
    int* item(std::size_t number) { return &items_[number]; }

    std::array<int, 10> items_{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    kx_list<int*> list_;
};

TEST_F(KxList, AddsAtItsEndsAndNeverNull) {
    list_.append(nullptr);
    list_.prepend(nullptr);
    list_.insert_at(0, nullptr);
    EXPECT_TRUE(list_.empty());
    fill({1, 2});
    list_.prepend(item(0));
    list_.set_at(1, nullptr);
    EXPECT_EQ(in(list_), (Numbers{0, 1, 2}));
    EXPECT_FALSE(list_.append_unique(item(2)));
    EXPECT_TRUE(list_.append_unique(item(3)));
    EXPECT_EQ(list_.count(), 4u);
    EXPECT_EQ(list_.get_at(3), item(3));
    EXPECT_EQ(list_.get_at(4), nullptr);
}

TEST_F(KxList, PlacesByIndexAndAppendsPastTheEnd) {
    list_.insert_at(0, item(5));
    list_.append(item(6));
    EXPECT_EQ(in(list_), (Numbers{5, 6}));
    list_.insert_at(1, item(1));
    list_.insert_at(0, item(0));
    list_.insert_at(9, item(9));
    list_.append(item(8));
    EXPECT_EQ(in(list_), (Numbers{0, 5, 1, 6, 9, 8}));
    list_.set_at(5, item(2));
    list_.set_at(6, item(3));
    list_.append(item(4));
    EXPECT_EQ(in(list_), (Numbers{0, 5, 1, 6, 9, 2, 3, 4}));
}

TEST_F(KxList, RemovesTheFirstOfTwoAndItsTailFollows) {
    fill({1, 2, 1, 3});
    EXPECT_TRUE(list_.remove(item(1)));
    EXPECT_EQ(in(list_), (Numbers{2, 1, 3}));
    EXPECT_FALSE(list_.remove(item(7)));
    EXPECT_TRUE(list_.remove(item(3)));
    list_.append(item(4));
    EXPECT_EQ(in(list_), (Numbers{2, 1, 4}));
    list_.clear();
    list_.append(item(5));
    EXPECT_EQ(in(list_), (Numbers{5}));
}

TEST_F(KxList, RemovesWhileIterating) {
    fill({0, 1, 2, 3, 4, 5});
    auto before = list_.end();
    for (auto at = list_.begin(); at != list_.end();) {
        if (**at % 2 == 0) {
            before = list_.remove_after(before);
            at = before;
        } else {
            before = at;
        }
        ++at;
    }
    EXPECT_EQ(in(list_), (Numbers{1, 3, 5}));
    EXPECT_EQ(list_.remove_after(before), list_.end());
    list_.remove_after(list_.end());
    EXPECT_EQ(in(list_), (Numbers{3, 5}));
}

TEST_F(KxList, AddsAndRemovesWholeLists) {
    fill({1, 2});
    list_.append_all(list_);
    EXPECT_EQ(in(list_), (Numbers{1, 2, 1, 2}));
    kx_list<int*> other;
    other.append(item(1));
    other.append(item(7));
    list_.remove_all(other);
    EXPECT_EQ(in(list_), (Numbers{2, 1, 2}));
    list_.splice(other);
    EXPECT_TRUE(other.empty());
    other.append(item(0));
    kx_list<int*> moved(std::move(list_));
    moved.append(item(3));
    EXPECT_EQ(in(moved), (Numbers{2, 1, 2, 1, 7, 3}));
    moved = std::move(other);
    EXPECT_EQ(in(moved), (Numbers{0}));
    moved.remove_all(moved);
    EXPECT_TRUE(moved.empty());
}

TEST_F(KxList, SortsStablyAndSurvivesAnyComparator) {
    fill({3, 8, 1, 9, 2, 5, 0, 7, 4});
    list_.sort([](int a, int b) { return a % 3 < b % 3; });
    EXPECT_EQ(in(list_), (Numbers{3, 9, 0, 1, 7, 4, 8, 2, 5}));
    list_.sort([](int a, int b) { return a < b; });
    EXPECT_EQ(in(list_), (Numbers{0, 1, 2, 3, 4, 5, 7, 8, 9}));
    list_.append(item(6));
    list_.sort([](int, int) { return true; });
    EXPECT_EQ(list_.count(), 10u);
}

TEST(OwningList, DestroysWhatItLoses) {
    auto counted = std::make_shared<int>(0);
    using Held = std::shared_ptr<int>;
    kx_list<std::unique_ptr<Held>> list;
    for (int i = 0; i < 4; ++i)
        list.append(std::make_unique<Held>(counted));
    EXPECT_EQ(counted.use_count(), 5);
    EXPECT_TRUE(list.remove(list.get_at(1)));
    list.set_at(0, std::make_unique<Held>());
    EXPECT_EQ(counted.use_count(), 3);
    list = {};
    EXPECT_EQ(counted.use_count(), 1);
}

TEST(LockedList, LosesNothingBetweenThreads) {
    kx_locked_list<int*> list;
    std::array<int, 4> items{};
    std::vector<std::thread> threads;
    for (int& item : items) {
        threads.emplace_back([&list, &item] {
            for (int i = 0; i < 500; ++i) {
                list.append(&item);
                list.prepend(&item);
                if (i % 2 == 0) list.remove(&item);
                list.append_unique(&item);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(list.count(), 4u * 750);
    const auto held = list.lock();
    EXPECT_EQ(held->count(), 4u * 750);
}

TEST(HashTable32, KeepsValuesByKeyInTheirOrder) {
    HashTable32<int> table;
    std::array<int, 4> values{};
    EXPECT_THROW(table.add(1, &values[0]), kx_err);
    EXPECT_EQ(table.find(1), nullptr);
    table.set_size(3);
    // All in one bucket.
    table.add(1, &values[0]);
    table.add(4, &values[1]);
    table.add(0xFFFFFFFE + 0U, &values[2]);
    table.add(1, &values[3]);
    ASSERT_NE(table.find(1), nullptr);
    EXPECT_EQ(table.find(1)->get_at(0), &values[0]);
    EXPECT_EQ(table.find(1)->get_at(1), &values[3]);
    EXPECT_EQ(table.find(4)->count(), 1u);
    EXPECT_EQ(table.find(7), nullptr);

    table.remove(7, &values[0]);
    table.remove(4, &values[0]);
    EXPECT_NE(table.find(4), nullptr);
    table.remove(4, &values[1]);
    EXPECT_EQ(table.find(4), nullptr);
    table.set_size(5);
    EXPECT_EQ(table.find(1), nullptr);
}

TEST(HashTable128, ComparesWholeKeys) {
    HashTable128<int> table;
    table.set_size(7);
    std::array<int, 2> values{};
    HashKey128 key{std::byte{1}};
    HashKey128 near = key;
    near[15] = std::byte{1};
    const auto& entry = table.add(key, &values[0]);
    EXPECT_EQ(table.find(near), nullptr);
    table.add(near, &values[1]);
    EXPECT_EQ(table.find(key), &entry);
    EXPECT_EQ(entry.count(), 1u);
    EXPECT_EQ(
        HashKey128Bucket{}({std::byte{0x78}, std::byte{0x56}, std::byte{0x34}, std::byte{0x12}}),
        0x12345678u);
}

TEST(BoolArray, HasItsFormInBytes) {
    EXPECT_EQ(BoolArray(8).storage_bytes(), 2u);
    EXPECT_EQ(BoolArray(0).storage_bytes(), 1u);
    kx_memory_file empty(8);
    BoolArray(0).write(empty);
    EXPECT_EQ(empty.size(), 2u);

    BoolArray bits(10);
    bits.set(0, true);
    bits.set(7, true);
    bits.set(9, true);
    kx_memory_file stream(8);
    bits.write(stream);
    ASSERT_EQ(stream.size(), 4u);
    EXPECT_EQ(stream.contents()[0], std::byte{10});
    EXPECT_EQ(stream.contents()[2], std::byte{0x81});
    EXPECT_EQ(stream.contents()[3], std::byte{0x02});
}

TEST(BoolArray, StaysAsItWasWhenTheStreamIsShort) {
    BoolArray bits(10);
    bits.set(3, true);
    const std::array<std::byte, 3> bytes{std::byte{0xFF}, std::byte{0xFF}, std::byte{1}};
    kx_memory_file stream = kx_memory_file::reading(bytes);
    EXPECT_THROW(bits.read(stream), kx_err);
    EXPECT_EQ(bits.count(), 10);
    EXPECT_TRUE(bits.get(3));
    const std::array<std::byte, 2> no_bits{};
    kx_memory_file none = kx_memory_file::reading(no_bits);
    bits.read(none);
    EXPECT_EQ(bits.count(), 0);
    EXPECT_EQ(bits.storage_bytes(), 0u);
}

TEST(GrowArray, GrowsByItsStepOrNotAtAll) {
    int item = 0;
    kx_grow_array<int*> fixed(2, 0);
    EXPECT_EQ(fixed.add(&item), &item);
    fixed.add(&item);
    try {
        fixed.add(&item);
        FAIL() << "a full array took one more";
    } catch (const kx_err& error) {
        EXPECT_EQ(error.message(), "kx_grow_array out of entries");
    }
    EXPECT_EQ(fixed.count(), 2u);
    kx_grow_array<int*> growing(0, 8);
    for (int i = 0; i < 9; ++i)
        growing.add(&item);
    EXPECT_EQ(growing.capacity(), 16u);
    EXPECT_EQ(growing[8], &item);
}

}  // namespace
}  // namespace vorrim
