#include "tests/plugin/plugin_test.h"

#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <thread>
#include <type_traits>

#include <pthread.h>

#include "tests/support/lock_spy.h"

using namespace std::chrono_literals;

namespace {

std::string access(const char* kind, std::uint32_t address, std::uint32_t value) {
    std::array<char, 40> line{};
    std::snprintf(line.data(), line.size(), "%s 0x%08" PRIX32 " 0x%08" PRIX32, kind, address,
                  value);
    return line.data();
}

std::string note(const char* stream, const std::string& text) {
    std::string line = std::string("NOTE ") + stream + " ";
    for (const char character : text) {
        line += character == '\n' ? std::string("\\n") : std::string(1, character);
    }
    return line;
}

} // namespace

std::string spi(std::uint32_t address, std::uint32_t value) {
    return spiLine(address, value);
}

std::string load(std::uint32_t address, std::uint32_t value) {
    return access("READ", address, value);
}

std::string store(std::uint32_t address, std::uint32_t value) {
    return access("WRITE", address, value);
}

std::string level(const std::string& line, int value) {
    return "GPIO " + line + " = " + std::to_string(value);
}

std::string slept(std::uint64_t microseconds) {
    return "SLEEP " + std::to_string(microseconds * 1000) + " ns";
}

std::string status(int level, const std::string& text) {
    return "NOTE STATUS " + std::to_string(level) + " " + text;
}

std::string word(std::uint32_t address, std::uint32_t value) {
    std::array<char, 40> line{};
    std::snprintf(line.data(), line.size(), "NOTE WORD 0x%05" PRIX32 " = %" PRIu32, address, value);
    return line.data();
}

std::string printed(const std::string& text) {
    return note("OUT", text);
}

std::string complained(const std::string& text) {
    return note("ERR", text);
}

std::string packing(int code) {
    return "NOTE PIPELINE " + std::to_string(code);
}

std::string locked() {
    return "NOTE LOCK";
}

std::string unlocked() {
    return "NOTE UNLOCK";
}

tsTrace exposure(const tsExposureNumbers& numbers) {
    const std::string gsPos1 = std::to_string(numbers.gsPos1);
    tsTrace trace = {
        status(6, "setExposure " + std::to_string(numbers.asked) + " uS"),
        spi(0x14, 0x3FFF),
        spi(0x15, 0x3FFF),
        spi(0x1A, 0),
        spi(0x3B, 0x3FFF),
        spi(0x1C, 0x3FFF),
        spi(0x1B, numbers.gsPos1 & 0x3FFF),
        spi(0x16, numbers.gresPos & 0x3FFF),
    };
    if (numbers.limitedFrom >= 0) {
        trace.push_back(printed("tc3U5MGXS::setExposure: Limiting exposure: exposure duration: " +
                                std::to_string(numbers.limitedFrom) + ", gs_pos1: " + gsPos1 +
                                "\n"));
    }
    const std::string accFpos = std::to_string(
        numbers.raisedFrom >= 0 ? numbers.raisedFrom : static_cast<std::int64_t>(numbers.accFpos));
    trace.push_back(printed("tc3U5MGXS::setExposure: hd_prd: " + std::to_string(numbers.hdPrd) +
                            ", gs_pos1: " + gsPos1 + ", acc_fpos: " + accFpos + "\n"));
    if (numbers.raisedFrom >= 0) {
        trace.push_back(printed("tc3U5MGXS::setExposure Increasing exposure: acc_fpos: " + accFpos +
                                ", gs_pos1: " + gsPos1 + "\n"));
    }
    const std::string applied = std::to_string(numbers.applied);
    trace.push_back(spi(0x19, numbers.accFpos & 0x3FFF));
    trace.push_back(printed("tc3U5MGXS::setExposure after: " + applied + "\n"));
    trace.push_back(word(0x3A004, static_cast<std::uint32_t>(numbers.applied)));
    trace.push_back(status(6, "setExposure updated to " + applied + " uS"));
    return trace;
}

tsTrace frameLength(int interval, std::uint32_t hdMax) {
    return {
        status(-1, "setFrameInterval: " + std::to_string(interval) + " uS"),
        printed("tc3U5MGXS::setHDMax: hd_max: " + std::to_string(hdMax) + "\n"),
        spi(0x12, hdMax),
    };
}

tsTrace areasReset() {
    return {
        spi(0x94, 0x201800), spi(0x95, 0x1AF000), spi(0x96, 0x3FFFFF), spi(0x97, 0x1FF1FF),
        spi(0x98, 0x3FFFFF), spi(0x99, 0x1FF1FF), spi(0x9A, 0x3FFFFF), spi(0x9B, 0x1FF1FF),
        spi(0x9C, 0x3FFFFF), spi(0x9D, 0x1FF1FF), spi(0x9E, 0x3FFFFF), spi(0x9F, 0x1FF1FF),
        spi(0xA0, 0x3FFFFF), spi(0xA1, 0x1FF1FF), spi(0xA2, 0x3FFFFF), spi(0xA3, 0x1FF1FF),
    };
}

tsTrace quickLink(std::uint32_t control, bool aligned) {
    const std::uint32_t status = aligned ? 0xF : 0x7;
    return {
        load(0xFF210000, control),
        store(0xFF210000, control | 0x80000000),
        load(0xFF210004, status),
        load(0xFF210004, status),
        load(0xFF210004, status),
        load(0xFF210004, status),
        printed("Status: Aligned " + std::to_string(aligned ? 1 : 0) +
                " Locked 1 rgLocked 1 gbLocked 1\n"),
        store(0xFF21002C, 0),
        store(0xFF210028, 0xFFF),
        store(0xFF210028, 0xFFF000),
        store(0xFF210028, 0),
        load(0xFF210030, 0xFFF),
        printed("DPA Lock: fff\n"),
        store(0xFF210028, 0),
        store(0xFF21002C, 0xFFF),
        load(0xFF210004, 0xF),
        load(0xFF210004, 0xF),
        load(0xFF210004, 0xF),
        load(0xFF210004, 0xF),
        printed("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1\n"),
    };
}

tsTrace lines(std::initializer_list<tcPiece> pieces) {
    tsTrace result;
    for (const tcPiece& piece : pieces) {
        result.insert(result.end(), piece.lines().begin(), piece.lines().end());
    }
    return result;
}

std::string text(std::initializer_list<tcPiece> pieces) {
    return shown(lines(pieces));
}

std::string shown(const tsTrace& trace) {
    std::string result;
    for (const std::string& line : trace) {
        result += line + "\n";
    }
    return result;
}

sim::tcVirtualHeadBuilder aQuickHead() {
    sim::tcVirtualHeadBuilder builder;
    builder.withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns);
    return builder;
}

tcMutex& boardMutexOf(Varnox::tc3U5MGXSSensorBoard& board) {
    class tcOpenBoard : public Varnox::tc3U5MGXSSensorBoard {
    public:
        using tc3U5MGXSSensorBoard::boardMutex;
    };
    return (board.*(&tcOpenBoard::boardMutex))();
}

bool isTaken(tcMutex& mutex) {
    static_assert(std::is_standard_layout_v<tcMutex>); // the address of its only member is its own
    auto* const native = reinterpret_cast<pthread_mutex_t*>(&mutex);
    bool taken = true;
    std::thread([&] {
        if (pthread_mutex_trylock(native) == 0) {
            taken = false;
            pthread_mutex_unlock(native);
        }
    }).join();
    return taken;
}

tcPluginTest::~tcPluginTest() {
    lockSpy() = {};
}

void tcPluginTest::noteBoardLocks() {
    const auto noting = [this](const std::string& text) {
        return [this, text, &boards = boardMutexOf(board())](const tcMutex& mutex) {
            if (&mutex == &boards) {
                head().note(text);
            }
        };
    };
    lockSpy().afterLock = noting("LOCK");
    lockSpy().beforeUnlock = noting("UNLOCK");
}

Varnox::tc3U5MGXSSensorBoard& tcPluginTest::makeReadyBoard() {
    useHead(aQuickHead());
    return makeInitializedBoard();
}
