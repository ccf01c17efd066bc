#include "sim/journal/log_line.h"

#include <cstring>

#include "sim/base/calls.h"
#include "sim/base/text.h"

namespace sim {

namespace {

void formatBytes(std::span<const std::uint8_t> bytes, tcTextSink& sink) {
    for (const std::uint8_t byte : bytes) {
        tcText text;
        sink.add(text.add(" ").bareHex(byte, 2).view());
    }
}

// Follows a line for as long as it is the words asked for.
class tcComparison final : public tcTextSink {
public:
    explicit tcComparison(std::string_view words) : m_words(words) {}
    void add(std::string_view text) override {
        for (const char character : text) {
            if (m_words.empty()) {
                m_wordEnds = m_goesOn ? m_wordEnds : character == ' ';
                m_goesOn = true;
                return;
            }
            m_differs = m_differs || m_words.front() != character;
            m_words.remove_prefix(1);
        }
    }
    [[nodiscard]] bool begins() const {
        return !m_differs && m_words.empty() && (m_wordEnds || !m_goesOn);
    }

private:
    std::string_view m_words;
    bool m_differs = false;
    bool m_goesOn = false;
    bool m_wordEnds = false;
};

} // namespace

std::string_view asText(std::span<const std::uint8_t> payload) {
    const void* start = payload.data();
    return {static_cast<const char*>(start), payload.size()};
}

void writeTime(std::uint64_t timeNs, tcTextSink& sink) {
    tcText text;
    sink.add(text.stamp(timeNs).view());
}

void writeLine(const tsLogEvent& event, tcTextSink& sink) {
    const std::span<const std::uint8_t> payload = event.payload;
    tcText text;
    switch (event.line) {
    case teLine::spi:
        sink.add("SPI");
        formatBytes(payload, sink);
        break;
    case teLine::spiMode:
        sink.add(text.add("SPI-MODE ").decimal(event.value).view());
        break;
    case teLine::spiLsb:
        sink.add(text.add("SPI-LSB ").decimal(event.value).view());
        break;
    case teLine::spiBits:
        sink.add(text.add("SPI-BITS ").decimal(event.value).view());
        break;
    case teLine::spiHz:
        sink.add(text.add("SPI-HZ ").decimal(event.value).view());
        break;
    case teLine::gpioOutput:
        sink.add(text.add("GPIO ").add(asText(payload)).add(" out ").decimal(event.value).view());
        break;
    case teLine::gpioInput:
        sink.add(text.add("GPIO ").add(asText(payload)).add(" in").view());
        break;
    case teLine::gpioValue:
        sink.add(text.add("GPIO ").add(asText(payload)).add(" = ").decimal(event.value).view());
        break;
    case teLine::gpioReleased:
        sink.add(text.add("GPIO ").add(asText(payload)).add(" released").view());
        break;
    case teLine::adc:
        text.add("ADC ").decimal(event.address);
        if (event.error == 0) {
            text.add(" ").hex(event.value, 3);
        }
        sink.add(text.view());
        break;
    case teLine::adcCommand:
        sink.add(text.add("ADC-COMMAND ").hex(event.value, 2).view());
        break;
    case teLine::read:
        sink.add(text.add("READ ").hex(event.address, 8).add(" ").hex(event.value, 8).view());
        break;
    case teLine::write:
        sink.add(text.add("WRITE ").hex(event.address, 8).add(" ").hex(event.value, 8).view());
        break;
    case teLine::sleep:
        sink.add(text.add("SLEEP ").decimal(event.value).add(" ns").view());
        break;
    case teLine::open:
        sink.add("OPEN ");
        sink.add(asText(payload));
        break;
    case teLine::close:
        sink.add("CLOSE ");
        sink.add(asText(payload));
        break;
    case teLine::map:
        sink.add(text.add("MAP ").hex(event.address, 8).add(" ").decimal(event.value).view());
        break;
    case teLine::unmap:
        sink.add(text.add("UNMAP ").hex(event.address, 8).add(" ").decimal(event.value).view());
        break;
    case teLine::note:
        sink.add("NOTE ");
        sink.add(asText(payload));
        break;
    case teLine::violation:
        sink.add("VIOLATION ");
        sink.add(asText(payload));
        break;
    case teLine::state:
        sink.add("STATE ");
        sink.add(asText(payload));
        break;
    }
    if (event.error != 0) {
        const char* name = strerrorname_np(event.error);
        sink.add(" failed ");
        sink.add(event.error == kShort ? "short"
                 : name != nullptr     ? name
                                       : "with an unknown error");
    }
}

teEventKind kindOf(teLine line) {
    switch (line) {
    case teLine::spi:
        return teEventKind::spi;
    case teLine::spiMode:
    case teLine::spiLsb:
    case teLine::spiBits:
    case teLine::spiHz:
        return teEventKind::spiSetting;
    case teLine::gpioOutput:
    case teLine::gpioInput:
    case teLine::gpioValue:
    case teLine::gpioReleased:
        return teEventKind::gpio;
    case teLine::adc:
        return teEventKind::adc;
    case teLine::adcCommand:
        return teEventKind::adcCommand;
    case teLine::read:
        return teEventKind::read;
    case teLine::write:
        return teEventKind::write;
    case teLine::sleep:
        return teEventKind::sleep;
    case teLine::open:
    case teLine::close:
    case teLine::map:
    case teLine::unmap:
        return teEventKind::device;
    case teLine::note:
        return teEventKind::note;
    case teLine::violation:
        return teEventKind::violation;
    case teLine::state:
        return teEventKind::state;
    }
    return teEventKind::note;
}

bool beginsWith(const tsLogEvent& event, std::string_view words) {
    tcComparison comparison(words);
    writeLine(event, comparison);
    return comparison.begins();
}

} // namespace sim
