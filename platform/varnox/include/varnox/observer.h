/// \file
/// Observer and observable: how clients' writes to the register file reach the boards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <varnox/codes.h>
#include <varnox/export.h>

namespace Varnox {

/// One write by a client of the register file. Observers get it by reference and mark it.
struct tsUpdate {
    int kind = kUpdateWordWrite; ///< 1 = word write
    std::uint32_t address = 0;   ///< register-file address
    std::uint32_t value = 0;     ///< the word that the client wrote
    bool handled = false;        ///< set by the observer that took the update
    std::uint16_t status = 0;    ///< 0, or `kUpdateFailed`
};

class tcObservable;

/// Something that reacts to updates. It may be on several observables at once.
///
/// Slots: complete destructor, deleting destructor, `update`.
class VARNOX_API tcObserver {
public:
    tcObserver() = default;
    tcObserver(const tcObserver&) = delete;
    tcObserver& operator=(const tcObserver&) = delete;

    /// Takes the observer off every observable it is on. Waits for a notification that is under
    /// way on another thread. Where another thread may notify meanwhile, unregister the observer
    /// before destroying it: a derived class is gone by the time this destructor runs.
    virtual ~tcObserver();

    /// Called on the thread that writes the register file.
    virtual void update(tsUpdate& update) = 0;

private:
    friend class tcObservable;
    std::vector<tcObservable*> m_observables;
};

/// A list of observers, notified in the order of their registration.
///
/// All observables of a process share one recursive lock, held while observers are notified: an
/// observer may register, unregister and even destroy observers from its `update`.
class VARNOX_API tcObservable {
public:
    tcObservable() = default;
    tcObservable(const tcObservable&) = delete;
    tcObservable& operator=(const tcObservable&) = delete;
    ~tcObservable();

    /// Registering an observer that is already registered changes nothing.
    void registerObserver(tcObserver& observer);

    /// Unregistering an observer that is not registered changes nothing.
    void unregisterObserver(tcObserver& observer);

    /// Hands the update to every observer in turn, whether or not one has marked it already.
    /// Observers that register meanwhile get the next one.
    void notify(tsUpdate& update);

private:
    friend class tcObserver;
    class VARNOX_LOCAL tcNotification;

    void drop(const tcObserver& observer);

    std::vector<tcObserver*> m_observers; // null: left while a notification was under way
    std::size_t m_notifications = 0;      // under way, one inside the other
};

} // namespace Varnox
