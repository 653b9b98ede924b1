#include "Z/ZObserve.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/reports.h"
#include "support/threads.h"

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::onThread;
using testsupport::Report;
using testsupport::thrownBy;

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
    std::string notified() {
        calls.clear();
        subject.notifyObservers(notice);
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
};

TEST_F(ObserverTest, AreCalledOnceEachInOrderOfFirstRegistration) {
    EXPECT_EQ(notified(), "");
    for (Observer* observer : {&b, &a, &b, &c, &a})
        subject.addObserver(observer);
    EXPECT_EQ(subject.countObservers(), 3U);
    EXPECT_EQ(notified(), "bac");
    EXPECT_EQ(a.lastSource, &subject);
    EXPECT_EQ(a.lastParm, &notice);
}

TEST_F(ObserverTest, AreForgottenOneByOneOrAllAtOnce) {
    subject.deleteObserver(&a);
    registerAll();
    subject.deleteObserver(&b);
    subject.deleteObserver(&b);
    subject.deleteObserver(nullptr);
    EXPECT_EQ(notified(), "ac");
    subject.addObserver(&b);
    EXPECT_EQ(notified(), "acb");
    subject.deleteObservers();
    EXPECT_EQ(subject.countObservers(), 0U);
    EXPECT_EQ(notified(), "");
}

TEST_F(ObserverTest, NullIsRefused) {
    EXPECT_EQ(thrownBy([&] { subject.addObserver(nullptr); }),
              (Report{"ZInvalidParameterException", 22, {}}));
    EXPECT_EQ(subject.countObservers(), 0U);
}

TEST_F(ObserverTest, ThoseWhoChangeTheListInsideUpdateMissNobodyAndCallNobodyGone) {
    struct Change {
        char const* name;
        std::function<void()> inUpdateOfB;
        char const* now;
        char const* next;
    };
    Observer d(calls, 'd');
    for (Change const& change : std::vector<Change>{
             {"itself", [&] { subject.deleteObserver(&b); }, "abc", "ac"},
             {"one before", [&] { subject.deleteObserver(&a); }, "abc", "bc"},
             {"one behind", [&] { subject.deleteObserver(&c); }, "ab", "ab"},
             {"all", [&] { subject.deleteObservers(); }, "ab", ""},
             {"one more", [&] { subject.addObserver(&d); }, "abc", "abcd"},
         }) {
        SCOPED_TRACE(change.name);
        subject.deleteObservers();
        registerAll();
        b.onUpdate = change.inUpdateOfB;
        EXPECT_EQ(notified(), change.now);
        b.onUpdate = nullptr;
        EXPECT_EQ(notified(), change.next);
    }
}

TEST_F(ObserverTest, OneThatThrowsEndsTheNotificationAndLeavesTheListUsable) {
    registerAll();
    b.onUpdate = [] { throw std::runtime_error("observer"); };
    EXPECT_THROW(notified(), std::runtime_error);
    EXPECT_EQ(calls, "ab");
    b.onUpdate = nullptr;
    EXPECT_EQ(onThread([&] { return notified(); }), "abc") << "no lock was left behind";
}

TEST_F(ObserverTest, RegistrationWaitsForARunningNotification) {
    subject.addObserver(&a);
    Gate inUpdate;
    Gate goOn;
    std::string order;
    a.onUpdate = [&] {
        inUpdate.open();
        goOn.await();
        order += "updated ";
    };
    Beside notifier([&] { subject.notifyObservers(notice); });
    inUpdate.await();
    Gate registering;
    Beside registrar([&] {
        registering.open();
        subject.addObserver(&b);
        order += "added";
    });
    registering.await();
    goOn.open();
    notifier.join();
    registrar.join();
    EXPECT_EQ(order, "updated added");
}

TEST_F(ObserverTest, StayWithTheObjectWhenItIsCopiedOrAssigned) {
    subject.addObserver(&a);
    Subject copy(subject);
    EXPECT_EQ(copy.countObservers(), 0U);
    copy.addObserver(&b);
    copy = subject;
    calls.clear();
    copy.notifyObservers(notice);
    EXPECT_EQ(calls, "b");
    EXPECT_EQ(notified(), "a");
}

TEST_F(ObserverTest, VoyeursAreEqualWhenTheyHoldTheSameObserver) {
    Voyeur const one(&a);
    Voyeur const same(&a);
    Voyeur const other(&b);
    EXPECT_TRUE(one.equals(same));
    EXPECT_EQ(one.hash(), same.hash());
    EXPECT_EQ(one.compare(other), -other.compare(one));
    EXPECT_NE(one.compare(other), 0);
    EXPECT_FALSE(one.equals(notice));
    std::unique_ptr<ZObject> const clone(one.clone());
    EXPECT_TRUE(clone->equals(one));
}

}  // namespace
