// The virtual head's scenario file: it is read as a whole or refused with a text that names it. A
// head that is built with it lives: its faults come and go in their order.

#include <stdexcept>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/fuzz/support.h"
#include "tests/sim/head_user.h"

namespace {

constexpr const char* kFile = "scenario.ini";

/// \return the refusal; empty when the scenario is accepted
template<class Reader>
std::string refusal(Reader reader) {
    try {
        reader();
        return {};
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        fuzz::require(text.starts_with("scenario.ini: ") && text.size() > 14,
                      "a refusal names the file and says why");
        return text;
    }
}

// Supplies and reset, as far as the scenario lets them, with time for faults before and after.
void live(sim::tcVirtualHead& head) {
    constexpr std::chrono::milliseconds aWhile(20);
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    head.advance(aWhile);
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    head.advance(aWhile);
    const tcDescriptor svdd = requestOutput(chip.get(), lines::kSvdd, 1);
    const tcDescriptor avddh = requestOutput(chip.get(), lines::kAvddh, 1);
    usleep(300'000);
    const tcDescriptor reset = requestOutput(chip.get(), lines::kReset, 1);
    head.advance(std::chrono::seconds(2));
    static_cast<void>(setLevel(core, 0));
    head.advance(std::chrono::hours(300)); // longer than any time of a scenario
}

void checkFaults(const sim::tcVirtualHead& head) {
    for (const auto& fault : head.faults()) {
        fuzz::require(!fault.ended || (fault.began && *fault.began <= *fault.ended),
                      "a fault ends after it began");
        fuzz::require(!fault.began || *fault.began <= head.now(), "no fault begins in the future");
    }
    for (const char* rail : {"VDD1.2", "VDD3.3SVDD", "VDD3.3AVDDH"}) {
        fuzz::require(head.rail(rail) >= 0, "no supply is below ground");
    }
}

// In real time it would take too long.
void run(const std::string& text) {
    if (text.find("real") != std::string::npos) {
        return;
    }
    constexpr std::size_t records = 1024;
    try {
        sim::tcVirtualHead head = sim::aVirtualHead()
                                      .withScenario(kFile)
                                      .withLogCapacity(records)
                                      .withStateEvents()
                                      .withQuietViolations()
                                      .build();
        live(head);
        checkFaults(head);
    } catch (const std::runtime_error&) {
        // A picture that is none.
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::enterScratchFolder();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::writeFile(kFile, fuzz::text({data, size}));
    const std::string forHead = refusal([] { sim::aVirtualHead().withScenario(kFile); });
    const std::string forLauncher = refusal([] { static_cast<void>(sim::replacedFiles(kFile)); });
    // The launcher also wants the files of [Files] to exist.
    if (!forHead.empty())
        fuzz::requireEqual("head and launcher refuse the same", forHead, forLauncher);
    else
        run(fuzz::text({data, size}));
    return 0;
}
