// The virtual head's scenario file: it is read as a whole or refused with a text that names it.

#include <stdexcept>

#include "sim/virtual_head.h"
#include "tests/fuzz/support.h"

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
    return 0;
}
