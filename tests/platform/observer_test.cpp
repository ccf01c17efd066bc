#include <varnox/observer.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using Varnox::tcObservable;
using Varnox::tcObserver;
using Varnox::tsUpdate;

namespace {

using tsTrace = std::vector<std::string>;

/// Writes its name into a trace and then does what the test wants.
class tcTracing : public tcObserver {
public:
    tcTracing(tsTrace& trace, std::string name, std::function<void()> action = {})
        : m_trace(trace), m_name(std::move(name)), m_action(std::move(action)) {}

    void update(tsUpdate& update) override {
        m_trace.push_back(m_name + std::to_string(update.value));
        if (m_action)
            m_action();
    }

private:
    tsTrace& m_trace;
    std::string m_name;
    std::function<void()> m_action;
};

class ObservableTest : public testing::Test {
protected:
    void notify(std::uint32_t value) {
        tsUpdate update{1, 0x3A000, value, false, 0};
        observable.notify(update);
    }

    tcObservable observable;
    tsTrace trace;
};

} // namespace

TEST_F(ObservableTest, NotifiesInTheOrderOfRegistration) {
    tcTracing b(trace, "b");
    tcTracing a(trace, "a");
    tcTracing c(trace, "c");
    observable.registerObserver(b);
    observable.registerObserver(a);
    observable.registerObserver(c);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("b1", "a1", "c1"));
}

TEST_F(ObservableTest, NotifiesOnceWhoIsRegisteredTwice) {
    tcTracing a(trace, "a");
    observable.registerObserver(a);
    observable.registerObserver(a);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1"));
    observable.unregisterObserver(a);
    notify(2);
    EXPECT_THAT(trace, ElementsAre("a1"));
}

TEST_F(ObservableTest, IgnoresUnregisteringAStranger) {
    tcTracing a(trace, "a");
    tcTracing stranger(trace, "s");
    observable.registerObserver(a);
    observable.unregisterObserver(stranger);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1"));
}

TEST_F(ObservableTest, ForgetsADestroyedObserver) {
    tcTracing a(trace, "a");
    observable.registerObserver(a);
    {
        tcTracing b(trace, "b");
        observable.registerObserver(b);
    }
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1"));
}

TEST_F(ObservableTest, MayBeDestroyedBeforeItsObservers) {
    tcTracing a(trace, "a");
    observable.registerObserver(a);
    {
        tcObservable shortLived;
        shortLived.registerObserver(a);
    }
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1"));
}

TEST_F(ObservableTest, SharesObserversWithOthers) {
    tcObservable other;
    {
        tcTracing a(trace, "a");
        observable.registerObserver(a);
        other.registerObserver(a);
        notify(1);
        tsUpdate update{1, 0, 2, false, 0};
        other.notify(update);
        EXPECT_THAT(trace, ElementsAre("a1", "a2"));
    }
    tsUpdate update{1, 0, 3, false, 0};
    other.notify(update);
    notify(4);
    EXPECT_THAT(trace, ElementsAre("a1", "a2"));
}

TEST_F(ObservableTest, HandsAMarkedUpdateOn) {
    class tcMarking : public tcObserver {
    public:
        void update(tsUpdate& update) override {
            seenHandled = update.handled;
            update.handled = true;
            update.status = 0x8FFF;
        }
        bool seenHandled = false;
    };
    tcMarking first;
    tcMarking second;
    observable.registerObserver(first);
    observable.registerObserver(second);
    tsUpdate update{1, 0x3A000, 1, false, 0};
    observable.notify(update);
    EXPECT_FALSE(first.seenHandled);
    EXPECT_TRUE(second.seenHandled);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0x8FFF);
}

TEST_F(ObservableTest, LetsAnObserverTakeItselfOffInItsUpdate) {
    tcTracing a(trace, "a", [&] { observable.unregisterObserver(a); });
    tcTracing b(trace, "b");
    observable.registerObserver(a);
    observable.registerObserver(b);
    notify(1);
    notify(2);
    EXPECT_THAT(trace, ElementsAre("a1", "b1", "b2"));
}

TEST_F(ObservableTest, LetsAnObserverDestroyALaterOne) {
    auto victim = std::make_unique<tcTracing>(trace, "v");
    tcTracing a(trace, "a", [&] { victim.reset(); });
    tcTracing b(trace, "b");
    observable.registerObserver(a);
    observable.registerObserver(*victim);
    observable.registerObserver(b);
    notify(1);
    notify(2);
    EXPECT_THAT(trace, ElementsAre("a1", "b1", "a2", "b2"));
}

TEST_F(ObservableTest, LetsAnObserverDestroyAnEarlierOne) {
    auto victim = std::make_unique<tcTracing>(trace, "v");
    tcTracing a(trace, "a", [&] { victim.reset(); });
    tcTracing b(trace, "b");
    observable.registerObserver(*victim);
    observable.registerObserver(a);
    observable.registerObserver(b);
    notify(1);
    notify(2);
    EXPECT_THAT(trace, ElementsAre("v1", "a1", "b1", "a2", "b2"));
}

TEST_F(ObservableTest, LetsAnObserverDestroyItself) {
    class tcSuicidal : public tcObserver {
    public:
        tcSuicidal(std::unique_ptr<tcSuicidal>& self, tsTrace& trace)
            : m_self(self), m_trace(trace) {}
        void update(tsUpdate& /*update*/) override {
            m_trace.push_back("self");
            m_self.reset();
        }

    private:
        std::unique_ptr<tcSuicidal>& m_self;
        tsTrace& m_trace;
    };
    std::unique_ptr<tcSuicidal> self;
    self = std::make_unique<tcSuicidal>(self, trace);
    tcTracing b(trace, "b");
    observable.registerObserver(*self);
    observable.registerObserver(b);
    notify(1);
    notify(2);
    EXPECT_THAT(trace, ElementsAre("self", "b1", "b2"));
}

TEST_F(ObservableTest, NotifiesWhoRegistersMeanwhileFromTheNextUpdateOn) {
    tcTracing late(trace, "l");
    tcTracing a(trace, "a", [&] { observable.registerObserver(late); });
    observable.registerObserver(a);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1"));
    notify(2);
    EXPECT_THAT(trace, ElementsAre("a1", "a2", "l2"));
}

TEST_F(ObservableTest, NotifiesOnceWhoLeavesAndComesBackMeanwhile) {
    tcTracing b(trace, "b");
    tcTracing a(trace, "a", [&] {
        observable.unregisterObserver(b);
        observable.registerObserver(b);
    });
    observable.registerObserver(a);
    observable.registerObserver(b);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1"));
    notify(2);
    EXPECT_THAT(trace, ElementsAre("a1", "a2"));
}

TEST_F(ObservableTest, NotifiesFromWithinAnUpdate) {
    int depth = 0;
    tcTracing a(trace, "a", [&] {
        if (++depth == 1)
            notify(2);
    });
    tcTracing b(trace, "b");
    observable.registerObserver(a);
    observable.registerObserver(b);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1", "a2", "b2", "b1"));
}

TEST_F(ObservableTest, KeepsItsPlacesWhenAnInnerNotificationDropsOne) {
    std::optional<tcTracing> victim;
    int depth = 0;
    tcTracing a(trace, "a", [&] {
        if (++depth == 1)
            notify(2);
        else
            victim.reset();
    });
    tcTracing b(trace, "b");
    victim.emplace(trace, "v");
    observable.registerObserver(a);
    observable.registerObserver(*victim);
    observable.registerObserver(b);
    notify(1);
    EXPECT_THAT(trace, ElementsAre("a1", "a2", "b2", "b1"));
}

TEST_F(ObservableTest, WorksOnAfterAnObserverThrew) {
    bool throws = true;
    tcTracing b(trace, "b");
    tcTracing a(trace, "a", [&] {
        observable.unregisterObserver(b);
        if (throws)
            throw std::runtime_error("refused");
    });
    tcTracing c(trace, "c");
    observable.registerObserver(a);
    observable.registerObserver(b);
    observable.registerObserver(c);
    EXPECT_THROW(notify(1), std::runtime_error);
    throws = false;
    notify(2);
    EXPECT_THAT(trace, ElementsAre("a1", "a2", "c2"));
}

TEST_F(ObservableTest, NotifiesNobodyAtFirst) {
    notify(1);
    EXPECT_THAT(trace, IsEmpty());
}

TEST(ObservableThreads, UnregisteringWaitsForANotificationUnderWay) {
    class tcSlow : public tcObserver {
    public:
        void update(tsUpdate& /*update*/) override {
            inside = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            inside = false;
        }
        std::atomic<bool> inside = false;
    };
    tcObservable observable;
    tcSlow slow;
    observable.registerObserver(slow);
    std::thread other([&] {
        tsUpdate update;
        observable.notify(update);
    });
    while (!slow.inside)
        std::this_thread::yield();
    observable.unregisterObserver(slow);
    EXPECT_FALSE(slow.inside);
    other.join();
}

TEST(ObservableThreads, ObserversComeAndGoWhileOthersNotify) {
    class tcCounting : public tcObserver {
    public:
        void update(tsUpdate& update) override {
            ++count; // the observables' lock keeps two updates apart
            update.handled = true;
        }
        int count = 0;
    };
    constexpr int kRounds = 2000;
    tcObservable observable;
    tcCounting steady;
    observable.registerObserver(steady);
    const auto notifying = [&] {
        for (int i = 0; i < kRounds; ++i) {
            tsUpdate update;
            observable.notify(update);
            EXPECT_TRUE(update.handled);
        }
    };
    std::thread one(notifying);
    std::thread two(notifying);
    for (int i = 0; i < kRounds; ++i) {
        tcCounting visitor;
        observable.registerObserver(visitor);
        observable.unregisterObserver(visitor);
    }
    one.join();
    two.join();
    EXPECT_EQ(steady.count, 4000);
}
