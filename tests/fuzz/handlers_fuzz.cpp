// The plug-in's command handlers and the tokenizer under them: first line the keyword, the rest its
// arguments. The replies are those that an independent reading of the arguments gives.

#include <map>
#include <memory>

#include <varnox/clock_handler.h>
#include <varnox/sensor_board.h>
#include <varnox/string_tokenizer.h>

#include "plugin/bad_pixel_handler.h"
#include "plugin/exposure_mode_handler.h"
#include "plugin/external_exposure.h"
#include "tests/fuzz/support.h"

namespace {

/// A core that remembers.
struct tsCore {
    [[nodiscard]] bool mapState() const { return applied; }
    void setMapState(bool apply) { applied = apply; }
    [[nodiscard]] static bool onState() { return true; }
    [[nodiscard]] static std::string defaultData() { return "default"; }
    void setData(const std::string& text) { data = text; }

    bool applied = false;
    std::string data = "untouched";
};

/// A board that knows exposure modes and clocks 0 and 1.
class tcBoard : public Varnox::tcSensorBoard, public Varnox::tcExternalExposure {
public:
    tcBoard() : tcSensorBoard(0, 0, 0, 0, nullptr) {}
    int setInternalExposureMode(bool on) override {
        internal = on;
        return 0;
    }
    bool getInternalExposureMode() override { return internal; }
    int setClockSetting(int index) override {
        if (index != 0 && index != 1)
            return 3;
        clock = index;
        return 0;
    }
    int getClockSetting(int& index) override {
        index = clock;
        return 0;
    }

    bool internal = true;
    int clock = 1;
};

/// \return the pieces between blanks
std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> tokens(1);
    for (const char c : text) {
        if (c == ' ')
            tokens.emplace_back();
        else
            tokens.back() += c;
    }
    std::erase(tokens, "");
    return tokens;
}

/// Reads a number of 32 bits, -2147483648 to 4294967295, as its bit pattern.
/// \return false when the token is none; `result` is then untouched
bool readNumber(const std::string& token, int& result) {
    std::size_t at = token[0] == '-' || token[0] == '+' ? 1 : 0;
    const bool hex = token.substr(at, 2) == "0x" || token.substr(at, 2) == "0X";
    at += hex ? 2 : 0;
    if (at == token.size())
        return false;
    const std::string digits = hex ? "0123456789abcdef" : "0123456789";
    std::int64_t value = 0;
    for (; at < token.size(); ++at) {
        const char c = token[at];
        const auto found = digits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
        if (found == std::string::npos || value > 0xFFFFFFFF)
            return false;
        value = value * static_cast<int>(digits.size()) + static_cast<int>(found);
    }
    value = token[0] == '-' ? -value : value;
    if (value < -2147483648LL || value > 4294967295LL)
        return false;
    result = static_cast<int>(static_cast<std::uint32_t>(value));
    return true;
}

void checkTokenizer(const std::string& text, const std::vector<std::string>& tokens) {
    tcStringTokenizer words(text, ' ');
    tcStringTokenizer numbers(text, ' ');
    for (const std::string& token : tokens) {
        fuzz::require(words.hasMoreTokens() && numbers.hasMoreTokens(), "there is one more token");
        fuzz::requireEqual("token", token, words.nextToken());
        int value = 4711;
        const bool read = numbers.nextInt(value);
        int expected = 4711;
        const bool isNumber = readNumber(token, expected);
        fuzz::require(read == isNumber, "only numbers are read as numbers");
        fuzz::requireEqual("number", std::to_string(expected), std::to_string(value));
    }
    fuzz::require(!words.hasMoreTokens() && words.nextToken().empty(), "there is none more");
}

struct tsExpected {
    std::string reply;
    bool internal = true;
    int clock = 1;
    bool applied = false;
    std::string data = "untouched";
};

tsExpected expectedOf(const std::string& keyword, const std::vector<std::string>& tokens) {
    const bool none = tokens.empty();
    int value = 0; // what is no number counts as 0
    const bool isNumber = !none && readNumber(tokens[0], value);
    if (keyword == "GBPR")
        return {"<ack ^1>"};
    if (keyword == "GBPRM")
        return {"<ack ^0>"};
    if (keyword == "SBPR" || keyword == "SBPRM") {
        if (!isNumber)
            return {none ? "<nack 2>" : "<nack 3>"};
        tsExpected expected{"<ack>"};
        if (keyword == "SBPRM")
            expected.applied = value != 0;
        else
            expected.data = value != 0 ? "default" : "";
        return expected;
    }
    if (keyword == "EXPM")
        return none ? tsExpected{"<ack>^0"} : tsExpected{"<nack 0>", value == 0};
    if (keyword == "CLKS") {
        if (none)
            return {"<ack ^1>"};
        if (!isNumber || (value != 0 && value != 1))
            return {"<nack 3>"};
        return {.reply = "<ack>", .clock = value};
    }
    return {"<nack 1>"};
}

void checkHandlers(std::string keyword, std::string arguments, const tsExpected& expected) {
    tcBoard board;
    tsCore core;
    std::map<std::string, Varnox::tcAbstractHandler*> handlers;
    Varnox::tcClockHandler clock(&board, nullptr, &handlers);
    Varnox::tcExposureModeHandler exposureMode(&board, &clock, &handlers);
    Varnox::tcBadPixelHandler<tsCore> chain(nullptr, &exposureMode, core);

    fuzz::requireEqual("reply to " + keyword, expected.reply, chain.execute(keyword, arguments));
    fuzz::require(board.internal == expected.internal, "exposure mode");
    fuzz::require(board.clock == expected.clock, "clock");
    fuzz::require(core.applied == expected.applied, "map state");
    fuzz::requireEqual("map", expected.data, core.data);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text({data, size});
    const std::size_t end = text.find('\n');
    const std::string keyword = text.substr(0, end);
    const std::string arguments = end == std::string::npos ? "" : text.substr(end + 1);
    const std::vector<std::string> tokens = split(arguments);
    checkTokenizer(arguments, tokens);
    checkHandlers(keyword, arguments, expectedOf(keyword, tokens));
    return 0;
}
