#include "Z/ZObserve.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "support/locks.h"

namespace {

using namespace testsupport;

class Subject : public ZAbstractObservable {};
class Notice : public ZObservedParm {};

struct ObserverTest : testing::Test {
    /// Notes its name at each call, then does what the test wants.
    struct Observer : ZObserverInterface {
        Observer(ObserverTest& owner, char ownName) : test(owner), name(ownName) {}
        void update(ZAbstractObservable* source, ZObservedParm const& parm) override {
            EXPECT_TRUE(source == test.notifying && &parm == &test.notice);
            test.calls += name;
            if (onUpdate) onUpdate();
        }
        ObserverTest& test;
        char name;
        std::function<void()> onUpdate{};
    };

    /// Who is called by one notification, in order.
    std::string notified(Subject& source) {
        calls.clear();
        notifying = &source;
        source.notifyObservers(notice);
        return calls;
    }

    Subject subject;
    Subject* notifying = nullptr;
    Notice notice;
    std::string calls;
    Observer a{*this, 'a'}, b{*this, 'b'}, c{*this, 'c'}, d{*this, 'd'};
};

TEST_F(ObserverTest, AreCalledOnceEachInOrderOfFirstRegistrationUntilForgotten) {
    EXPECT_EQ(notified(subject), "");
    for (Observer* observer : {&b, &a, &b, &c, &a})
        subject.addObserver(observer);
    EXPECT_EQ(subject.countObservers(), 3U);
    EXPECT_EQ(notified(subject), "bac");
    for (Observer* observer : {&a, &a, &d, static_cast<Observer*>(nullptr)})
        subject.deleteObserver(observer);
    EXPECT_EQ(notified(subject), "bc");
    EXPECT_EQ(thrownBy([&] { subject.addObserver(nullptr); }), invalidParameter);
    Subject copy(subject);
    EXPECT_EQ(copy.countObservers(), 0U) << "observers stay with the object";
    copy.addObserver(&a);
    copy = subject;
    EXPECT_EQ(notified(copy), "a");
}

TEST_F(ObserverTest, WhoChangesTheListInsideUpdateMissesNobodyAndCallsNobodyGone) {
    struct {
        std::function<void()> inUpdateOfB;
        char const* now;
        char const* next;
    } const changes[] = {
        {[&] { subject.deleteObserver(&b); }, "abc", "ac"},
        {[&] { subject.deleteObserver(&a); }, "abc", "bc"},
        {[&] { subject.deleteObserver(&c); }, "ab", "ab"},
        {[&] { subject.deleteObservers(); }, "ab", ""},
        {[&] { subject.addObserver(&d); }, "abc", "abcd"},
        {[&] { throw std::runtime_error("observer"); }, "ab", "abc"},
    };
    for (auto const& change : changes) {
        subject.deleteObservers();
        for (Observer* observer : {&a, &b, &c})
            subject.addObserver(observer);
        b.onUpdate = change.inUpdateOfB;
        try {
            EXPECT_EQ(notified(subject), change.now);
        } catch (std::runtime_error const&) {
            EXPECT_EQ(calls, change.now) << "ends the notification";
        }
        b.onUpdate = nullptr;
        EXPECT_EQ(onThread([&] { return notified(subject); }), change.next) << "no lock was left";
    }
}

TEST_F(ObserverTest, EveryOtherOperationWaitsForARunningNotification) {
    std::function<void()> const operations[] = {
        [&] { subject.addObserver(&b); },
        [&] { subject.deleteObserver(&a); },
        [&] { subject.deleteObservers(); },
        [&] { static_cast<void>(subject.countObservers()); },
    };
    for (auto const& operation : operations) {
        subject.deleteObservers();
        subject.addObserver(&a);
        Gate begun;
        Crew crew;
        a.onUpdate = [&] {
            crew.add([&] {
                begun.open();
                operation();
                calls += " done";
            });
            begun.await();
            calls += " updated";
        };
        notified(subject);
        crew.join();
        EXPECT_EQ(calls, "a updated done");
    }
}

TEST_F(ObserverTest, VoyeursAreEqualWhenTheyHoldTheSameObserver) {
    Voyeur const one(&a);
    Voyeur const other(&b);
    std::unique_ptr<ZObject> const clone(one.clone());
    EXPECT_TRUE(clone->equals(one));
    EXPECT_EQ(clone->hash(), reinterpret_cast<unsigned long>(static_cast<void*>(&a)));
    EXPECT_EQ(one.compare(other), &a < &b ? -1 : 1);
    EXPECT_EQ(other.compare(one), -one.compare(other));
    EXPECT_FALSE(one.equals(notice));
}

}  // namespace
