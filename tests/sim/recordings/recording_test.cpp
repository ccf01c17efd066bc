// Recordings: what passes between a program and the device files, kept and given back.

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "sim/recordings/call_text.h"
#include "sim/recordings/call_words.h"
#include "sim/recordings/recording.h"
#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

std::string contentOf(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> linesOf(const fs::path& path) {
    std::istringstream text(contentOf(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::uint64_t addressOf(const void* pointer) {
    std::uintptr_t number = 0;
    std::memcpy(&number, &pointer, sizeof number);
    return number;
}

/// What a program gets from each kind of call, in one text.
std::string useEveryDevice() {
    std::ostringstream got;
    {
        tcPort port;
        got << port.setMode(0) << port.setLsbFirst(0) << port.setBits(32)
            << port.setSpeed(10'000'000);
        std::array<std::uint8_t, 4> bytes{0x0F, 0xB9, 0x04, 0x36};
        std::array<std::uint8_t, 4> read{1, 2, 3, 4};
        spi_ioc_transfer transfer{};
        transfer.tx_buf = addressOf(bytes.data());
        transfer.rx_buf = addressOf(read.data());
        transfer.len = 4;
        got << " " << ioctl(port.descriptor(), SPI_IOC_MESSAGE(1), &transfer) << " "
            << sim::bytesText(read);
        std::uint32_t mode = 7;
        got << " " << ioctl(port.descriptor(), SPI_IOC_RD_MODE32, &mode) << " " << mode;
    }
    {
        const tcDescriptor chip = openDevice("/dev/gpiochip0");
        gpiochip_info info{};
        got << "\n"
            << ioctl(chip.get(), GPIO_GET_CHIPINFO_IOCTL, &info) << info.name << " " << info.label
            << " " << info.lines;
        gpio_v2_line_info line{};
        line.offset = 5;
        got << " " << ioctl(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, &line) << line.name << " "
            << line.flags;
        const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 0);
        got << " " << core.valid() << setLevel(core, 1) << getLevel(core);
    }
    {
        tcMonitor monitor;
        got << "\n" << monitor.measure(0);
        std::uint8_t command = 0xCC;
        std::array<std::uint8_t, 2> reading{};
        std::array<i2c_msg, 2> messages{i2c_msg{0x49, 0, 1, &command},
                                        i2c_msg{0x49, I2C_M_RD, 2, reading.data()}};
        i2c_rdwr_ioctl_data list{messages.data(), 2};
        got << " " << ioctl(monitor.descriptor(), I2C_RDWR, &list) << " " << int{reading[0]} << " "
            << int{reading[1]};
        messages[0].addr = 0x48;
        got << " " << ioctl(monitor.descriptor(), I2C_RDWR, &list) << " " << errno;
    }
    {
        tcRegisters registers(0xFF210000);
        registers.write(2, 0x5D9);
        got << "\n" << registers.read(2);
    }
    usleep(1500);
    timespec now{};
    timespec later{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    usleep(1000);
    clock_gettime(CLOCK_MONOTONIC, &later);
    got << "\n" << (later.tv_sec - now.tv_sec) * 1'000'000'000LL + later.tv_nsec - now.tv_nsec;
    got << " " << open("/dev/spidev9.0", O_RDWR) << " " << errno;
    return got.str();
}

class Recording : public testing::Test {
protected:
    Recording() : m_folder(fs::temp_directory_path() / ("recording-" + std::to_string(getpid()))) {
        fs::create_directories(m_folder);
    }
    ~Recording() override { fs::remove_all(m_folder); }

    /// \return what the program got
    std::string record(const std::function<std::string()>& program) {
        const auto head = sim::aVirtualHead().withQuietViolations().withRecording(m_file).build();
        return program();
    }
    void write(const std::string& text) { std::ofstream(m_file) << text; }
    /// Replaces a text in the recording. \return whether it is there
    bool change(const std::string& from, const std::string& to) {
        std::string text = contentOf(m_file);
        const std::size_t at = text.find(from);
        if (at == std::string::npos) {
            return false;
        }
        write(text.replace(at, from.size(), to));
        return true;
    }
    /// Plays the recording to a program that does what it did. For a child process.
    void replayEveryDevice() {
        const auto head = sim::aVirtualHead().withReplay(m_file).build();
        useEveryDevice();
        std::_Exit(0);
    }

    fs::path m_folder;
    std::string m_file = (m_folder / "run.rec").string();
};

using RecordingDeathTest = Recording;

TEST_F(Recording, KeepsEveryCallWithItsAnswer) {
    usleep(100); // before a device is opened: nobody's business
    record(useEveryDevice);
    EXPECT_THAT(
        linesOf(m_file),
        ElementsAre(
            "virtual-head recording 1", "[    0.000000000] open /dev/spidev1.0 rw cloexec = #1",
            "[    0.000000000] ioctl #1 SPI_IOC_WR_MODE32 0x0 = 0",
            "[    0.000000000] ioctl #1 SPI_IOC_WR_LSB_FIRST 0x0 = 0",
            "[    0.000000000] ioctl #1 SPI_IOC_WR_BITS_PER_WORD 0x20 = 0",
            "[    0.000000000] ioctl #1 SPI_IOC_WR_MAX_SPEED_HZ 0x989680 = 0",
            "[    0.000003200] ioctl #1 SPI_IOC_MESSAGE 0F B9 04 36 (0 Hz, 0 bits, read) = 4 | 00 "
            "00 00 00",
            "[    0.000003200] ioctl #1 SPI_IOC_RD_MODE32 = 0 | 0x0",
            "[    0.000003200] close #1 = 0",
            "[    0.000003200] open /dev/gpiochip0 rw cloexec = #2",
            "[    0.000003200] ioctl #2 GPIO_GET_CHIPINFO = 0 | \"gpiochip0\" \"head-gpio\" 29",
            "[    0.000003200] ioctl #2 GPIO_V2_GET_LINEINFO 5 = 0 | \"PS_1.2V_EN\" \"\" 0x4",
            "[    0.000003200] ioctl #2 GPIO_V2_GET_LINE 5 as \"test\" flags 0x8 attribute 2 0x0 "
            "for "
            "0x1 = #3",
            "[    0.000003200] ioctl #3 GPIO_V2_LINE_SET_VALUES 0x1 of 0x1 = 0",
            "[    0.000003200] ioctl #3 GPIO_V2_LINE_GET_VALUES of 0x1 = 0 | 0x1",
            "[    0.000003200] close #3 = 0", "[    0.000003200] close #2 = 0",
            "[    0.000003200] open /dev/i2c-1 rw cloexec = #4",
            "[    0.000003200] ioctl #4 I2C_SLAVE 0x49 = 0", "[    0.000183200] write #4 8C = 1",
            "[    0.000453200] read #4 2 = 2 | 0F FF",
            "[    0.000903200] ioctl #4 I2C_RDWR 0x49 flags 0x0 write CC / 0x49 flags 0x1 read 2 = "
            "2 | 0F FF",
            "[    0.000993200] ioctl #4 I2C_RDWR 0x48 flags 0x0 write CC / 0x49 flags 0x1 read 2 = "
            "ENXIO",
            "[    0.000993200] close #4 = 0",
            "[    0.000993200] open /dev/mem rw sync cloexec = #5",
            "[    0.000993200] mmap #5 0xFF210000 16384 rw shared = 0",
            "[    0.000993200] close #5 = 0", "[    0.000993200] store 0xFF210008 4 0x000005D9 = 0",
            "[    0.000993200] load 0xFF210008 4 = 0x000005D9",
            "[    0.000993200] munmap 0xFF210000 16384 = 0", "[    0.002493200] sleep 1500000 = 0",
            "[    0.003493200] sleep 1000000 = 0",
            "[    0.003493200] open /dev/spidev9.0 rw = ENOENT"));
}

TEST_F(Recording, AnswersAsItWasAnswered) {
    const std::string got = record(useEveryDevice);
    // What the head cannot have said: the answers come from the file.
    ASSERT_TRUE(
        change("= 0 | \"gpiochip0\" \"head-gpio\" 29", "= 0 | \"gpiochip0\" \"zynq\\20gpio\" 118"));
    ASSERT_TRUE(change("= 2 | 0F FF\n[    0.000903200]", "= 2 | 07 AE\n[    0.000903200]"));
    ASSERT_TRUE(change("load 0xFF210008 4 = 0x000005D9", "load 0xFF210008 4 = 0xFFFF05D8"));
    ASSERT_TRUE(change("= 4 | 00 00 00 00", "= 4 | 0F 10 A0 FF"));
    const auto head = sim::aVirtualHead().withReplay(m_file).build();
    const std::string played = useEveryDevice();
    EXPECT_EQ(got, "0000 4 00 00 00 00 0 0\n"
                   "0gpiochip0 head-gpio 29 0PS_1.2V_EN 4 101\n"
                   "4095 2 15 255 -1 6\n"
                   "1497\n"
                   "1000000 -1 2");
    EXPECT_EQ(played, "0000 4 0F 10 A0 FF 0 0\n"
                      "0gpiochip0 zynq gpio 118 0PS_1.2V_EN 4 101\n"
                      "1966 2 15 255 -1 6\n"
                      "4294903256\n"
                      "1000000 -1 2");
    EXPECT_EQ(head.restOfReplay(), "");
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST_F(RecordingDeathTest, TheFirstDifferenceEndsTheProgramAndShowsBothSides) {
    record(useEveryDevice);
    const auto differs = [&](const std::string& from, const std::string& to) {
        const std::string before = contentOf(m_file);
        EXPECT_TRUE(change(from, to)) << from;
        std::string text;
        const fs::path errors = m_folder / "errors";
        EXPECT_EXIT(
            {
                if (std::freopen(errors.c_str(), "w", stderr) == nullptr) {
                    std::_Exit(99);
                }
                replayEveryDevice();
            },
            testing::ExitedWithCode(10), "");
        write(before);
        return contentOf(errors);
    };
    EXPECT_EQ(differs("MESSAGE 0F B9 04 36", "MESSAGE 0F B9 04 37"),
              "virtual head: " + m_file +
                  ":7: the program does something else\n"
                  "  recorded: ioctl #1 SPI_IOC_MESSAGE 0F B9 04 37 (0 Hz, 0 bits, read)\n"
                  "  now:      ioctl #1 SPI_IOC_MESSAGE 0F B9 04 36 (0 Hz, 0 bits, read)\n");
    EXPECT_EQ(differs("load 0xFF210008 4 =", "load 0xFF210004 4 ="),
              "virtual head: " + m_file +
                  ":29: the program does something else\n"
                  "  recorded: load 0xFF210004 4\n"
                  "  now:      load 0xFF210008 4\n");
    EXPECT_EQ(differs("4 0x000005D9", "4 0x000005DA"),
              "virtual head: " + m_file +
                  ":28: the program does something else\n"
                  "  recorded: store 0xFF210008 4 0x000005DA\n"
                  "  now:      store 0xFF210008 4 0x000005D9\n");
    EXPECT_EQ(differs("sleep 1000000", "sleep 1000001"),
              "virtual head: " + m_file +
                  ":32: the program does something else\n"
                  "  recorded: sleep 1000001\n"
                  "  now:      sleep 1000000\n");
    EXPECT_EQ(differs("[    0.003493200] open /dev/spidev9.0 rw = ENOENT\n", ""),
              "virtual head: " + m_file +
                  ":33: the program does something else\n"
                  "  recorded: nothing: the recording ends here\n"
                  "  now:      open /dev/spidev9.0 rw\n");
}

TEST_F(Recording, TellsWhatAProgramLeftOut) {
    record([] {
        tcPort port;
        port.setMode(0);
        port.setBits(32);
        return "";
    });
    const auto head = sim::aVirtualHead().withReplay(m_file).build();
    EXPECT_EQ(head.restOfReplay(), ""); // not begun
    {
        tcPort port;
        EXPECT_EQ(head.restOfReplay(), m_file + ":3: the recording goes on\n"
                                                "  recorded: ioctl #1 SPI_IOC_WR_MODE32 0x0\n"
                                                "  now:      nothing: the program has ended\n");
        port.setMode(0);
        port.setBits(32);
        EXPECT_EQ(head.restOfReplay(), m_file + ":5: the recording goes on\n"
                                                "  recorded: close #1\n"
                                                "  now:      nothing: the program has ended\n");
    }
    EXPECT_EQ(head.restOfReplay(), "");
}

TEST_F(RecordingDeathTest, AnAnswerThatDoesNotFitItsCallIsNamed) {
    record(useEveryDevice);
    const auto refused = [&](const std::string& from, const std::string& to,
                             const std::string& text) {
        const std::string before = contentOf(m_file);
        EXPECT_TRUE(change(from, to)) << from;
        EXPECT_DEATH(replayEveryDevice(), "run.rec:" + text);
        write(before);
    };
    refused("rw cloexec = #1", "rw cloexec = 1", "2: no answer to this call: a file has a number");
    refused("MODE32 0x0 = 0", "MODE32 0x0 = EVIL", "3: no answer to this call: \"EVIL\" is not a");
    refused("WR_LSB_FIRST 0x0 = 0", "WR_LSB_FIRST 0x0 = 0 | 0x1",
            "4: no answer to this call: there is too much in it: \"0x1\"");
    refused("4 | 00 00 00 00", "4 | 00 00 00", "7: no answer to this call: there is too little");
    refused("4 | 00 00 00 00", "4 | 00 00 00 100", "7: no answer to this call: a byte has two");
    refused("RD_MODE32 = 0 | 0x0", "RD_MODE32 = 0 | 0x100000000",
            "8: no answer to this call: 4294967296 is too large");
    refused("\"head-gpio\" 29", "head-gpio 29", "11: no answer to this call: a name is in quotes");
    refused("\"head-gpio\" 29", "\"a-name-of-more-than-31-characters\" 29",
            "11: no answer to this call: a name is too long");
    refused("read #4 2 = 2 | 0F FF", "read #4 2 = 3 | 0F FF 00",
            "21: no answer to this call: more was read than asked for");
    refused("4 = 0x000005D9", "4 = 1497", "29: no answer to this call: a register's value is");
    refused("sleep 1500000 = 0", "sleep 1500000 = soon", "31: no answer to this call: \"soon\"");
}

TEST_F(RecordingDeathTest, AFileThatIsNoRecordingEndsTheProgramAtItsFirstCall) {
    write("a log\n");
    EXPECT_DEATH(replayEveryDevice(), "virtual head: .*run.rec: line 1: expected \"virtual-head "
                                      "recording 1\"");
    fs::remove(m_file);
    EXPECT_DEATH(replayEveryDevice(), "run.rec: cannot be read: No such file or directory");
}

TEST_F(Recording, EveryRunHasAFileOfItsOwn) {
    record([] {
        openDevice("/dev/i2c-1");
        return "";
    });
    record([] {
        openDevice("/dev/mem");
        return "";
    });
    EXPECT_EQ(linesOf(m_file).at(1), "[    0.000000000] open /dev/i2c-1 rw cloexec = #1");
    EXPECT_EQ(linesOf(m_file + ".2").at(1), "[    0.000000000] open /dev/mem rw cloexec = #1");
    record([] {
        usleep(10);
        return "";
    });
    EXPECT_FALSE(fs::exists(m_file + ".3")); // no device, no recording
}

TEST_F(Recording, KeepsFailuresAndWhatIsLeftOfASleep) {
    const auto program = [] {
        std::ostringstream got;
        tcPort port;
        got << port.setMode(0) << " " << port.send({1, 2, 3, 4}) << " ";
        const timespec asked{0, 500};
        timespec left{};
        got << nanosleep(&asked, &left) << " " << errno << " " << left.tv_nsec << " ";
        const tcRegisters registers(0xFF217000);
        got << registers.mapped();
        return got.str();
    };
    std::string got;
    {
        const auto head = sim::aVirtualHead()
                              .withQuietViolations()
                              .withSpiTransfersFailing(1, EIO)
                              .withFailingCall(sim::teCall::ioctl, "/dev/spidev1.0", 1, ENOTTY)
                              .withFailingCall(sim::teCall::sleep, "clock", 1, EINTR)
                              .withFailingCall(sim::teCall::mmap, "/dev/mem", 1, EPERM)
                              .withRecording(m_file)
                              .build();
        got = program();
    }
    EXPECT_EQ(got, "25 -5 -1 4 250 0");
    EXPECT_THAT(linesOf(m_file),
                ElementsAre("virtual-head recording 1",
                            "[    0.000000000] open /dev/spidev1.0 rw cloexec = #1",
                            "[    0.000000000] ioctl #1 SPI_IOC_WR_MODE32 0x0 = ENOTTY",
                            "[    0.000000000] ioctl #1 SPI_IOC_MESSAGE 01 02 03 04 (0 Hz, 0 bits) "
                            "= EIO",
                            "[    0.000000250] sleep 500 = EINTR left 250",
                            "[    0.000000250] open /dev/mem rw sync cloexec = #2",
                            "[    0.000000250] mmap #2 0xFF217000 16384 rw shared = EPERM",
                            "[    0.000000250] close #2 = 0", "[    0.000000250] close #1 = 0"));
    const auto head = sim::aVirtualHead().withReplay(m_file).build();
    EXPECT_EQ(program(), got);
    EXPECT_EQ(head.restOfReplay(), "");
}

TEST_F(Recording, IsRefusedWithTheLineThatIsWrong) {
    const auto refusal = [](const std::string& text) -> std::string {
        try {
            static_cast<void>(sim::parseRecording(text));
            return "accepted";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    const std::string heading = "virtual-head recording 1\n";
    EXPECT_EQ(refusal(heading), "accepted");
    EXPECT_EQ(refusal(heading + "[    0.000000000] close #1 = 0\n"), "accepted");
    EXPECT_EQ(refusal(""), "line 1: the file is empty");
    EXPECT_EQ(refusal("virtual-head recording 2\n"),
              "line 1: expected \"virtual-head recording 1\"");
    EXPECT_EQ(refusal(heading + "close #1 = 0\n"), "line 2: expected \"[TIME] EVENT\"");
    EXPECT_EQ(refusal(heading + "[    0.000000000] close #1\n"),
              "line 2: expected \"[TIME] CALL = ANSWER\"");
    EXPECT_EQ(refusal(heading + "[    0.000000000] close #1 = 0\n[    0.000000000] close"),
              "line 3: the line is not whole: the recording was cut off");
}

TEST_F(Recording, SplitsALineAtItsLastEquals) {
    const auto calls = sim::parseRecording("virtual-head recording 1\n"
                                           "[    1.000000002] a = b = c\n");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].timeNs, 1'000'000'002U);
    EXPECT_EQ(calls[0].asked, "a = b");
    EXPECT_EQ(calls[0].answer, "c");
    EXPECT_EQ(calls[0].line, 2U);
}

/// What a call says, and that its answer comes back from its text.
template<class Argument>
std::pair<std::string, std::string> texts(std::uint32_t request, Argument before,
                                          const Argument& after, int result = 0) {
    const std::string asked = sim::ioctlText(request, &before);
    const std::string answer = sim::ioctlAnswer(result, request, &after);
    EXPECT_EQ(sim::playIoctl(answer, request, &before), result);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << answer;
    return {asked, answer};
}

TEST(CallText, NumbersOfEverySize) {
    using tsTexts = std::pair<std::string, std::string>;
    EXPECT_EQ(texts<std::uint8_t>(SPI_IOC_RD_MODE, 9, 3), (tsTexts{"SPI_IOC_RD_MODE", "0 | 0x3"}));
    EXPECT_EQ(texts<std::uint8_t>(SPI_IOC_WR_MODE, 3, 3), (tsTexts{"SPI_IOC_WR_MODE 0x3", "0"}));
    EXPECT_EQ(texts<std::uint8_t>(SPI_IOC_RD_BITS_PER_WORD, 0, 32),
              (tsTexts{"SPI_IOC_RD_BITS_PER_WORD", "0 | 0x20"}));
    EXPECT_EQ(texts<std::uint32_t>(SPI_IOC_RD_MAX_SPEED_HZ, 0, 0xFFFF'FFFF),
              (tsTexts{"SPI_IOC_RD_MAX_SPEED_HZ", "0 | 0xFFFFFFFF"}));
    EXPECT_EQ(texts<unsigned long>(I2C_FUNCS, 0, 0xEFF0008),
              (tsTexts{"I2C_FUNCS", "0 | 0xEFF0008"}));
}

TEST(CallText, LinesWithAttributes) {
    gpio_v2_line_info before{};
    before.offset = 3;
    gpio_v2_line_info after = before;
    std::strcpy(after.name, "a \"name\" = 1/2|3\\");
    std::strcpy(after.consumer, "kernel");
    after.flags = 0x15;
    after.num_attrs = 2;
    after.attrs[0].id = GPIO_V2_LINE_ATTR_ID_DEBOUNCE;
    after.attrs[0].debounce_period_us = 250;
    after.attrs[1].id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    after.attrs[1].values = 0x1'0000'0001;
    const auto [asked, answer] = texts(GPIO_V2_GET_LINEINFO_IOCTL, before, after);
    EXPECT_EQ(asked, "GPIO_V2_GET_LINEINFO 3");
    EXPECT_EQ(answer, "0 | \"a\\20\\22name\\22\\20\\3D\\201\\2F2\\7C3\\5C\" \"kernel\" 0x15 3 0xFA "
                      "2 0x100000001");
}

TEST(CallText, ConfigurationsAndValues) {
    gpio_v2_line_config config{};
    config.flags = 8;
    config.num_attrs = 1;
    config.attrs[0].mask = 3;
    config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_FLAGS;
    config.attrs[0].attr.flags = 4;
    EXPECT_EQ(sim::ioctlText(GPIO_V2_LINE_SET_CONFIG_IOCTL, &config),
              "GPIO_V2_LINE_SET_CONFIG flags 0x8 attribute 1 0x4 for 0x3");
    gpio_v2_line_values before{0, 6};
    const gpio_v2_line_values after{2, 6};
    const auto [asked, answer] = texts(GPIO_V2_LINE_GET_VALUES_IOCTL, before, after);
    EXPECT_EQ(asked, "GPIO_V2_LINE_GET_VALUES of 0x6");
    EXPECT_EQ(answer, "0 | 0x2");
}

TEST(CallText, MessagesOfSeveralTransfers) {
    std::array<std::uint8_t, 2> out{0xAB, 0xCD};
    std::array<std::uint8_t, 3> in{1, 2, 3};
    std::array<spi_ioc_transfer, 2> transfers{};
    transfers[0].tx_buf = addressOf(out.data());
    transfers[0].len = 2;
    transfers[0].speed_hz = 1000;
    transfers[0].bits_per_word = 8;
    transfers[0].delay_usecs = 5;
    transfers[0].cs_change = 1;
    transfers[1].rx_buf = addressOf(in.data());
    transfers[1].len = 3;
    EXPECT_EQ(sim::ioctlText(SPI_IOC_MESSAGE(2), transfers.data()),
              "SPI_IOC_MESSAGE AB CD (1000 Hz, 8 bits, delay 5 us, deselect) / nothing for 3 (0 "
              "Hz, 0 bits, read)");
    EXPECT_EQ(sim::ioctlAnswer(5, SPI_IOC_MESSAGE(2), transfers.data()), "5 | 01 02 03");
    EXPECT_EQ(sim::playIoctl("5 | 0A 0B 0C", SPI_IOC_MESSAGE(2), transfers.data()), 5);
    EXPECT_EQ(in, (std::array<std::uint8_t, 3>{0x0A, 0x0B, 0x0C}));
    EXPECT_EQ(sim::playIoctl("EIO", SPI_IOC_MESSAGE(2), transfers.data()), -EIO);
}

TEST(CallText, RequestsThatNobodyKnows) {
    constexpr std::uint32_t both = _IOWR('x', 7, std::uint32_t);
    EXPECT_EQ(texts<std::uint32_t>(both, 0x04030201, 0x08070605, 3),
              (std::pair<std::string, std::string>{"0xC0047807 01 02 03 04", "3 | 05 06 07 08"}));
    EXPECT_EQ(sim::ioctlText(_IO('x', 1), nullptr), "0x7801");
    EXPECT_EQ(sim::ioctlAnswer(-ENOTTY, _IO('x', 1), nullptr), "ENOTTY");
}

TEST(CallText, OpeningAndMapping) {
    EXPECT_EQ(sim::openText("/dev/mem", O_RDONLY), "/dev/mem r");
    EXPECT_EQ(sim::openText("/dev/mem", O_WRONLY | O_NONBLOCK), "/dev/mem w nonblock");
    EXPECT_EQ(sim::openText("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC), "/dev/mem rw sync cloexec");
    EXPECT_EQ(sim::mapText(0xFF200000, 4096, PROT_READ, MAP_PRIVATE), "0xFF200000 4096 r private");
}

} // namespace
