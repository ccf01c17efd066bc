#include <limits>

#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/register_file_names.h"
#include "apps/camhost/results.h"

namespace camhost {

namespace {

constexpr const char* kGroup = "Registers";
constexpr std::uint32_t kWordMax = std::numeric_limits<std::uint32_t>::max();

std::string valueText(std::uint32_t value) {
    return std::to_string(value) + " (" + hexText(value) + ")";
}

std::string readWord(tcCall& call, tcArguments& arguments) {
    const std::uint32_t address = takeRegister(arguments);
    arguments.end();
    const auto value = call.head().registerFile().read_word(address);
    if (!value)
        throw tcCommandError("regfile " + registerTitle(address) +
                             " holds nothing: nobody has written it; \"regfile dump\" lists what "
                             "there is");
    return registerTitle(address) + " = " + valueText(*value);
}

std::string writeWord(tcCall& call, tcArguments& arguments) {
    const std::uint32_t address = takeRegister(arguments);
    const std::uint32_t asked = arguments.takeWord32("VALUE");
    arguments.end();
    const Varnox::tsWriteResult result = call.head().registerFile().write_word(address, asked);
    const std::string holds = "holds " + valueText(result.value);
    if (result.status != 0)
        throw tcCommandError("regfile " + registerTitle(address) + " = " + valueText(asked) +
                             " was refused by the board, status " + hexText(result.status) + "; " +
                             holds + "; give a value that the board takes");
    return registerTitle(address) + ": asked " + valueText(asked) + ", " + holds + ", " +
           (result.handled ? "taken by the board" : "nobody acts on it");
}

std::string dumpWords(tcCall& call, tcArguments& arguments) {
    const std::uint32_t from = arguments.more() ? takeRegister(arguments) : 0;
    const std::uint32_t to = arguments.more() ? takeRegister(arguments) : kWordMax;
    arguments.end();
    std::string text;
    for (const auto& [address, value] : call.head().registerFile().words()) {
        if (address >= from && address <= to)
            text += (text.empty() ? "" : "\n") + registerTitle(address) + " = " + valueText(value);
    }
    return text.empty() ? "regfile holds nothing there" : text;
}

std::string listNames(tcArguments& arguments) {
    arguments.end();
    std::string text;
    for (const tsRegisterName& word : registerNames())
        text += (text.empty() ? "" : "\n") + hexText(word.address, 5) + " " +
                std::string(word.name) + ": " + std::string(word.meaning);
    return text;
}

constexpr tsChoice kActions[] = {{"read", 0}, {"write", 1}, {"dump", 2}, {"names", 3}};

std::string registerFile(tcCall& call, tcArguments& arguments) {
    switch (arguments.takeChoice("read|write|dump|names", kActions, 0, 3)) {
    case 0:
        return readWord(call, arguments);
    case 1:
        return writeWord(call, arguments);
    case 2:
        return dumpWords(call, arguments);
    default:
        return listNames(arguments);
    }
}

std::string peek(tcCall& call, tcArguments& arguments) {
    const int reg = arguments.takeInt("REGISTER", std::numeric_limits<int>::min(),
                                      std::numeric_limits<int>::max());
    arguments.end();
    int value = 0;
    const int result = call.board().peek(reg, &value);
    const std::string title = "peek " + hexText(static_cast<std::uint32_t>(reg), 3);
    requireSuccess(title, result);
    return title + " = " + valueText(static_cast<std::uint32_t>(value));
}

/// What the board's copy of a register holds after a write, where it tells.
std::string readBack(tcCall& call, int reg) {
    int value = 0;
    if (call.board().peek(reg, &value) != Varnox::eSuccess)
        return "written; the board does not tell";
    return "holds " + valueText(static_cast<std::uint32_t>(value));
}

std::string poke(tcCall& call, tcArguments& arguments) {
    const int reg = arguments.takeInt("REGISTER", std::numeric_limits<int>::min(),
                                      std::numeric_limits<int>::max());
    const std::uint32_t asked = arguments.takeWord32("VALUE");
    arguments.end();
    const int result = call.board().poke(reg, static_cast<std::int32_t>(asked));
    const std::string title = "poke " + hexText(static_cast<std::uint32_t>(reg), 3);
    requireSuccess(title + " = " + valueText(asked), result);
    return title + ": asked " + valueText(asked) + ", " + readBack(call, reg) + " (" +
           resultText(result) + ")";
}

tsCommand command(const char* name, const char* arguments, const char* summary, const char* details,
                  std::vector<std::string> examples, tsCommand::Run run) {
    return {kGroup, name, arguments, summary, details, std::move(examples), std::move(run)};
}

} // namespace

void addRegisterCommands(tcCommandTable& table) {
    table.add(
        command("peek", "REGISTER", "read a register of the sensor", "", {"peek 0x0D8"}, peek));
    table.add(command("poke", "REGISTER VALUE", "write a register of the sensor",
                      "Nothing is checked: a wrong value can disturb the sensor.",
                      {"poke 0x0D8 0x2D90F"}, poke));
    tsCommand file = command(
        "regfile", "read WORD | write WORD VALUE | dump [FROM [TO]] | names",
        "the register file, as its clients see it",
        "WORD is an address or a name; a write reaches the board as any client's does.",
        {"regfile dump", "regfile read exposure", "regfile write 0x3A004 20000", "regfile names"},
        registerFile);
    file.choices = [](tcCall&, std::size_t index) {
        if (index == 0)
            return std::vector<std::string>{"dump", "names", "read", "write"};
        return index == 1 ? registerNameList() : std::vector<std::string>{};
    };
    table.add(std::move(file));
}

} // namespace camhost
