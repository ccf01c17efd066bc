#include <varnox/observer.h>

#include <algorithm>
#include <type_traits>

#include "observer_lock.h"

namespace Varnox {

namespace {

// Observers with static storage take themselves off while the process ends: the lock is still
// there.
static_assert(std::is_trivially_destructible_v<std::recursive_mutex>);
constinit std::recursive_mutex theObserverLock;

template<typename T>
bool contains(const std::vector<T*>& pointers, const T* pointer) {
    return std::find(pointers.begin(), pointers.end(), pointer) != pointers.end();
}

} // namespace

std::recursive_mutex& observerLock() {
    return theObserverLock;
}

tcObserver::~tcObserver() {
    const std::lock_guard lock(theObserverLock);
    for (tcObservable* observable : m_observables)
        observable->drop(*this);
}

tcObservable::~tcObservable() {
    const std::lock_guard lock(theObserverLock);
    for (tcObserver* observer : m_observers) {
        if (observer != nullptr)
            std::erase(observer->m_observables, this);
    }
}

void tcObservable::registerObserver(tcObserver& observer) {
    const std::lock_guard lock(theObserverLock);
    if (contains(m_observers, &observer))
        return;
    m_observers.push_back(&observer);
    observer.m_observables.push_back(this);
}

void tcObservable::unregisterObserver(tcObserver& observer) {
    const std::lock_guard lock(theObserverLock);
    drop(observer);
    std::erase(observer.m_observables, this);
}

void tcObservable::drop(const tcObserver& observer) {
    // A notification under way counts places in the list: they stay until it is over.
    std::replace(m_observers.begin(), m_observers.end(), const_cast<tcObserver*>(&observer),
                 static_cast<tcObserver*>(nullptr));
    if (m_notifications == 0)
        std::erase(m_observers, nullptr);
}

/// Counts a notification for as long as it runs, also when an observer throws.
class tcObservable::tcNotification {
public:
    explicit tcNotification(tcObservable& observable) : m_observable(observable) {
        ++m_observable.m_notifications;
    }
    tcNotification(const tcNotification&) = delete;
    tcNotification& operator=(const tcNotification&) = delete;
    ~tcNotification() {
        if (--m_observable.m_notifications == 0)
            std::erase(m_observable.m_observers, nullptr);
    }

private:
    tcObservable& m_observable;
};

void tcObservable::notify(tsUpdate& update) {
    const std::lock_guard lock(theObserverLock);
    const tcNotification notification(*this);
    // Who registers meanwhile stands behind `count` and is served from the next update on.
    const std::size_t count = m_observers.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (m_observers[i] != nullptr)
            m_observers[i]->update(update);
    }
}

} // namespace Varnox
