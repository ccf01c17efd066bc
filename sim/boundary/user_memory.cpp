#include "sim/boundary/user_memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <span>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "sim/base/user_pointer.h"
#include "sim/boundary/mmio.h"

namespace sim::userMemory {

namespace {

constexpr std::uintptr_t kPage = 4096;      // the smallest there is
constexpr std::size_t kKernelSignalSet = 8; // bytes

// The kernel reads a set of signals before it refuses the operation, so that nothing changes. A set
// that begins where one can begin ends in the same page.
bool byteReadable(std::uintptr_t address) {
    constexpr int noOperation = -1;
    const std::uintptr_t set = address / kKernelSignalSet * kKernelSignalSet;
    return syscall(SYS_rt_sigprocmask, noOperation, set, nullptr, kKernelSignalSet) == 0 ||
           errno != EFAULT;
}

// The byte is one that the device is about to write.
bool byteWritable(std::uintptr_t address) {
    const std::uint8_t before = *userPointer(address);
    if (syscall(SYS_getrandom, address, std::size_t{1}, GRND_NONBLOCK) < 0 && errno == EFAULT) {
        return false;
    }
    *userPointer(address) = before;
    return true;
}

/// Asks of a byte in each page.
template<class Question>
bool everywhere(const void* start, std::size_t length, Question question) {
    const int error = errno;
    bool all = true;
    const std::uintptr_t first = numberOf(start);
    if (length != 0) {
        const std::uintptr_t last = first + (length - 1);
        all = last >= first && question(last);
        for (std::uintptr_t at = first; all && at / kPage < last / kPage;
             at = (at / kPage + 1) * kPage) {
            all = question(at);
        }
    }
    errno = error;
    return all;
}

int orFault(bool good) {
    return good ? 0 : -EFAULT;
}

// The number of a request says which way its argument goes.
int checkArgument(std::uint32_t request, void* argument) {
    const std::size_t size = _IOC_SIZE(request);
    const bool read = (_IOC_DIR(request) & _IOC_WRITE) == 0 || readable(argument, size);
    return orFault(read && ((_IOC_DIR(request) & _IOC_READ) == 0 || writable(argument, size)));
}

// Whatever is longer than spidev's buffer is refused before it is read.
int checkTransfers(std::span<const spi_ioc_transfer> transfers) {
    constexpr std::uint64_t largestMessage = 4096; // bytes
    std::uint64_t total = 0;
    for (const spi_ioc_transfer& transfer : transfers) {
        total += transfer.len;
        if (total > largestMessage) {
            return 0;
        }
        if ((transfer.rx_buf != 0 && !writable(userPointer(transfer.rx_buf), transfer.len)) ||
            (transfer.tx_buf != 0 && !readable(userPointer(transfer.tx_buf), transfer.len))) {
            return -EFAULT;
        }
    }
    return 0;
}

int checkSpi(std::uint32_t request, void* argument) {
    if (_IOC_TYPE(request) != SPI_IOC_MAGIC) {
        return 0;
    }
    const std::size_t size = _IOC_SIZE(request);
    if (_IOC_NR(request) == 0 && _IOC_DIR(request) == _IOC_WRITE) {
        if (size % sizeof(spi_ioc_transfer) != 0) {
            return 0; // refused
        }
        if (!readable(argument, size)) {
            return -EFAULT;
        }
        return checkTransfers(
            {static_cast<const spi_ioc_transfer*>(argument), size / sizeof(spi_ioc_transfer)});
    }
    constexpr unsigned lastSetting = _IOC_NR(SPI_IOC_WR_MODE32);
    return _IOC_NR(request) <= lastSetting ? checkArgument(request, argument) : 0;
}

int checkGpio(std::uint32_t request, void* argument) {
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
    case GPIO_V2_GET_LINEINFO_IOCTL:
    case GPIO_V2_GET_LINE_IOCTL:
    case GPIO_V2_LINE_SET_VALUES_IOCTL:
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
    case GPIO_V2_LINE_SET_CONFIG_IOCTL:
        return checkArgument(request, argument);
    default:
        return 0;
    }
}

// The kernel copies every buffer before it sends anything; one that it is to fill, too.
int checkMessages(const void* argument) {
    if (!readable(argument, sizeof(i2c_rdwr_ioctl_data))) {
        return -EFAULT;
    }
    constexpr std::size_t longest = 8192; // bytes of a message
    const auto& list = *static_cast<const i2c_rdwr_ioctl_data*>(argument);
    if (list.msgs == nullptr || list.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return 0; // refused
    }
    if (!readable(list.msgs, list.nmsgs * sizeof(i2c_msg))) {
        return -EFAULT;
    }
    for (const i2c_msg& message : std::span(list.msgs, list.nmsgs)) {
        if (message.len > longest) {
            return 0; // refused
        }
        if (!readable(message.buf, message.len) ||
            ((message.flags & I2C_M_RD) != 0 && !writable(message.buf, message.len))) {
            return -EFAULT;
        }
    }
    return 0;
}

int checkSmbus(const void* argument) {
    if (!readable(argument, sizeof(i2c_smbus_ioctl_data))) {
        return -EFAULT;
    }
    const auto& transaction = *static_cast<const i2c_smbus_ioctl_data*>(argument);
    const bool reads = transaction.read_write == I2C_SMBUS_READ;
    const bool noData =
        transaction.size == I2C_SMBUS_QUICK || (transaction.size == I2C_SMBUS_BYTE && !reads);
    if (transaction.data == nullptr || noData || transaction.size > I2C_SMBUS_WORD_DATA) {
        return 0; // refused, or nothing to read
    }
    const std::size_t bytes = transaction.size == I2C_SMBUS_WORD_DATA ? 2 : 1;
    return orFault(reads ? readable(transaction.data, bytes) && writable(transaction.data, bytes)
                         : readable(transaction.data, bytes));
}

int checkI2c(std::uint32_t request, void* argument) {
    switch (request) {
    case I2C_FUNCS:
        return orFault(writable(argument, sizeof(unsigned long)));
    case I2C_RDWR:
        return checkMessages(argument);
    case I2C_SMBUS:
        return checkSmbus(argument);
    default:
        return 0; // a number, or unknown
    }
}

} // namespace

bool readable(const void* start, std::size_t length) {
    return everywhere(start, length, byteReadable);
}

bool writable(void* start, std::size_t length) {
    return everywhere(start, length, [](std::uintptr_t address) {
        return byteReadable(address) && byteWritable(address);
    });
}

std::size_t writablePart(void* start, std::size_t length) {
    const std::uintptr_t first = numberOf(start);
    std::size_t part = 0;
    while (part < length) {
        const std::size_t step =
            std::min<std::size_t>(length - part, kPage - (first + part) % kPage);
        if (!writable(userPointer(first + part), step)) {
            break;
        }
        part += step;
    }
    return part;
}

int checkIoctl(const tsOpenFile& file, std::uint32_t request, void* argument) {
    switch (file.device) {
    case teDevice::spi:
        return checkSpi(request, argument);
    case teDevice::gpio:
        return checkGpio(request, argument);
    case teDevice::i2c:
        return checkI2c(request, argument);
    default:
        return 0;
    }
}

} // namespace sim::userMemory
