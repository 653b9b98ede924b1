#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "Z/ZObserve.h"
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
            EXPECT_TRUE(source == &test.subject && &parm == &test.notice);
            test.calls += name;
            if (onUpdate) onUpdate();
        }
        ObserverTest& test;
        char name;
        std::function<void()> onUpdate{};
    };

    void observeBy(std::initializer_list<Observer*> observers) {
        subject.deleteObservers();
        for (Observer* const observer : observers)
            subject.addObserver(observer);
    }

    /// Who is called by one notification, in order; "!" when that throws.
    std::string notified() {
        calls.clear();
        try {
            subject.notifyObservers(notice);
        } catch (std::runtime_error const&) {
            calls += '!';
        }
        return calls;
    }

    Subject subject;
    Notice notice;
    std::string calls;
    Observer a{*this, 'a'}, b{*this, 'b'}, c{*this, 'c'}, d{*this, 'd'};
};

TEST_F(ObserverTest, AreCalledOnceEachInOrderOfFirstRegistrationUntilForgotten) {
    EXPECT_EQ(notified(), "");
    observeBy({&b, &a, &b, &c, &a});
    EXPECT_EQ(subject.countObservers(), 3U);
    EXPECT_EQ(notified(), "bac");
    for (Observer* observer : {&a, &a, &d, static_cast<Observer*>(nullptr)})
        subject.deleteObserver(observer);
    EXPECT_EQ(notified(), "bc");
    EXPECT_EQ(thrownBy([&] { subject.addObserver(nullptr); }), invalidParameter);
    Subject copy(subject);
    EXPECT_EQ(copy.countObservers(), 0U) << "observers stay with the object";
    copy.addObserver(&a);
    copy = subject;
    EXPECT_EQ(copy.countObservers(), 1U);
    EXPECT_TRUE(Voyeur(&a) < Voyeur(&b) && Voyeur(&b) > Voyeur(&a)) << "by their addresses";
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
        {[&] { subject.addObserver(&d); }, "abc", "abcd"},
        {[&] { throw std::runtime_error("observer"); }, "ab!", "abc"},
    };
    for (auto const& change : changes) {
        observeBy({&a, &b, &c});
        b.onUpdate = change.inUpdateOfB;
        EXPECT_EQ(notified(), change.now);
        b.onUpdate = nullptr;
        EXPECT_EQ(onThread([&] { return notified(); }), change.next) << "no lock was left";
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
        observeBy({&a});
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
        calls.clear();
        subject.notifyObservers(notice);
        crew.join();
        EXPECT_EQ(calls, "a updated done");
    }
}

}  // namespace
