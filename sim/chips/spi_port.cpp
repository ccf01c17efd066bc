#include "sim/chips/spi_port.h"

#include <cerrno>
#include <cstring>

#include "sensor/registers.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"
#include "sim/base/user_pointer.h"

namespace sim {

namespace {

constexpr std::uint32_t kKnownModeBits = SPI_CPHA | SPI_CPOL | SPI_CS_HIGH | SPI_LSB_FIRST |
                                         SPI_3WIRE | SPI_LOOP | SPI_NO_CS | SPI_READY;
constexpr std::uint32_t kLargestMessage = 4096; // bytes, spidev's buffer
constexpr unsigned kWordBits = 32;              // of the sensor
constexpr unsigned kLeastBits = 4;              // per word, of the controller

std::span<const std::uint8_t> bytesOf(const spi_ioc_transfer& transfer) {
    return {userPointer(transfer.tx_buf), transfer.tx_buf == 0 ? 0 : transfer.len};
}

// Bytes of one word in the buffer: the kernel keeps words as 8-, 16- or 32-bit numbers.
unsigned bytesPerWord(unsigned bits) {
    return bits <= 8 ? 1 : (bits <= 16 ? 2 : 4);
}

int halfOf(std::span<const spi_ioc_transfer> transfers) {
    std::uint32_t bytes = 0;
    for (const spi_ioc_transfer& transfer : transfers) {
        bytes += transfer.len;
    }
    return static_cast<int>(bytes / 2);
}

bool isMessage(std::uint32_t request) {
    return _IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 &&
           _IOC_DIR(request) == _IOC_WRITE;
}

} // namespace

int tcSpiPort::ioctl(std::uint32_t request, void* argument, int refusal) {
    if (isMessage(request)) {
        const std::size_t size = _IOC_SIZE(request);
        if (size % sizeof(spi_ioc_transfer) != 0) {
            return -EINVAL;
        }
        return message({static_cast<spi_ioc_transfer*>(argument), size / sizeof(spi_ioc_transfer)},
                       refusal);
    }
    if (refusal == kShort) {
        refusal = 0; // a setting has no length
    }
    switch (request) {
    case SPI_IOC_RD_MODE:
    case SPI_IOC_RD_MODE32:
    case SPI_IOC_RD_LSB_FIRST:
    case SPI_IOC_RD_BITS_PER_WORD:
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return refusal != 0 ? -refusal : get(request, argument);
    case SPI_IOC_WR_MODE:
    case SPI_IOC_WR_MODE32:
    case SPI_IOC_WR_LSB_FIRST:
    case SPI_IOC_WR_BITS_PER_WORD:
    case SPI_IOC_WR_MAX_SPEED_HZ:
        return set(request, argument, refusal);
    default:
        return -ENOTTY;
    }
}

int tcSpiPort::get(std::uint32_t request, void* argument) const {
    const auto mode8 = static_cast<std::uint8_t>(m_mode);
    const auto lsbFirst = static_cast<std::uint8_t>((m_mode & SPI_LSB_FIRST) != 0 ? 1 : 0);
    switch (request) {
    case SPI_IOC_RD_MODE:
        std::memcpy(argument, &mode8, sizeof mode8);
        break;
    case SPI_IOC_RD_MODE32:
        std::memcpy(argument, &m_mode, sizeof m_mode);
        break;
    case SPI_IOC_RD_LSB_FIRST:
        std::memcpy(argument, &lsbFirst, sizeof lsbFirst);
        break;
    case SPI_IOC_RD_BITS_PER_WORD:
        std::memcpy(argument, &m_bits, sizeof m_bits);
        break;
    default:
        std::memcpy(argument, &m_speedHz, sizeof m_speedHz);
        break;
    }
    return 0;
}

int tcSpiPort::set(std::uint32_t request, const void* argument, int refusal) {
    std::uint32_t value = 0;
    if (request == SPI_IOC_WR_MODE32 || request == SPI_IOC_WR_MAX_SPEED_HZ) {
        std::memcpy(&value, argument, sizeof value);
    } else {
        std::uint8_t byte = 0;
        std::memcpy(&byte, argument, sizeof byte);
        value = byte;
    }
    int error = refusal != 0 ? refusal : (m_now.spiSettingsRefused ? EINVAL : 0);
    teLine line = teLine::spiMode;
    switch (request) {
    case SPI_IOC_WR_MODE:
    case SPI_IOC_WR_MODE32:
        if (error == 0 && (value & ~kKnownModeBits) != 0) {
            error = EINVAL;
        }
        if (error == 0) {
            m_mode = value;
        }
        break;
    case SPI_IOC_WR_LSB_FIRST:
        line = teLine::spiLsb;
        if (error == 0) {
            m_mode = value != 0 ? (m_mode | SPI_LSB_FIRST)
                                : (m_mode & ~static_cast<std::uint32_t>(SPI_LSB_FIRST));
        }
        break;
    case SPI_IOC_WR_BITS_PER_WORD:
        line = teLine::spiBits;
        if (error == 0 && value != 0 && (value < kLeastBits || value > kWordBits)) {
            error = EINVAL;
        }
        if (error == 0) {
            m_bits = static_cast<std::uint8_t>(value == 0 ? 8 : value); // 0 means 8 to the kernel
        }
        break;
    default:
        line = teLine::spiHz;
        if (error == 0 && value == 0) {
            error = EINVAL;
        }
        if (error == 0) {
            m_speedHz = value;
        }
        break;
    }
    m_journal.event(line, 0, value, error);
    return -error;
}

int tcSpiPort::write(std::span<const std::uint8_t> bytes, int refusal) {
    if (bytes.size() > kLargestMessage) {
        return -EMSGSIZE;
    }
    spi_ioc_transfer transfer{};
    const void* start = bytes.data();
    std::uintptr_t address = 0;
    std::memcpy(&address, &start, sizeof address);
    transfer.tx_buf = address;
    transfer.len = static_cast<std::uint32_t>(bytes.size());
    return message({&transfer, 1}, refusal);
}

int tcSpiPort::read(std::span<std::uint8_t> bytes, int refusal) {
    if (bytes.size() > kLargestMessage) {
        return -EMSGSIZE;
    }
    spi_ioc_transfer transfer{};
    void* start = bytes.data();
    std::uintptr_t address = 0;
    std::memcpy(&address, &start, sizeof address);
    transfer.rx_buf = address;
    transfer.len = static_cast<std::uint32_t>(bytes.size());
    return message({&transfer, 1}, refusal);
}

int tcSpiPort::check(std::span<const spi_ioc_transfer> transfers) const {
    std::uint64_t total = 0;
    for (const spi_ioc_transfer& transfer : transfers) {
        total += transfer.len;
        const unsigned bits = transfer.bits_per_word != 0 ? transfer.bits_per_word : m_bits;
        if (bits < kLeastBits || bits > kWordBits || transfer.len % bytesPerWord(bits) != 0) {
            return EINVAL;
        }
        if (transfer.tx_nbits > 1 || transfer.rx_nbits > 1) {
            return EINVAL; // the port has one wire each way
        }
    }
    return total > kLargestMessage ? EMSGSIZE : 0;
}

int tcSpiPort::message(std::span<spi_ioc_transfer> transfers, int refusal) {
    ++m_messages;
    m_lastWireNs = 0;
    int error = refusal;
    if (error == 0 && m_failFrom != 0 && m_messages >= m_failFrom) {
        error = m_failError;
    }
    if (error == 0) {
        error = m_now.spiError;
    }
    if (error == 0 || error == kShort) {
        const int wrong = check(transfers);
        error = wrong != 0 ? wrong : error;
    }
    if (error != 0) {
        logFailed(transfers, error);
        return error == kShort ? halfOf(transfers) : -error;
    }
    std::uint64_t sent = 0;
    for (spi_ioc_transfer& transfer : transfers) {
        select(transfer);
        send(transfer);
        sent += transfer.len;
        if (transfer.cs_change != 0) {
            endOfSelection();
        }
    }
    endOfSelection();
    return static_cast<int>(sent);
}

void tcSpiPort::logFailed(std::span<const spi_ioc_transfer> transfers, int error) {
    for (const spi_ioc_transfer& transfer : transfers) {
        const std::span<const std::uint8_t> bytes = bytesOf(transfer);
        m_journal.transfer(bytes, error);
        if (bytes.size() == sizeof(std::uint32_t)) {
            std::uint32_t word = 0;
            std::memcpy(&word, bytes.data(), sizeof word);
            m_peripheral.wordNotSent(word);
        }
    }
}

// What the wires do, for whoever looks at them.
void tcSpiPort::select(const spi_ioc_transfer& transfer) {
    if (!m_journal.keepsStates()) {
        return;
    }
    const std::uint64_t now = m_journal.clock.now();
    const tsWire wire{m_mode, transfer.bits_per_word != 0 ? transfer.bits_per_word : m_bits,
                      transfer.speed_hz != 0 ? transfer.speed_hz : m_speedHz};
    if (wire != m_told) {
        m_told = wire;
        tcText text;
        text.add("SPI-WIRE ").decimal(wire.mode).add(" ").decimal(wire.bits).add(" ");
        m_journal.state(now, text.decimal(wire.speedHz).view());
    }
    if (!m_selected) {
        m_selected = true;
        m_journal.state(now, "SPI-SELECT 1");
    }
}

void tcSpiPort::send(const spi_ioc_transfer& transfer) {
    const std::span<const std::uint8_t> bytes = bytesOf(transfer);
    m_journal.transfer(bytes, 0);
    const unsigned bits = transfer.bits_per_word != 0 ? transfer.bits_per_word : m_bits;
    const std::uint32_t speedHz = transfer.speed_hz != 0 ? transfer.speed_hz : m_speedHz;
    const unsigned wordBytes = bytesPerWord(bits);
    const std::size_t words = transfer.len / wordBytes;
    // Without data the kernel sends zeroes.
    for (std::size_t word = 0; word < words; ++word) {
        std::uint32_t value = 0;
        for (unsigned byte = 0; byte < wordBytes && !bytes.empty(); ++byte) {
            // Both targets keep numbers with the lowest byte first.
            value |= static_cast<std::uint32_t>(bytes[word * wordBytes + byte]) << (8 * byte);
        }
        shiftOut(value, bits, speedHz);
    }
    if (transfer.rx_buf != 0) {
        std::memset(userPointer(transfer.rx_buf), 0, transfer.len);
    }
    const std::uint64_t wireNs =
        1ULL * words * bits * 1'000'000'000ULL / speedHz + transfer.delay_usecs * 1000ULL;
    m_lastWireNs += wireNs;
    m_journal.spend(wireNs);
}

void tcSpiPort::shiftOut(std::uint32_t word, unsigned bits, std::uint32_t speedHz) {
    m_tooFast = m_tooFast || speedHz > limits::kFastestSpiHz;
    m_oddWords = m_oddWords || bits != kWordBits || (m_mode & SPI_LSB_FIRST) != 0;
    for (unsigned at = 0; at < bits; ++at) {
        const unsigned place = (m_mode & SPI_LSB_FIRST) != 0 ? at : bits - 1 - at;
        m_shifted = m_shifted << 1 | ((word >> place) & 1);
        if (++m_shiftedBits == kWordBits) {
            deliver(static_cast<std::uint32_t>(m_shifted));
            m_shiftedBits = 0;
        }
    }
}

// The sensor takes 32 bits and forgets a rest when it is deselected.
void tcSpiPort::endOfSelection() {
    if (m_shiftedBits != 0) {
        tcText text;
        text.add("a rest of ").decimal(m_shiftedBits).add(" bits was dropped");
        m_journal.violation(teRule::spiWord, text.view());
        tellRest();
    }
    m_shiftedBits = 0;
    m_tooFast = false;
    m_oddWords = false;
    if (m_selected) {
        m_selected = false;
        m_journal.state(m_journal.clock.now(), "SPI-SELECT 0");
    }
}

void tcSpiPort::tellRest() {
    const std::uint64_t bits = (std::uint64_t{1} << m_shiftedBits) - 1;
    tcText rest;
    rest.add("SENSOR-REST ").decimal(m_shiftedBits).add(" ");
    rest.hex(m_shifted & bits, (m_shiftedBits + 3) / 4);
    m_journal.state(m_journal.clock.now(), rest.view());
}

void tcSpiPort::deliver(std::uint32_t word) {
    ++m_words;
    tcText text;
    const std::uint32_t mode = m_mode & ~static_cast<std::uint32_t>(SPI_LSB_FIRST);
    if ((mode & ~static_cast<std::uint32_t>(SPI_CPHA | SPI_CPOL)) != 0) {
        m_journal.violation(teRule::spiMode,
                            text.add("mode ").hex(mode).add(": nobody is selected").view());
        m_peripheral.wordLost(word, teWriteFate::notSelected);
        return;
    }
    if (m_tooFast) {
        text.add("a word came faster than ").decimal(limits::kFastestSpiHz);
        m_journal.violation(teRule::spiClock, text.add(" Hz and was lost").view());
        m_peripheral.wordLost(word, teWriteFate::tooFast);
        return;
    }
    teWriteFate arrived = teWriteFate::taken;
    if (m_oddWords) {
        arrived = teWriteFate::mixed;
        text.add("a word arrived as ").hex(word, 8);
        m_journal.violation(teRule::spiWord,
                            text.add(", put together from other words or bit orders").view());
    }
    if (mode != 0) {
        arrived = teWriteFate::shifted;
        tcText late;
        word <<= 1; // sampled on the other edge, each bit is the one before
        late.add("mode ").decimal(mode).add(": a word arrived as ").hex(word, 8);
        m_journal.violation(teRule::spiMode, late.view());
    }
    m_peripheral.wordArrived(word, arrived);
}

} // namespace sim
