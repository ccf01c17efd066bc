/// \file
/// The text of a log line: what each event of the head is called.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "sim/base/events.h"

namespace sim {

/// Forms of a log line. Several forms may be one kind of event.
enum class teLine : std::uint8_t {
    spi,
    spiMode,
    spiLsb,
    spiBits,
    spiHz,
    gpioOutput,
    gpioInput,
    gpioValue,
    gpioReleased,
    adc,
    adcCommand,
    read,
    write,
    sleep,
    open,
    close,
    map,
    unmap,
    note,
    violation,
    state,
};

/// What an event is made of.
struct tsLogEvent {
    std::uint64_t timeNs = 0;
    teLine line = teLine::note;
    std::uint32_t address = 0;
    std::uint64_t value = 0;
    int error = 0; // errno or kShort
    std::span<const std::uint8_t> payload;
};

/// \return whether the event's line, without its time, begins with these words. Possible in a
///         signal handler.
bool beginsWith(const tsLogEvent& event, std::string_view words);

/// \return the kind of event that a form belongs to
teEventKind kindOf(teLine line);

/// Where the text of a line goes, piece by piece.
class tcTextSink {
public:
    tcTextSink() = default;
    tcTextSink(const tcTextSink&) = delete;
    tcTextSink& operator=(const tcTextSink&) = delete;
    virtual ~tcTextSink() = default;
    virtual void add(std::string_view text) = 0;
};

/// Collects a line in the heap.
class tcStringSink final : public tcTextSink {
public:
    void add(std::string_view text) override { m_text.append(text); }
    /// \return the line, which is given away
    std::string take() { return std::move(m_text); }

private:
    std::string m_text;
};

/// "[    0.301003200] ". Possible in a signal handler.
void writeTime(std::uint64_t timeNs, tcTextSink& sink);
/// The event's line without its time. Possible in a signal handler.
void writeLine(const tsLogEvent& event, tcTextSink& sink);
/// \return a payload that is a text
std::string_view asText(std::span<const std::uint8_t> payload);

} // namespace sim
