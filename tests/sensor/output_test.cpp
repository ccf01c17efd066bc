// Standard output is the host's: however it was left, the driver's texts are the same, and it is
// left as it was found.

#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>

#include "tests/sensor/sensor_fixture.h"

using std::chrono::microseconds;

namespace {

struct tsOperation {
    const char* name;
    std::function<void(tc3U5MGXS&)> run;
};

class Output : public tcSensorFixture, public testing::WithParamInterface<tsOperation> {
protected:
    void run() {
        makePoweredSensor();
        sensor().setMClockMhz(36.0F);
        sensor().writeRegister(0xB0, 899);
        sensor().writeRegister(0x12, 1000);
        forget();
        GetParam().run(sensor());
    }
};

/// What a host may have done to a stream.
void disturb(std::ostream& stream) {
    stream << std::hex << std::showbase << std::uppercase << std::boolalpha << std::showpos
           << std::scientific << std::left << std::setfill('*') << std::setprecision(2)
           << std::setw(40);
}

/// Puts a stream's format back at the end of a test.
class tcFormat {
public:
    explicit tcFormat(std::ostream& stream) : m_stream(stream) { m_before.copyfmt(stream); }
    ~tcFormat() { m_stream.copyfmt(m_before); }
    tcFormat(const tcFormat&) = delete;
    tcFormat& operator=(const tcFormat&) = delete;

private:
    std::ostream& m_stream;
    std::ios m_before{nullptr};
};

TEST_P(Output, IsTheSameHoweverTheStreamsWereLeftAndLeavesThemSo) {
    run();
    const std::string text = out().text();
    const std::string errors = err().text();
    EXPECT_NE(text + errors, "");
    destroySensor();

    const tcFormat outFormat(std::cout);
    const tcFormat errFormat(std::cerr);
    for (std::ostream* const stream : {&std::cout, &std::cerr}) {
        disturb(*stream);
    }
    const auto flags = std::cout.flags();
    const auto errFlags = std::cerr.flags();
    run();
    for (std::ostream* const stream : {&std::cout, &std::cerr}) {
        EXPECT_EQ(stream->flags(), stream == &std::cout ? flags : errFlags);
        EXPECT_EQ(stream->width(), 40);
        EXPECT_EQ(stream->precision(), 2);
        EXPECT_EQ(stream->fill(), '*');
    }
    EXPECT_EQ(out().text(), text);
    EXPECT_EQ(err().text(), errors);
}

INSTANTIATE_TEST_SUITE_P(
    Operation, Output,
    testing::Values(
        tsOperation{"LookUp", [](tc3U5MGXS&) { GetPinFromDTName("RESET_B"); }},
        tsOperation{"FailedLookUp", [](tc3U5MGXS&) { GetPinFromDTName("NO_SUCH_LINE"); }},
        tsOperation{"PowerUp", [](tc3U5MGXS& sensor) { sensor.powerUp(); }},
        tsOperation{"PowerDown", [](tc3U5MGXS& sensor) { sensor.powerDown(); }},
        tsOperation{"Dump", [](tc3U5MGXS& sensor) { sensor.dumpRegisterMap(); }},
        tsOperation{"Area", [](tc3U5MGXS& sensor) { sensor.setROIArea(7, 10, 300, 60, 600); }},
        tsOperation{"FrameLength",
                    [](tc3U5MGXS& sensor) { sensor.setHDMax(microseconds(100000)); }},
        tsOperation{"ReadoutTime", [](tc3U5MGXS& sensor) { sensor.getFrameReadoutTime(); }},
        tsOperation{"Exposure",
                    [](tc3U5MGXS& sensor) {
                        for (const int time : {0, 10000, 1000000}) {
                            sensor.setExposure(microseconds(time));
                        }
                    }},
        tsOperation{"DualExposure",
                    [](tc3U5MGXS& sensor) {
                        sensor.setExposureMode(tc3U5MGXS::eExposureDual);
                        for (const int time : {0, 10000, 10025, 1000000}) {
                            sensor.setExposure(microseconds(time));
                        }
                    }},
        tsOperation{"TriggeredExposure",
                    [](tc3U5MGXS& sensor) {
                        sensor.setFrameControlMode(tc3U5MGXS::eCtrlExternalTrigger);
                        sensor.setExposure(microseconds(1000000));
                    }},
        tsOperation{"MalformedSettings",
                    [](tc3U5MGXS& sensor) {
                        std::ofstream("bad.txt") << "# one\nnonsense\n";
                        EXPECT_THROW(sensor.writeRegistersFromFile("bad.txt"), std::exception);
                    }}),
    [](const auto& operation) { return operation.param.name; });

class ConstructorOutput : public tcSensorFixture {};

TEST_F(ConstructorOutput, IsTheSameHoweverTheStreamWasLeftAndLeavesItSo) {
    { const tc3U5MGXS sensor("/dev/spidev1.0"); }
    const std::string text = out().text();
    EXPECT_NE(text, "");
    out().clear();
    const tcFormat format(std::cout);
    disturb(std::cout);
    const auto flags = std::cout.flags();
    { const tc3U5MGXS sensor("/dev/spidev1.0"); }
    EXPECT_EQ(out().text(), text);
    EXPECT_EQ(std::cout.flags(), flags);
    EXPECT_EQ(std::cout.width(), 40);
    EXPECT_EQ(std::cout.precision(), 2);
    EXPECT_EQ(std::cout.fill(), '*');
}

TEST(OutputText, AByteIsPrintedAsANumber) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcTracedOutput out(std::cout);
    tc3U5MGXS sensor("/dev/spidev1.0");
    out.clear();
    sensor.setROIArea(65, 0, 1, 2, 3);
    EXPECT_EQ(out.text(), "setROIArea Num: 65 RowS: 0 RowE: 1 ColS: 2 ColE: 3\n");
}

} // namespace
