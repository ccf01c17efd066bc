/// \file
/// What the tests in the guest do with the lines of /dev/gpiochip0 besides the camera host.
///
///     kernel_lines low             all outputs of the head low, then inputs: a head that is
///     switched off kernel_lines show            direction, level and user of each line of the
///     head; changes nothing kernel_lines hold NAME -- PROGRAM ARGUMENT...   runs a program while
///     somebody else has a line

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/gpio.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char* kChip = "/dev/gpiochip0";
constexpr std::array<std::string_view, 5> kNames{"PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN",
                                                 "RESET_B", "EXT_TRIG_EN"};

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "kernel_lines: %s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

gpio_v2_line_info infoOf(int chip, unsigned offset) {
    gpio_v2_line_info info{};
    info.offset = offset;
    if (ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &info) != 0) {
        fail("GPIO_V2_GET_LINEINFO");
    }
    return info;
}

unsigned offsetOf(int chip, std::string_view name) {
    gpiochip_info info{};
    if (ioctl(chip, GPIO_GET_CHIPINFO_IOCTL, &info) != 0) {
        fail("GPIO_GET_CHIPINFO");
    }
    for (unsigned offset = 0; offset < info.lines; ++offset) {
        if (infoOf(chip, offset).name == name) {
            return offset;
        }
    }
    errno = ENODEV;
    fail("a line of the head");
}

/// \param flags 0: as it is \return descriptor
int request(int chip, unsigned offset, std::uint64_t flags) {
    gpio_v2_line_request wanted{};
    wanted.offsets[0] = offset;
    wanted.num_lines = 1;
    wanted.config.flags = flags;
    std::strcpy(wanted.consumer, "somebody else");
    if (ioctl(chip, GPIO_V2_GET_LINE_IOCTL, &wanted) != 0) {
        fail("GPIO_V2_GET_LINE");
    }
    return wanted.fd;
}

void low(int chip) {
    for (const std::string_view name : kNames) {
        const unsigned offset = offsetOf(chip, name);
        close(request(chip, offset, GPIO_V2_LINE_FLAG_OUTPUT)); // with the level 0
        close(request(chip, offset, GPIO_V2_LINE_FLAG_INPUT));
    }
}

void show(int chip) {
    for (const std::string_view name : kNames) {
        const unsigned offset = offsetOf(chip, name);
        const gpio_v2_line_info info = infoOf(chip, offset);
        const bool used = (info.flags & GPIO_V2_LINE_FLAG_USED) != 0;
        std::printf("%.*s %s ", static_cast<int>(name.size()), name.data(),
                    (info.flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0 ? "out" : "in");
        if (used) {
            std::printf("used by %s\n", info.consumer);
            continue;
        }
        const int line = request(chip, offset, 0);
        gpio_v2_line_values values{.bits = 0, .mask = 1};
        if (ioctl(line, GPIO_V2_LINE_GET_VALUES_IOCTL, &values) != 0) {
            fail("GPIO_V2_LINE_GET_VALUES");
        }
        close(line);
        std::printf("%d\n", values.bits != 0 ? 1 : 0);
    }
}

int hold(int chip, const char* name, char** command) {
    request(chip, offsetOf(chip, name), GPIO_V2_LINE_FLAG_INPUT);
    const pid_t child = fork();
    if (child == 0) {
        close(chip);
        execvp(command[0], command);
        fail(command[0]);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        fail("fork");
    }
    constexpr int killed = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : killed + WTERMSIG(status);
}

} // namespace

int main(int count, char** arguments) {
    const int chip = open(kChip, O_RDWR | O_CLOEXEC);
    if (chip < 0) {
        fail(kChip);
    }
    const std::string_view what = count > 1 ? arguments[1] : "";
    if (what == "low") {
        low(chip);
    } else if (what == "show") {
        show(chip);
    } else if (what == "hold" && count > 4) {
        return hold(chip, arguments[2], arguments + 4);
    } else {
        std::fputs("usage: kernel_lines low | show | hold NAME -- PROGRAM ARGUMENT...\n", stderr);
        return 2;
    }
    return 0;
}
