#include "Z/ZArray.h"

#include <functional>
#include <limits>
#include <vector>

#include "support/objects.h"

using namespace testsupport;

namespace {

class ArrayTest : public ObjectsTest {};

std::vector<int> valuesOf(ZArray const& array) {
    std::vector<int> values;
    for (unsigned int i = 0; i < array.size(); ++i)
        values.push_back(testsupport::valueOf(array.get(i)));
    return values;
}

TEST_F(ArrayTest, OwningKeepsClonesAndDeletesWhatItDrops) {
    EXPECT_EQ((std::vector<int>{noNumber}), valuesOf(ZArray(0, 0)));
    ZArray array(3, 1);
    {
        Number seven(7);
        array.set(0, &seven);
    }
    auto* const eight = new Number(8);
    array.setNoCopy(1, eight);
    EXPECT_EQ(eight, array.get(1));
    EXPECT_EQ((std::vector<int>{7, 8, noNumber}), valuesOf(array));
    array.set(0, eight);
    array.remove(1);
    array.setNoCopy(0, array.get(0));
    array.set(0, array.get(0));
    array.set(1, nullptr);
    EXPECT_EQ((std::vector<int>{8, noNumber, noNumber}), valuesOf(array));
    EXPECT_EQ(1, Number::alive);
    array.removeAll();
    EXPECT_EQ(0, Number::alive);
    array.setNoCopy(2, new Number(1));  // for the destructor
}

TEST_F(ArrayTest, SharingKeepsThePointersAndDeletesNothing) {
    Number one(1);
    Number two(2);
    {
        ZArray array(2, 0);
        array.set(0, &one);
        array.setNoCopy(1, &one);
        array.set(1, &two);
        array.remove(0);
        ZArray const copy(array);
        EXPECT_EQ(&two, copy.get(1));
    }
    EXPECT_EQ(2, Number::alive);
}

TEST_F(ArrayTest, BadIndexRaisesInvalidParameter) {
    ZArray array(2, 1);
    Number one(1);
    std::vector<std::function<void()>> const accesses = {
        [&] { static_cast<void>(array.get(2)); },
        [&] { array.set(2, &one); },
        [&] { array.setNoCopy(2, &one); },
        [&] { array.remove(2); },
        [&] { array.swap(0, 2); },
        [&] { array.swap(2, 0); },
        [&] { array.swap(2, 2); },
        [&] { array.remove(~0U); },
    };
    for (auto const& access : accesses)
        EXPECT_EQ(invalidParameter, thrownBy(access));
    EXPECT_EQ((std::vector<int>{noNumber, noNumber}), valuesOf(array));
}

TEST_F(ArrayTest, FailedCloneLeavesEverythingAsItWas) {
    ZArray array(2, 1);
    array.setNoCopy(0, new Number(1));
    array.setNoCopy(1, new Number(2));
    ZArray target(1, 1);
    target.setNoCopy(0, new Number(5));
    Number::clonesLeft = 1;
    EXPECT_EQ(notClonable, thrownBy([&] { target = array; }));
    EXPECT_EQ(notClonable, thrownBy([&] { array.set(0, array.get(1)); }));
    EXPECT_EQ((std::vector<int>{1, 2}), valuesOf(array));
    EXPECT_EQ((std::vector<int>{5}), valuesOf(target));
    EXPECT_EQ(3, Number::alive);
}

TEST_F(ArrayTest, FindsByTheEqualsOfTheObjectGiven) {
    ZArray array(5, 1);
    array.setNoCopy(1, new Number(1));
    array.setNoCopy(2, new Number(2));
    array.setNoCopy(4, new Number(1));
    struct Row {
        int value, first, last;
    };
    for (Row const& row : {Row{1, 1, 4}, Row{2, 2, 2}, Row{3, -1, -1}}) {
        Number const probe(row.value);
        EXPECT_EQ(row.first, array.indexOf(&probe));
        EXPECT_EQ(row.last, array.lastIndexOf(&probe));
        EXPECT_EQ(row.first >= 0, array.contains(&probe));
    }
    EXPECT_EQ(0, array.indexOf(nullptr));
    EXPECT_EQ(3, array.lastIndexOf(nullptr));
    array.swap(1, 2);
    array.swap(4, 4);
    EXPECT_EQ((std::vector<int>{noNumber, 2, 1, noNumber, 1}), valuesOf(array));
}

TEST_F(ArrayTest, CopyOfAnOwningOneIsDeep) {
    ZArray owning(2, 1);
    owning.setNoCopy(1, new Number(1));
    std::unique_ptr<ZObject> const copy(owning.clone());
    EXPECT_EQ(valuesOf(owning), valuesOf(dynamic_cast<ZArray const&>(*copy)));
    EXPECT_EQ(2, Number::alive);
    ZArray const& itself = owning;
    owning = itself;
    EXPECT_EQ((std::vector<int>{noNumber, 1}), valuesOf(owning));
}

TEST_F(ArrayTest, LengthThatNoIndexCouldTellIsOutOfMemory) {
    constexpr unsigned int most = std::numeric_limits<unsigned int>::max();
    for (unsigned int const length : {most, most / 2 + 1})
        EXPECT_EQ(outOfMemory, thrownBy([&] { ZArray const array(length, 0); }));
}

}  // namespace
