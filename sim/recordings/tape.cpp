#include "sim/recordings/tape.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>

#include "sim/base/launch.h"
#include "sim/base/own_descriptor.h"
#include "sim/base/real_calls.h"
#include "sim/base/text.h"

namespace sim {

namespace {

constexpr mode_t kFileMode = 0644;
constexpr unsigned kMostProcesses = 1000;

/// Creates the first of FILE, FILE.2, ... that is not there yet. \param number of the file
int createNext(const std::string& path, unsigned& number) {
    for (number = 1; number < kMostProcesses; ++number) {
        const int file = real::open(launch::fileOfProcess(path, number).c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
        if (file >= 0 || errno != EEXIST) {
            return file;
        }
    }
    return -1;
}

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = real::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            tcText error;
            const char* name = strerrorname_np(errno);
            error.add("virtual head: the recording cannot be written: ");
            stopProgram(error.add(name != nullptr ? name : "?").add("\n").view());
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace

void tcTape::recordTo(const std::string& path) {
    m_mode = teMode::record;
    m_path = path;
}

void tcTape::playFrom(const std::string& path, const std::string& claims) {
    m_mode = teMode::play;
    m_path = path;
    m_claims = claims;
}

int tcTape::claim(const std::string& path) {
    unsigned number = 0;
    const int file = createNext(path, number);
    if (file < 0) {
        stopProgram("virtual head: " + path + ": " + std::strerror(errno) + "\n");
    }
    m_path = launch::fileOfProcess(m_path, number);
    return file;
}

void tcTape::start() {
    if (m_started) {
        return;
    }
    m_started = true;
    if (m_mode == teMode::record) {
        m_descriptor = outOfTheWay(claim(m_path));
        writeAll(m_descriptor, std::string(kRecordingHeading) + "\n");
        return;
    }
    if (!m_claims.empty()) {
        real::close(claim(m_claims));
    }
    try {
        m_exchanges = readRecording(m_path);
    } catch (const std::runtime_error& error) {
        stopProgram(std::string("virtual head: ") + error.what() + "\n");
    }
}

void tcTape::keep(std::uint64_t timeNs, std::string_view asked, std::string_view answer) {
    tcText time;
    time.stamp(timeNs);
    // One write a line, so that processes that are killed leave whole lines.
    constexpr std::size_t size = 256;
    const std::size_t length = time.view().size() + asked.size() + answer.size() + 4;
    if (length <= size) {
        tcText line;
        writeAll(m_descriptor,
                 line.add(time.view()).add(asked).add(" = ").add(answer).add("\n").view());
    } else {
        writeAll(m_descriptor, std::string(time.view()) + std::string(asked) + " = " +
                                   std::string(answer) + "\n");
    }
    ++m_calls;
}

tcTape::tsAnswer tcTape::answerTo(std::string_view asked) {
    if (m_calls == m_exchanges.size()) {
        differs("nothing: the recording ends here", asked);
    }
    const tsExchange& next = m_exchanges[m_calls];
    if (next.asked != asked) {
        differs(next.asked, asked);
    }
    ++m_calls;
    return {next.timeNs, next.answer};
}

void tcTape::differs(std::string_view recorded, std::string_view now) const {
    const std::size_t line =
        m_calls < m_exchanges.size() ? m_exchanges[m_calls].line : m_exchanges.size() + 2;
    tcText where;
    where.add(":").decimal(line).add(": the program does something else\n");
    writeError("virtual head: ");
    writeError(m_path);
    writeError(where.view());
    writeError("  recorded: ");
    writeError(recorded);
    writeError("\n  now:      ");
    writeError(now);
    writeError("\n");
    real::exitNow(kDiffers);
}

void tcTape::refuseAnswer(std::string_view why) const {
    const tsExchange& last = m_exchanges[m_calls - 1];
    stopProgram("virtual head: " + m_path + ":" + std::to_string(last.line) +
                ": no answer to this call: " + std::string(why) + "\n  " + last.asked + " = " +
                last.answer + "\n");
}

std::string tcTape::rest() const {
    if (m_calls >= m_exchanges.size()) {
        return "";
    }
    const tsExchange& next = m_exchanges[m_calls];
    return m_path + ":" + std::to_string(next.line) +
           ": the recording goes on\n  recorded: " + next.asked +
           "\n  now:      nothing: the program has ended\n";
}

} // namespace sim
