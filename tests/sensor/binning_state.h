/// \file
/// A look at the driver's binning state, for which it has no getter.
#pragma once

#include <atomic>

#include "sensor/sensor.h"

std::atomic<unsigned short>& binningStateMember(tc3U5MGXS& sensor);

/// Naming a private member is allowed where a template is instantiated explicitly.
template<auto Member>
struct tsBinningState {
    friend std::atomic<unsigned short>& binningStateMember(tc3U5MGXS& sensor) {
        return sensor.*Member;
    }
};
template struct tsBinningState<&tc3U5MGXS::m_binning>;

/// \return 1 when two rows make one, else 0
inline unsigned short binningState(tc3U5MGXS& sensor) {
    return binningStateMember(sensor);
}
