#include "tests/reliability/job.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <varnox/abstract_handler.h>
#include <varnox/register_file.h>

#include "tests/support/publish_spy.h"
#include "tests/support/traced_output.h"

namespace {

using Varnox::tc3U5MGXSSensorBoard;

/// Standard error in memory: streams and `perror` in one text, in order.
class tcErrors {
public:
    tcErrors() : m_file(memfd_create("errors", 0)), m_before(dup(STDERR_FILENO)) {
        std::cerr.flush();
        dup2(m_file, STDERR_FILENO);
    }
    ~tcErrors() {
        dup2(m_before, STDERR_FILENO);
        close(m_before);
        close(m_file);
    }
    tcErrors(const tcErrors&) = delete;
    tcErrors& operator=(const tcErrors&) = delete;

    [[nodiscard]] std::string text() const {
        std::string result(static_cast<std::size_t>(lseek(m_file, 0, SEEK_CUR)), '\0');
        const ssize_t count = pread(m_file, result.data(), result.size(), 0);
        result.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return result;
    }

private:
    int m_file;
    int m_before;
};

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        result += character == '\n' ? std::string("\\n") : std::string(1, character);
    }
    return result;
}

Varnox::tcRegisterFile& registerFile() {
    return *Varnox::tcRegisterFile::getInstance(nullptr, true);
}

/// Calls every operation, each with what a host would give it, and keeps their results.
class tcHost {
public:
    tcHost(tc3U5MGXSSensorBoard& board, std::vector<std::string>& results)
        : m_board(board), m_results(results) {
        Varnox::tcAbstractHandler* first = m_board.getCustomHandlers(nullptr, &m_handlers);
        m_owned.emplace_back(first); // the bad-pixel handler; the other two are in the map
        for (const char* keyword : {"EXPM", "CLKS"}) {
            if (const auto found = m_handlers.find(keyword); found != m_handlers.end()) {
                m_owned.emplace_back(found->second);
            }
        }
    }

    void reconfigure() {
        note("setExposure", m_board.setExposure(20000));
        note("setFrameInterval", m_board.setFrameInterval(50000));
        note("setROI", m_board.setROI({512, 0, 2592, 1028}));
        geometry();
        note("setBPP", m_board.setBPP(static_cast<Varnox::teBPPMode>(2)));
        note("setBPP", m_board.setBPP(static_cast<Varnox::teBPPMode>(0)));
        note("setColor", m_board.setColor(true));
        note("setTestPattern", m_board.setTestPattern(static_cast<Varnox::teTestPattern>(17)));
        note("setTestPattern", m_board.setTestPattern(Varnox::eTestPatternOff));
        triggers();
        registers();
        command("SBPR", "1");
        command("SBPRM", "1");
        command("GBPRM", "");
        command("GBPR", "");
        command("SBPR", "0");
        m_results.push_back(m_board.getVersion().substr(0, 40)); // behind it, the time of the build
    }

    void capture() {
        note("start", m_board.start());
        note("setROI", m_board.setROI({0, 0, 24, 2}));
        note("stop", m_board.stop());
    }

    void changeClock() {
        note("setClockSetting", m_board.setClockSetting(0));
        note("setClockSetting", m_board.setClockSetting(1));
    }

private:
    void geometry() {
        m_board.numberOfRegions = 2;
        m_board.regions[0] = {0, 0, 1296, 400};
        m_board.regions[1] = {1000, 0, 1296, 400};
        note("programMultipleROI", m_board.programMultipleROI());
        m_board.numberOfRegions = 1;
        note("setVerticalBin", m_board.setVerticalBin(2));
        note("setROI", m_board.setROI({10, 24, 240, 20}));
        note("setVerticalBin", m_board.setVerticalBin(1));
        note("setROI", m_board.setROI({0, 0, 2592, 2056}));
        note("setMirroring", m_board.setMirroring(false, false));
        note("setMirroring", m_board.setMirroring(true, false));
    }

    void triggers() {
        note("setTrigger", m_board.setTrigger(Varnox::eTriggerExternal));
        command("EXPM", "1");
        command("EXPM", "0");
        command("EXPM", "");
        note("setTrigger", m_board.setTrigger(Varnox::eTriggerFreeRunning));
    }

    void registers() {
        for (const std::uint32_t mode : {1U, 0U}) {
            const Varnox::tsWriteResult done = registerFile().write_word(0x3D000, mode);
            m_results.push_back("0x3D000 " + std::to_string(done.handled) + " " +
                                std::to_string(done.status));
        }
        const Varnox::tsWriteResult done = registerFile().write_word(0x3D004, 2);
        m_results.push_back("0x3D004 " + std::to_string(done.handled) + " " +
                            std::to_string(done.status));
        note("poke", m_board.poke(0x250, 0x1234));
        int value = 0;
        note("peek", m_board.peek(0x250, &value));
        note("peeked", value);
    }

    void command(const std::string& keyword, const std::string& text) {
        std::string name = keyword;
        std::string arguments = text;
        m_results.push_back(keyword + " " + m_owned.front()->execute(name, arguments));
    }

    void note(const char* operation, int result) {
        m_results.push_back(operation + std::string(" ") + std::to_string(result));
    }

    tc3U5MGXSSensorBoard& m_board;
    std::vector<std::string>& m_results;
    std::map<std::string, Varnox::tcAbstractHandler*> m_handlers;
    std::vector<std::unique_ptr<Varnox::tcAbstractHandler>> m_owned;
};

void listen(tc3U5MGXSSensorBoard& board, sim::tcVirtualHead& head, tsJob* job) {
    board.setStatusListener([&head, job](int level, const std::string& text) {
        head.note("STATUS " + std::to_string(level) + " " + text);
        if (job != nullptr) {
            job->statuses.push_back(std::to_string(level) + " " + text);
        }
    });
}

/// The line pairs' flip is read, changed and written back, before the core is enabled: "core
/// enabled" is then what the life before left. Every other store of the trace stays as it was made.
void forgetFormerEnable(std::vector<std::string>& trace) {
    const auto flip = std::find_if(trace.begin(), trace.end(), [](const std::string& line) {
        return line.starts_with("WRITE 0xFF210000 ");
    });
    if (flip != trace.end() && *flip == "WRITE 0xFF210000 0x80000002") {
        *flip = "WRITE 0xFF210000 0x00000002";
    }
}

/// Everything that a board does and says, from here on.
class tcRecord {
public:
    explicit tcRecord(sim::tcVirtualHead& head) : m_head(head) {
        m_head.clearLog();
        m_head.clearViolations();
        m_violationsBefore = m_head.violationCount();
        setPublishSpy([&head](std::uint32_t address, std::uint32_t value) {
            std::array<char, 40> text{};
            std::snprintf(text.data(), text.size(), "WORD 0x%05" PRIX32 " = %" PRIu32, address,
                          value);
            head.note(text.data());
        });
    }
    ~tcRecord() { setPublishSpy({}); }
    tcRecord(const tcRecord&) = delete;
    tcRecord& operator=(const tcRecord&) = delete;

    [[nodiscard]] std::vector<std::string> trace() const {
        std::vector<std::string> lines = m_head.lines(
            sim::teEventKind::spi | sim::teEventKind::spiSetting | sim::teEventKind::gpio |
            sim::teEventKind::adc | sim::teEventKind::adcCommand | sim::teEventKind::sleep |
            sim::teEventKind::device | sim::teEventKind::write | sim::teEventKind::note);
        forgetFormerEnable(lines);
        return lines;
    }
    [[nodiscard]] std::uint64_t violations() const {
        return m_head.violationCount() - m_violationsBefore;
    }

private:
    sim::tcVirtualHead& m_head;
    std::uint64_t m_violationsBefore = 0;
    tcTracedOutput m_out{std::cout,
                         [this](const std::string& text) { m_head.note("OUT " + escaped(text)); }};
    tcTracedOutput m_err{std::cerr,
                         [this](const std::string& text) { m_head.note("ERR " + escaped(text)); }};
};

void work(sim::tcVirtualHead& head, const tsLifePlan& plan, tsLife& life) {
    tsJob& job = life.job;
    const tcErrors errors;
    if (plan.atWork) {
        plan.atWork();
    }
    {
        tc3U5MGXSSensorBoard board("/dev/spidev1.0");
        listen(board, head, &job);
        tcHost host(board, job.results);
        job.initialized = board.initialize();
        if (job.initialized == 0 || !plan.goOn || plan.goOn(job.initialized)) {
            host.reconfigure();
            host.capture();
            host.changeClock();
        }
        job.took = head.now();
        if (plan.initializesAgain && plan.initializesAgain(head)) {
            const tcRecord record(head);
            listen(board, head, nullptr);
            const int initialized = board.initialize();
            life.again = {initialized, record.trace(), {}};
            for (const sim::tsViolation& violation : head.violations()) {
                life.again->broken.emplace_back(violation.rule);
            }
        }
    }
    job.errors = errors.text();
}

tsFollowUp workAgain(sim::tcVirtualHead& head) {
    tsFollowUp next;
    const tcRecord record(head);
    {
        tc3U5MGXSSensorBoard board("/dev/spidev1.0");
        listen(board, head, nullptr);
        next.initialized = board.initialize();
    }
    next.trace = record.trace();
    next.violations = record.violations();
    next.sensor = head.sensorRegisters();
    for (const std::uint32_t word : {0U, 2U, 6U, 8U, 9U, 10U, 11U, 12U}) {
        next.fpga.push_back(head.fpgaWord(0xFF210000 + 4 * word));
    }
    return next;
}

} // namespace

int openDescriptors() {
    int count = 0;
    DIR* const folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr) {
        ++count;
    }
    closedir(folder);
    return count;
}

rlim_t firstFreeDescriptor() {
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return static_cast<rlim_t>(descriptor);
}

tsLife live(sim::tcVirtualHeadBuilder& builder, const tsLifePlan& plan) {
    tsLife life;
    std::optional<sim::tcVirtualHead> head(builder.build());
    const int before = openDescriptors();
    {
        const tcTracedOutput silence(std::cout);
        work(*head, plan, life);
    }
    if (plan.heal) {
        plan.heal();
    }
    life.descriptorsLost = openDescriptors() - before;
    if (plan.spent && !plan.spent(*head)) {
        head.reset();
        head.emplace(sim::aVirtualHead().withLogCapacity(kLogEvents).build());
    }
    const int between = openDescriptors();
    life.next = workAgain(*head);
    life.descriptorsLostNext = openDescriptors() - between;
    return life;
}
