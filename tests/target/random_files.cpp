#include "tests/target/random_files.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/target/notes.h"

namespace {

void writeFile(const std::string& name, const std::string& text, std::ostream& to) {
    std::ofstream(name, std::ios::binary) << text;
    to << "FILE " << name << " " << oneLine(text) << "\n";
}

/// Lines that are taken, in every notation.
constexpr std::array kUnusual{"# comment\n",
                              "#21 1\n",
                              "\n",
                              "  \n",
                              "12\n",
                              "12 \n",
                              "0x21 0x1\n",
                              "0X2a 0XfFf\n",
                              " 33 44\n",
                              "\t33\t44 trailing\n",
                              "ab cd\n",
                              "FFFF FFFFFFFF\n",
                              "7ff 12345678\n",
                              "14 0x5 # what\n",
                              "15 6 7 8\n",
                              "16 000000000000007\n",
                              "0017 8\n",
                              "18\r\n",
                              "19 9\r\n",
                              "34 FFFFFFFFF\n",
                              "13 +5\n",
                              "400 0\n",
                              "0x400 0x10\n",
                              "400 3e8\n",
                              "10 100\n",
                              "10 300\n",
                              "12 3fff\n",
                              "90 FFFFFFFF\n",
                              "B0 0\n",
                              "B0 FFF\n"};

/// Lines that end the loading, or that are taken only because they end the line early.
constexpr std::array kWrong{
    "junk here\n", "0x5G 1\n", " #21 1\n", "10000 1\n",        "FFFFF FFFFFFFFF\n",
    "FFFFF\n",     "12 zz\n",  "z\n",      "12 FFFFFFFFF 1\n", "-1 5\n",
    "12 -1\n",     "1x 1\n",   "0x 1\n",   "12 0x\n"};

std::string anySettings(tcChance& chance) {
    if (chance.oneIn(16)) {
        return "";
    }
    const auto line = [](std::uint32_t address, std::uint32_t value) {
        return hexadecimal(address) + " " + hexadecimal(value) + "\n";
    };
    std::string text = "10 0\n";
    text += line(0xB0, static_cast<std::uint32_t>(chance.upTo(2000)));
    text += line(0x400, static_cast<std::uint32_t>(chance.upTo(5000)));
    text += line(0xD8, chance.oneIn(2) ? 0x2D90F : 0x1E60A);
    for (int lines = chance.upTo(30); lines > 0; --lines) {
        const std::uint32_t address = chance.bits() % 0x400;
        const std::uint32_t value = chance.bits();
        if (chance.oneIn(60)) {
            text += chance.of(kWrong);
        } else if (chance.oneIn(3)) {
            text += chance.of(kUnusual);
        } else {
            text += line(address, value);
        }
    }
    return text;
}

std::string anyConfiguration(tcChance& chance) {
    std::string text = "[Settings]\n";
    const auto key = [&](const char* name, std::int64_t value) {
        // Now and then beyond 32 bits, where the targets' `long` differ.
        const std::int64_t beyond = chance.oneIn(16) ? (chance.upTo(6) - 3) * 0x1'0000'0000LL : 0;
        if (chance.oneIn(2)) {
            text += std::string(name) + " = " + std::to_string(value + beyond) + "\n";
        }
    };
    key("RoiX", std::int64_t{chance.upTo(50)} * 24);
    key("RoiY", std::int64_t{chance.upTo(500)} * 2);
    key("RoiWidth", std::int64_t{chance.around(108)} * 24 % 2600);
    key("RoiHeight", 2 + std::int64_t{chance.upTo(1027)} * 2);
    key("ExposureTime", chance.around(200'000));
    key("FrameInterval", chance.around(400'000));
    key("VerticalBin", chance.around(2));
    if (chance.oneIn(3)) {
        text += "LaneInvertMask = " + std::to_string(chance.upTo(0x3FFF)) + "\n";
    } else if (chance.oneIn(3)) {
        text += "LaneInvertMask = 0x" + hexadecimal(chance.bits()) + "\n";
    } else if (chance.oneIn(9)) {
        text += "LaneInvertMask = nothing\n";
    }
    if (chance.oneIn(6)) {
        text += "RoiX = 0x18\n";
    }
    if (chance.oneIn(6)) {
        text += "[Other]\nRoiY = 2\n";
    }
    return text;
}

/// Limits near what the supplies are.
std::string anyLimits(tcChance& chance) {
    std::string text;
    const auto limit = [&](const char* name, int millivolts) {
        if (chance.oneIn(3)) {
            std::array<char, 64> line{};
            std::snprintf(line.data(), line.size(), "%s = %d.%03d\n", name, millivolts / 1000,
                          millivolts % 1000);
            text += line.data();
        }
    };
    const auto margin = [&] { return chance.oneIn(6) ? chance.upTo(6) - 3 : chance.upTo(200); };
    text += "[Voltages_Max]\n";
    limit("VDD1.2", 1200 + margin());
    limit("VDD3.3AVDDH_DIV2", 3300 + margin());
    limit("VDD3.3SVDD_DIV2", 3300 + margin());
    text += "[Voltages_Min]\n";
    limit("VDD1.2", 1200 - margin());
    limit("VDD3.3AVDDH_DIV2", 3300 - margin());
    limit("VDD3.3SVDD_DIV2", 3300 - margin());
    return text;
}

void writeAnyVersion(tcChance& chance, std::ostream& to) {
    std::filesystem::remove_all("version");
    std::filesystem::create_directory("version");
    for (const char* name :
         {"cam_part", "serial", "sensor_part", "sensor_serial", "sensor_board_rev",
          "soc_io_board_rev", "io_board_rev", "kernel_version"}) {
        constexpr std::array contents{"", "\n", "A-1", " 12 3 \r\nsecond\n", "x\ny\n", "\"q\"\n"};
        if (!chance.oneIn(3)) {
            writeFile("version/" + std::string(name) + ".txt", chance.of(contents), to);
        }
    }
}

} // namespace

void writeAnyFiles(tcChance& chance, std::ostream& to) {
    for (const char* name :
         {"3U5MGXS_12bit.txt", "3U5MGXS_10bit.txt", "3u5mgxs_config.ini", "3u5mgxs_sensor.ini"}) {
        std::filesystem::remove(name);
    }
    if (!chance.oneIn(12)) {
        writeFile("3U5MGXS_12bit.txt", anySettings(chance), to);
    }
    writeFile("3U5MGXS_10bit.txt", anySettings(chance), to);
    if (!chance.oneIn(8)) {
        writeFile("3u5mgxs_config.ini", anyConfiguration(chance), to);
    }
    if (chance.oneIn(2)) {
        writeFile("3u5mgxs_sensor.ini", anyLimits(chance), to);
    }
    writeAnyVersion(chance, to);
}
