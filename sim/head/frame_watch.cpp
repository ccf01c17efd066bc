#include "sim/head/frame_watch.h"

#include "sim/chips/link.h"

namespace sim {

namespace {

constexpr std::uint64_t kPatience = 3; // frame intervals without a picture

void addFlags(tcText& why, const tsLinkState& link) {
    why.add("the receiver's PLL has no lock (");
    const char* separator = "";
    const auto add = [&](bool set, const char* name) {
        if (!set) {
            why.add(separator).add(name);
            separator = ", ";
        }
    };
    add(link.locked, "locked");
    add(link.rgLocked, "rgLocked");
    add(link.gbLocked, "gbLocked");
    why.add(" not set)");
}

void addLanes(tcText& why, std::uint32_t missing) {
    const bool one = (missing & (missing - 1)) == 0;
    why.add(one ? "lane" : "lanes");
    for (unsigned lane = 0; lane < kLinkLanes; ++lane) {
        if ((missing >> lane & 1) != 0) {
            why.add(" ").decimal(lane);
        }
    }
    why.add(one ? " is not locked" : " are not locked");
}

// What keeps pictures away, in the order of their way: what stands before makes what comes behind
// meaningless.
tcText reasonOf(const tsDelivery& now) {
    constexpr std::uint32_t allLanes = (1U << kLinkLanes) - 1;
    tcText why;
    if (!now.clockKnown) {
        return why.add("the master clock is in no known state");
    }
    if (!now.pulses) {
        return why.add(now.triggered ? "no pulses: the sensor waits for triggers from outside, "
                                       "which do not come on this head"
                                     : "no pulses: nothing starts a frame");
    }
    if (!now.link.enabled) {
        return why.add("not aligned: the frame-control core is off");
    }
    if (!now.link.aligned) {
        why.add("not aligned: ");
        if (!now.link.locked || !now.link.rgLocked || !now.link.gbLocked) {
            addFlags(why, now.link);
        } else if (now.link.dpaLock != allLanes) {
            addLanes(why, allLanes & ~now.link.dpaLock);
        } else {
            why.add("all lanes are locked, but no frame is recognised");
        }
        return why;
    }
    if (!now.badPixelsRun || !now.pixelShiftRuns) {
        why.add("the pipeline is held: ");
        return why.add(now.pixelShiftRuns ? "the bad-pixel core does not run"
                                          : "the pixel-shift core is in reset");
    }
    return why.add("no frame came whole: the link or its timing changed before one was over");
}

} // namespace

void tcFrameWatch::look(const tsDelivery& now, std::uint64_t nowNs) {
    if (!now.streaming) {
        m_streaming = false;
        return;
    }
    if (!m_streaming) {
        begin(now, nowNs);
    }
    if (now.arrived > m_arrived && now.badPixelsRun && now.pixelShiftRuns) {
        m_delivered = true;
        m_pictures += now.arrived - m_arrived;
    }
    m_arrived = now.arrived;
    const bool wanted = now.pulses && now.link.enabled;
    if (wanted || !m_linkIsWanted) {
        m_link = now.link;
        m_linkIsWanted = wanted;
    }
    judge(now, nowNs);
}

void tcFrameWatch::begin(const tsDelivery& now, std::uint64_t nowNs) {
    m_streaming = true;
    m_silent = false;
    m_delivered = false;
    m_fromNs = nowNs;
    m_arrived = now.arrived;
    m_linkIsWanted = false;
}

// The reason is that of the moment at which patience ended: what stops a capture takes pulses and
// locks away, too.
void tcFrameWatch::judge(const tsDelivery& now, std::uint64_t nowNs) {
    const std::uint64_t lasted = nowNs - m_fromNs;
    if (m_silent) {
        if (m_count <= kKept) {
            m_silences[m_kept - 1].lastedNs = lasted;
        }
        return;
    }
    if (m_delivered || now.intervalNs == 0 || lasted <= kPatience * now.intervalNs) {
        return;
    }
    m_silent = true;
    ++m_count;
    if (m_kept < kKept) {
        m_silences[m_kept++] = {m_fromNs, lasted, now.intervalNs, reasonOf(now)};
    }
}

} // namespace sim
