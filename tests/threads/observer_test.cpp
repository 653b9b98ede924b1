#include "Z/ZObserve.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "support/locks.h"

namespace {

using namespace testsupport;

class Subject : public ZAbstractObservable {};

class Notice : public ZObservedParm {};

/// Notes its name at each call, then does what the test wants.
class Observer : public ZObserverInterface {
  public:
    Observer(std::string& callsOfAll, char ownName) : calls(callsOfAll), name(ownName) {}
    void update(ZAbstractObservable* source, ZObservedParm const& parm) override {
        calls += name;
        lastSource = source;
        lastParm = &parm;
        if (onUpdate) onUpdate();
    }

    std::function<void()> onUpdate;
    ZAbstractObservable* lastSource = nullptr;
    ZObservedParm const* lastParm = nullptr;

  private:
    std::string& calls;
    char name;
};

class ObserverTest : public testing::Test {
  protected:
    /// Who is called by one notification, in order.
    std::string notified(Subject& source) {
        calls.clear();
        source.notifyObservers(notice);
        return calls;
    }
    void registerAll() {
        for (Observer* observer : {&a, &b, &c})
            subject.addObserver(observer);
    }

    Subject subject;
    Notice notice;
    std::string calls;
    Observer a{calls, 'a'};
    Observer b{calls, 'b'};
    Observer c{calls, 'c'};
    Observer d{calls, 'd'};
};

TEST_F(ObserverTest, AreCalledOnceEachInOrderOfFirstRegistrationUntilForgotten) {
    EXPECT_EQ(notified(subject), "");
    for (Observer* observer : {&b, &a, &b, &c, &a})
        subject.addObserver(observer);
    EXPECT_EQ(subject.countObservers(), 3U);
    EXPECT_EQ(notified(subject), "bac");
    EXPECT_EQ(a.lastSource, &subject);
    EXPECT_EQ(a.lastParm, &notice);
    for (Observer* observer : {&a, &a, &d, static_cast<Observer*>(nullptr)})
        subject.deleteObserver(observer);
    EXPECT_EQ(notified(subject), "bc");
    EXPECT_EQ(thrownBy([&] { subject.addObserver(nullptr); }), invalidParameter);
    subject.addObserver(&a);
    EXPECT_EQ(notified(subject), "bca");
    subject.deleteObservers();
    EXPECT_EQ(subject.countObservers(), 0U);
}

TEST_F(ObserverTest, ThoseWhoChangeTheListInsideUpdateMissNobodyAndCallNobodyGone) {
    struct Change {
        std::function<void()> inUpdateOfB;
        char const* now;
        char const* next;
    };
    Change const changes[] = {
        {[&] { subject.deleteObserver(&b); }, "abc", "ac"},
        {[&] { subject.deleteObserver(&a); }, "abc", "bc"},
        {[&] { subject.deleteObserver(&c); }, "ab", "ab"},
        {[&] { subject.deleteObservers(); }, "ab", ""},
        {[&] { subject.addObserver(&d); }, "abc", "abcd"},
    };
    for (Change const& change : changes) {
        subject.deleteObservers();
        registerAll();
        b.onUpdate = change.inUpdateOfB;
        EXPECT_EQ(notified(subject), change.now);
        b.onUpdate = nullptr;
        EXPECT_EQ(notified(subject), change.next);
    }
}

TEST_F(ObserverTest, OneThatThrowsEndsTheNotificationAndLeavesTheListUsable) {
    registerAll();
    b.onUpdate = [] { throw std::runtime_error("observer"); };
    EXPECT_THROW(notified(subject), std::runtime_error);
    EXPECT_EQ(calls, "ab");
    b.onUpdate = nullptr;
    EXPECT_EQ(onThread([&] { return notified(subject); }), "abc") << "no lock was left behind";
}

TEST_F(ObserverTest, RegistrationWaitsForARunningNotification) {
    Gate registering;
    std::string order;
    Crew crew;
    a.onUpdate = [&] {
        crew.add([&] {
            registering.open();
            subject.addObserver(&b);
            order += "added";
        });
        registering.await();
        order += "updated ";
    };
    subject.addObserver(&a);
    subject.notifyObservers(notice);
    crew.join();
    EXPECT_EQ(order, "updated added");
}

TEST_F(ObserverTest, StayWithTheObjectWhenItIsCopiedOrAssigned) {
    subject.addObserver(&a);
    Subject copy(subject);
    EXPECT_EQ(copy.countObservers(), 0U);
    copy.addObserver(&b);
    copy = subject;
    EXPECT_EQ(notified(copy), "b");
    EXPECT_EQ(notified(subject), "a");
}

TEST_F(ObserverTest, VoyeursAreEqualWhenTheyHoldTheSameObserver) {
    Voyeur const one(&a);
    Voyeur const other(&b);
    std::unique_ptr<ZObject> const clone(one.clone());
    EXPECT_TRUE(clone->equals(one));
    EXPECT_EQ(clone->hash(), reinterpret_cast<unsigned long>(static_cast<void*>(&a)));
    EXPECT_EQ(one.compare(other), &a < &b ? -1 : 1);
    EXPECT_EQ(other.compare(one), &a < &b ? 1 : -1);
    EXPECT_FALSE(one.equals(notice));
}

}  // namespace
