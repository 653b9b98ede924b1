/// Objects that tell what a container did with them.
#ifndef ZFC_TESTS_SUPPORT_OBJECTS_H
#define ZFC_TESTS_SUPPORT_OBJECTS_H

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Z/ZList.h"
#include "support/faults.h"
#include "support/reports.h"

namespace testsupport {

/// A number as an object; equal numbers are equal objects. Counts its objects.
class Number : public ZObject {
  public:
    // NOLINTNEXTLINE(google-explicit-constructor): tests read better
    Number(int number) : value(number) { ++alive; }
    Number(Number const& other) : ZObject(other), value(other.value) { ++alive; }
    ~Number() override { --alive; }

    [[nodiscard]] unsigned long hash() const override {
        return static_cast<unsigned long>(value / perHash);
    }
    [[nodiscard]] int compare(ZObject const& other) const override {
        auto const* const number = dynamic_cast<Number const*>(&other);
        if (number == nullptr) return ZObject::compare(other);
        return (value > number->value) - (value < number->value);
    }
    /// Null when no clones are left.
    [[nodiscard]] ZObject* clone() const override {
        if (clonesLeft == 0) return nullptr;
        --clonesLeft;
        return new Number(*this);
    }

    int const value;

    inline static int alive = 0;        // objects of the class
    inline static int clonesLeft = -1;  // below 0: no limit
    inline static int perHash = 1;      // numbers in a row that have one hash
};

/// The number of `object`; `noNumber` for null.
constexpr int noNumber = -999;
inline int valueOf(ZObject const* object) {
    return object != nullptr ? dynamic_cast<Number const&>(*object).value : noNumber;
}
/// The other way round.
inline Number* objectOf(Number& number) { return number.value == noNumber ? nullptr : &number; }

using Values = std::vector<int>;

/// The members of a list or an array.
template <class Row>
Values valuesOf(Row const& row) {
    Values values;
    for (unsigned int i = 0; i < row.size(); ++i)
        values.push_back(valueOf(row.get(i)));
    return values;
}

/// Puts a number of its own into the list for each value, null for `noNumber`.
inline void fill(ZList& list, Values const& values) {
    for (int const value : values)
        list.addNoCopy(value == noNumber ? nullptr : new Number(value));
}

constexpr int outOfMemory = 1;
constexpr int notClonable = 14;
constexpr int invalidParameter = 22;

/// The message number that `action` throws; 0 when it throws nothing.
template <class Action>
int errorOf(Action action) {
    return thrownBy(action).number;
}

/// As errorOf(), while all calls that the program wraps fail.
template <class Action>
int errorWithoutMemory(Action action) {
    fault = {"", 1, ENOMEM, everyone};
    int const error = errorOf(action);
    fault = {};
    return error;
}

/// As errorOf(); at times with too few clones, or without memory. Expects that nothing else is
/// thrown, and that no lack is passed over.
template <class Action>
int errorAtTimes(std::mt19937& random, Action action) {
    Number::clonesLeft = random() % 6 == 0 ? static_cast<int>(random() % 3) : -1;
    if (random() % 6 == 0) fault = {"", 1, ENOMEM, everyone};
    int const error = errorOf(action);
    EXPECT_EQ(fault.seen > 0, error == outOfMemory);
    EXPECT_TRUE(error == 0 || error == outOfMemory ||
                (error == notClonable && Number::clonesLeft == 0));
    Number::clonesLeft = -1;
    fault = {};
    return error;
}

/// No object outlives a test, and whatever it limited has no limit behind it.
class ObjectsTest : public testing::Test {
  protected:
    void TearDown() override {
        Number::clonesLeft = -1;
        Number::perHash = 1;
        EXPECT_EQ(0, Number::alive);
    }
};

}  // namespace testsupport

#endif
