#include "Z/ZArray.h"

#include <functional>
#include <limits>
#include <vector>

#include "support/objects.h"

using namespace testsupport;

namespace {

using Values = std::vector<int>;

class ArrayTest : public ObjectsTest {};

Values valuesOf(ZArray const& array) {
    Values values;
    for (unsigned int i = 0; i < array.size(); ++i)
        values.push_back(testsupport::valueOf(array.get(i)));
    return values;
}

void fill(ZArray& array, Values const& values) {
    for (unsigned int i = 0; i < values.size(); ++i)
        array.setNoCopy(i, values[i] == noNumber ? nullptr : new Number(values[i]));
}

TEST_F(ArrayTest, OwningKeepsClonesAndDeletesWhatItDrops) {
    EXPECT_EQ((Values{noNumber}), valuesOf(ZArray(0, 0)));
    ZArray array(3, 1);
    Number seven(7);
    auto* const eight = new Number(8);
    array.set(0, &seven);
    array.setNoCopy(1, eight);
    EXPECT_NE(&seven, array.get(0));
    EXPECT_EQ(eight, array.get(1));
    EXPECT_EQ((Values{7, 8, noNumber}), valuesOf(array));
    array.set(0, eight);
    array.remove(1);
    array.setNoCopy(0, array.get(0));
    array.set(0, array.get(0));
    array.set(1, nullptr);
    EXPECT_EQ((Values{8, noNumber, noNumber}), valuesOf(array));
    EXPECT_EQ(2, Number::alive);
    array.removeAll();
    EXPECT_EQ(1, Number::alive);
    fill(array, {1});  // for the destructor
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
        EXPECT_EQ(&two, ZArray(array).get(1));
    }
    EXPECT_EQ(2, Number::alive);
}

TEST_F(ArrayTest, BadIndexOrLengthIsRefused) {
    ZArray array(2, 1);
    Number one(1);
    std::function<void()> const accesses[] = {
        [&] { static_cast<void>(array.get(2)); },
        [&] { array.set(2, &one); },
        [&] { array.setNoCopy(2, &one); },
        [&] { array.remove(~0U); },
        [&] { array.swap(0, 2); },
        [&] { array.swap(2, 0); },
        [&] { array.swap(2, 2); },
    };
    for (auto const& access : accesses)
        EXPECT_EQ(invalidParameter, thrownBy(access));
    EXPECT_EQ((Values{noNumber, noNumber}), valuesOf(array));
    constexpr unsigned int most = std::numeric_limits<unsigned int>::max();
    for (unsigned int const length : {most, most / 2 + 1})
        EXPECT_EQ(outOfMemory, thrownBy([&] { ZArray const tooLong(length, 0); }));
}

TEST_F(ArrayTest, CopyOfAnOwningOneIsDeepOrFailsAndChangesNothing) {
    ZArray array(2, 1);
    fill(array, {1, 2});
    ZArray target(1, 1);
    fill(target, {5});
    Number::clonesLeft = 1;
    EXPECT_EQ(notClonable, thrownBy([&] { target = array; }));
    EXPECT_EQ(notClonable, thrownBy([&] { array.set(0, array.get(1)); }));
    EXPECT_EQ((Values{1, 2}), valuesOf(array));
    EXPECT_EQ((Values{5}), valuesOf(target));
    EXPECT_EQ(3, Number::alive);
    Number::clonesLeft = -1;
    std::unique_ptr<ZObject> const copy(array.clone());
    array.removeAll();
    ZArray const& itself = target = dynamic_cast<ZArray const&>(*copy);
    target = itself;
    EXPECT_EQ((Values{1, 2}), valuesOf(target));
}

TEST_F(ArrayTest, FindsByTheEqualsOfTheObjectGiven) {
    ZArray array(5, 1);
    fill(array, {noNumber, 1, 2, noNumber, 1});
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
    EXPECT_EQ((Values{noNumber, 2, 1, noNumber, 1}), valuesOf(array));
}

}  // namespace
