#include "tests/target/random_head.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

sim::tcVirtualHeadBuilder anyHead(tcChance& chance, std::ostream& to) {
    constexpr std::array<std::string_view, 3> rails{"VDD1.2", "VDD3.3AVDDH", "VDD3.3SVDD"};
    constexpr std::array<std::string_view, 5> lines{"PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN",
                                                    "RESET_B", "EXT_TRIG_EN"};
    constexpr std::array<std::string_view, 3> devices{"/dev/spidev1.0", "/dev/i2c-1",
                                                      "/dev/gpiochip0"};
    constexpr std::array errors{5, 11, 16, 19, 22, 110}; // EIO EAGAIN EBUSY ENODEV EINVAL ETIMEDOUT
    auto builder = sim::aVirtualHead();
    builder.withQuietViolations().withLogCapacity(std::size_t{1} << 17);
    for (int faults = chance.oneIn(2) ? 0 : 1 + chance.upTo(1); faults > 0; --faults) {
        // Each choice is a statement of its own: the order of arguments is the compiler's affair.
        const int first = chance.upTo(900'000);
        const int second = chance.upTo(900'000);
        const std::uint32_t bits = chance.bits();
        switch (chance.upTo(9)) {
        case 0: {
            const std::string_view rail = rails[static_cast<std::size_t>(first % 3)];
            const int millivolts = second % 601 - 300;
            to << "WRONG " << rail << " by " << millivolts << " mV\n";
            builder.withRailOffset(rail, millivolts / 1000.0);
            break;
        }
        case 1:
            to << "WRONG no ADC\n";
            builder.withoutAdc();
            break;
        case 2: {
            const std::string_view line = chance.of(lines);
            to << "WRONG no line " << line << "\n";
            builder.withoutGpioLine(line);
            break;
        }
        case 3: {
            const std::string_view line = chance.of(lines);
            to << "WRONG busy line " << line << "\n";
            builder.withBusyGpioLine(line);
            break;
        }
        case 4:
            to << "WRONG SPI settings\n";
            builder.withSpiSettingsRefused();
            break;
        case 5: {
            const auto after =
                first % 2 == 0 ? sim::kNever : std::chrono::milliseconds(second % 201);
            to << "WRONG lane " << bits % 12 << " after " << after.count() << " ns\n";
            builder.withLaneAfter(bits % 12, after);
            break;
        }
        case 6:
            to << "WRONG lane polarity " << (bits & 0xFFF) << "\n";
            builder.withLanePolarity(bits & 0xFFF);
            break;
        case 7:
            to << "WRONG PLL flag " << bits % 3 << " after " << first << " us\n";
            builder.withPllFlagAfter(static_cast<sim::tePllFlag>(bits % 3),
                                     std::chrono::microseconds(first));
            break;
        case 8:
            to << "WRONG alignment after " << first << " us\n";
            builder.withAlignmentAfter(std::chrono::microseconds(first));
            break;
        default: {
            const std::string_view device = devices[bits % 3];
            const auto call = static_cast<std::uint64_t>(1 + first % 121);
            const int error = errors[static_cast<std::size_t>(second % 6)];
            to << "WRONG ioctl " << call << " of " << device << " fails with " << error << "\n";
            builder.withFailingCall(sim::teCall::ioctl, device, call, error);
            break;
        }
        }
    }
    return builder;
}
