// The arithmetic against a second telling of it: straight down, in wide signed integers reduced
// by remainders, where the driver works in records and wrapping unsigned ones.

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "sensor/exposure_arithmetic.h"

using std::chrono::microseconds;

namespace {

using tcWide = std::int64_t; // no number here needs more than 45 bits

constexpr tcWide kTwo16 = 65536;
constexpr tcWide kTwo32 = tcWide{65536} * 65536;

tcWide wrap(tcWide value, tcWide modulus) {
    const tcWide rest = value % modulus;
    return rest < 0 ? rest + modulus : rest;
}

tcWide linesOf(std::int64_t time, float clock, unsigned int hdPrd) {
    float result = static_cast<float>(time);
    result *= clock;
    result /= static_cast<float>(hdPrd + 1);
    if (result >= 4294967296.0F) {
        return 4294967295;
    }
    return result >= 1 ? static_cast<tcWide>(std::trunc(result)) : 0;
}

/// For clocks of 1 MHz and more: every time fits.
std::int64_t timeOf(tcWide clocks, float clock) {
    float result = static_cast<float>(clocks);
    result /= clock;
    return static_cast<std::int64_t>(std::trunc(result));
}

struct tsInput {
    std::int64_t time;
    float clock;
    unsigned int hdPrd, hdMax;
};

/// Usual numbers most of the time, the whole range of each otherwise.
class tcInputs {
public:
    tsInput next() {
        tsInput input{};
        input.clock = pick(4) == 0 ? std::uniform_real_distribution<float>(1, 100)(m_random)
                                   : (pick(2) == 0 ? 36.0F : 24.0F);
        input.hdPrd = pick(2) == 0 ? 899 : pick(4096);
        input.hdMax = pick(8) == 0 ? pick(8) : pick(16384);
        switch (pick(8)) {
        case 0:
            input.time = static_cast<std::int64_t>(m_random());
            break;
        case 1:
            input.time = static_cast<std::int64_t>(pick(1000)) - 500;
            break;
        default:
            input.time = pick(500000);
        }
        return input;
    }

private:
    unsigned int pick(unsigned int limit) {
        return std::uniform_int_distribution<unsigned int>(0, limit - 1)(m_random);
    }
    std::mt19937_64 m_random{20261121};
};

constexpr int kRounds = 200000;

TEST(ExposureOracle, SingleExposure) {
    tcInputs inputs;
    for (int round = 0; round < kRounds; ++round) {
        const tsInput in = inputs.next();
        const auto result =
            exposureArithmetic::singleExposure(microseconds(in.time), in.clock, in.hdPrd, in.hdMax);
        const tcWide gs = wrap(tcWide{in.hdMax} - 2, kTwo16);
        const tcWide n = linesOf(in.time, in.clock, in.hdPrd);
        tcWide acc = n > gs ? 0 : gs - n;
        ASSERT_EQ(result.limited, n > gs);
        ASSERT_EQ(result.accFposBeforeRaise, acc);
        ASSERT_EQ(result.raised, acc >= gs);
        if (acc >= gs) {
            acc = wrap(gs - 1, kTwo32);
        }
        ASSERT_EQ(result.requestedLines, n);
        ASSERT_EQ(result.gsPos1, gs);
        ASSERT_EQ(result.gresPos, wrap(tcWide{in.hdMax} - 4, kTwo16));
        ASSERT_EQ(result.accFpos, acc);
        const tcWide clocks = wrap((tcWide{in.hdPrd} + 1) * wrap(gs - acc, kTwo32), kTwo32);
        ASSERT_EQ(result.applied.count(), timeOf(clocks, in.clock));
    }
}

TEST(ExposureOracle, DualExposure) {
    tcInputs inputs;
    for (int round = 0; round < kRounds; ++round) {
        const tsInput in = inputs.next();
        const auto result =
            exposureArithmetic::dualExposure(microseconds(in.time), in.clock, in.hdPrd, in.hdMax);
        const tcWide gs = wrap(tcWide{in.hdMax} - 2, kTwo16);
        const tcWide n = linesOf(in.time, in.clock, in.hdPrd);
        tcWide acc = n > gs ? 0 : gs - n;
        ASSERT_EQ(result.limited, n > gs);
        ASSERT_EQ(result.accFposBeforeRaise, acc);
        ASSERT_EQ(result.raised, acc >= gs);
        if (acc >= gs) {
            acc = wrap(gs - 2, kTwo32);
        }
        ASSERT_EQ(result.accFposBeforeEven, acc);
        tcWide d = wrap(gs - acc, kTwo32);
        const bool odd = (d & 1) == 1;
        ASSERT_EQ(result.madeEven, odd);
        if (odd) {
            acc = wrap(acc + 1, kTwo32);
            d -= 1;
        }
        ASSERT_EQ(result.requestedLines, n);
        ASSERT_EQ(result.gsPos2, gs);
        ASSERT_EQ(result.accFpos, acc);
        ASSERT_EQ(result.gsPos1, wrap(acc + d / 2, kTwo16));
        ASSERT_EQ(result.gresPos, wrap(wrap(acc + d / 2, kTwo16) - 2, kTwo16));
        const tcWide clocks = wrap(d * (tcWide{in.hdPrd} + 1), kTwo32);
        ASSERT_EQ(result.applied.count(), timeOf(clocks, in.clock));
    }
}

TEST(ExposureOracle, TriggeredExposureAndFrameLength) {
    tcInputs inputs;
    for (int round = 0; round < kRounds; ++round) {
        const tsInput in = inputs.next();
        const tcWide n = linesOf(in.time, in.clock, in.hdPrd);
        const auto result =
            exposureArithmetic::triggeredExposure(microseconds(in.time), in.clock, in.hdPrd);
        ASSERT_EQ(result.limited, n > 16383);
        ASSERT_EQ(result.count, n > 16383 ? 16383 : (n < 2 ? 2 : n));
        ASSERT_EQ(result.end, n > 16383 ? 16381 : (n < 2 ? 0 : n - 2));

        const tcWide low = n % kTwo16;
        ASSERT_EQ(exposureArithmetic::frameLength(microseconds(in.time), in.clock, in.hdPrd),
                  low > 16383 ? 16383 : low);
    }
}

TEST(ExposureOracle, ReadoutTime) {
    std::mt19937_64 random(7);
    for (int round = 0; round < kRounds; ++round) {
        const auto rows = static_cast<std::uint32_t>(random() >> (32 + random() % 30));
        const auto period = static_cast<std::uint16_t>(1 + random() % 4096);
        const float clock = std::uniform_real_distribution<float>(1, 100)(random);
        const tcWide clocks = (tcWide{rows} / 2 + 57) * period;
        ASSERT_EQ(exposureArithmetic::readoutTime(rows, period, clock, false).count(),
                  timeOf(clocks, clock));
        ASSERT_EQ(exposureArithmetic::readoutTime(rows, period, clock, true).count(),
                  2 * timeOf(clocks, clock));
    }
}

} // namespace
