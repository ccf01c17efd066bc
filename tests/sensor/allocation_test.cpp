// What runs while the sensor streams takes no memory.

#include <iostream>
#include <memory>
#include <optional>

#include "sensor/exposure_arithmetic.h"
#include "sensor/sensor.h"
#include "sim/virtual_head.h"
#include "tests/sensor/counting_new.h"

#include <gtest/gtest.h>

using std::chrono::microseconds;

namespace {

/// Swallows output without keeping it.
class tcNowhere : public std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
};

class Allocation : public testing::Test {
protected:
    Allocation()
        : m_head(sim::aVirtualHead().withQuietViolations().build()),
          m_before(std::cout.rdbuf(&m_nowhere)),
          m_sensor(std::in_place, "/dev/spidev1.0") {}
    ~Allocation() override {
        m_sensor.reset();
        std::cout.rdbuf(m_before);
    }

    template<class Operation>
    static std::size_t allocationsOf(Operation operation) {
        const std::size_t before = allocations();
        operation();
        return allocations() - before;
    }

    tc3U5MGXS& sensor() { return *m_sensor; }

private:
    sim::tcVirtualHead m_head;
    tcNowhere m_nowhere;
    std::streambuf* m_before;
    std::optional<tc3U5MGXS> m_sensor;
};

TEST_F(Allocation, IsCounted) {
    std::unique_ptr<int> kept;
    EXPECT_EQ(allocationsOf([&] { kept = std::make_unique<int>(1); }), 1U);
    EXPECT_EQ(*kept, 1);
}

TEST_F(Allocation, NoneInRegisterWrites) {
    EXPECT_EQ(allocationsOf([&] {
                  for (unsigned int address = 0; address <= 0xFFFF; address += 97) {
                      sensor().writeRegister(static_cast<unsigned short>(address), address);
                      sensor().writeRegisterUnlocked(static_cast<unsigned short>(address + 1), 1);
                  }
              }),
              0U);
}

TEST_F(Allocation, NoneInShadowReads) {
    sensor().writeRegister(0x10, 1);
    unsigned int value = 0;
    EXPECT_EQ(allocationsOf([&] {
                  sensor().readShadowRegister(0x10, value);
                  sensor().readShadowRegister(0x11, value);
              }),
              0U);
    EXPECT_EQ(value, 1U);
}

TEST_F(Allocation, NoneInFieldAccessesEvenOfNewRegisters) {
    EXPECT_EQ(allocationsOf([&] {
                  sensor().setRegisterField(0x20, 1, 1, 3);
                  sensor().setRegisterField(0x21, 1, 1, 40);
                  EXPECT_EQ(sensor().getRegisterField(0x22, 1, 3), 0U);
                  EXPECT_EQ(sensor().getRegisterField(0x20, 1, 3), 1U);
              }),
              0U);
}

TEST_F(Allocation, NoneInTheExposureArithmetic) {
    using namespace exposureArithmetic;
    std::int64_t sum = 0;
    EXPECT_EQ(allocationsOf([&] {
                  sum += lines(microseconds(10000), 36.0F, 899);
                  sum += frameLength(microseconds(10000), 36.0F, 899);
                  sum += readoutTime(2056, 900, 36.0F, true).count();
                  sum += singleExposure(microseconds(0), 36.0F, 899, 1000).applied.count();
                  sum += dualExposure(microseconds(10025), 36.0F, 899, 1000).applied.count();
                  sum += triggeredExposure(microseconds(5000), 36.0F, 899).count;
              }),
              0U);
    EXPECT_EQ(sum, 400 + 400 + 54250 + 25 + 10000 + 200);
}

TEST_F(Allocation, NoneInAWholeExposureWithItsLogAndFrames) {
    sensor().setMClockMhz(36.0F);
    sensor().writeRegister(0xB0, 899);
    EXPECT_EQ(allocationsOf([&] {
                  sensor().setHDMax(microseconds(100000));
                  for (const int time : {0, 10000, 1000000}) {
                      sensor().setExposureMode(tc3U5MGXS::eExposureSingle);
                      sensor().setExposure(microseconds(time));
                      sensor().setExposureMode(tc3U5MGXS::eExposureDual);
                      sensor().setExposure(microseconds(time + 25));
                  }
                  sensor().getFrameReadoutTime();
              }),
              0U);
}

} // namespace
