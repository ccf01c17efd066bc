#include <limits>
#include <optional>

#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/register_file_names.h"
#include "apps/camhost/results.h"

namespace camhost {

namespace {

constexpr const char* kRegistersGroup = "Registers";
constexpr std::uint32_t kWordMax = std::numeric_limits<std::uint32_t>::max();

std::string valueText(std::uint32_t value) {
    return std::to_string(value) + " (" + hexText(value) + ")";
}

std::string readWord(tcCall& call, tcArguments& arguments) {
    const std::uint32_t address = takeRegister(arguments);
    arguments.end();
    const auto value = call.head().registerFile().read_word(address);
    call.facts() = {{"word", address}, {"value", value ? tcFacts(*value) : tcFacts(nullptr)}};
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
    call.facts() = {{"word", address},
                    {"asked", asked},
                    {"value", result.value},
                    {"result", result.status},
                    {"handled", result.handled}};
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
    tcFacts words = tcFacts::list();
    for (const auto& [address, value] : call.head().registerFile().words()) {
        if (address < from || address > to)
            continue;
        text += (text.empty() ? "" : "\n") + registerTitle(address) + " = " + valueText(value);
        words.push_back({{"word", address}, {"name", registerName(address)}, {"value", value}});
    }
    call.facts()["words"] = words;
    return text.empty() ? "regfile holds nothing there" : text;
}

std::string listNames(tcCall& call, tcArguments& arguments) {
    arguments.end();
    std::string text;
    tcFacts words = tcFacts::list();
    for (const tsRegisterName& word : registerNames()) {
        text += (text.empty() ? "" : "\n") + hexText(word.address, 5) + " " +
                std::string(word.name) + ": " + std::string(word.meaning);
        words.push_back({{"word", word.address}, {"name", word.name}, {"meaning", word.meaning}});
    }
    call.facts()["words"] = words;
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
        return listNames(call, arguments);
    }
}

/// A register of the sensor, or one of its fields.
struct tsPlace {
    int address = 0;
    const registers::tsField* field = nullptr;

    /// \return "0x012 hd_max"
    [[nodiscard]] std::string title() const {
        constexpr int kDigits = 3;
        return hexText(static_cast<std::uint32_t>(address), kDigits) +
               (field != nullptr ? " " + field->name : "");
    }
    /// \return what is meant of the register's word
    [[nodiscard]] std::uint32_t of(std::uint32_t word) const {
        return field != nullptr ? field->of(word) : word;
    }
};

std::vector<std::string> fieldNames(tcCall& call) {
    std::vector<std::string> names;
    if (const auto* const table = call.head().registers()) {
        for (const registers::tsField& field : table->fields())
            names.push_back(field.name);
    }
    return names;
}

/// \return the names that hold a word, as "; did you mean area0_row_start or area1_row_start?"
std::string namesLike(tcCall& call, const std::string& word) {
    constexpr std::size_t kShown = 3;
    std::string text;
    std::size_t shown = 0;
    for (const std::string& name : fieldNames(call)) {
        if (shown < kShown && name.find(word) != name.npos)
            text += (shown++ == 0 ? "; did you mean " : " or ") + name;
    }
    return shown == 0 ? "" : text + "?";
}

tsPlace takePlace(tcCall& call, tcArguments& arguments) {
    const std::string word = arguments.takeWord("REGISTER");
    const auto* const table = call.head().registers();
    if (const auto* const field = table != nullptr ? table->find(word) : nullptr)
        return {static_cast<int>(field->address), field};
    std::int64_t number = 0;
    if (!parseNumber(word, number))
        arguments.refuse("REGISTER", word,
                         table != nullptr
                             ? "is no number and no name of a field" + namesLike(call, word) +
                                   "; \"registers\" lists the names"
                             : "is not a number, decimal or after 0x hexadecimal");
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max())
        arguments.refuse("REGISTER", word, "is out of range; it takes -2147483648 to 2147483647");
    return {static_cast<int>(number), nullptr};
}

/// What the board's copy of a register holds, where it tells.
std::optional<std::uint32_t> shadowOf(tcCall& call, int address) {
    int value = 0;
    if (call.board().peek(address, &value) != Varnox::eSuccess)
        return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

/// Keeps a register's word with its fields among the facts.
/// \return the fields: "; hscan_invert 1, bin 0"; empty where none is known
std::string tellFields(tcCall& call, const tsPlace& place, std::uint32_t word) {
    call.facts()["word"] = word;
    const auto* const table = call.head().registers();
    if (table == nullptr)
        return {};
    std::string text;
    tcFacts values = tcFacts::object();
    for (const auto* const field : table->fieldsOf(static_cast<std::uint32_t>(place.address))) {
        values[field->name] = field->of(word);
        text += (text.empty() ? "; " : ", ") + field->name + " " + std::to_string(field->of(word));
    }
    call.facts()["fields"] = values;
    return place.field != nullptr ? "" : text;
}

std::string peek(tcCall& call, tcArguments& arguments) {
    const tsPlace place = takePlace(call, arguments);
    arguments.end();
    call.facts()["register"] = place.address;
    int value = 0;
    const int result = call.board().peek(place.address, &value);
    const std::string title = "peek " + place.title();
    requireSuccess(title, call.told(result));
    const auto word = static_cast<std::uint32_t>(value);
    call.facts()["value"] = place.of(word);
    return title + " = " + valueText(place.of(word)) + tellFields(call, place, word);
}

/// Takes the value of a register or a field.
/// \return the word that the register gets
std::uint32_t takeWord(tcArguments& arguments, const tsPlace& place, std::uint32_t held,
                       std::uint32_t& asked) {
    if (place.field == nullptr)
        return asked = arguments.takeWord32("VALUE");
    asked = static_cast<std::uint32_t>(arguments.takeNumber("VALUE", 0, place.field->most()));
    return place.field->in(held, asked);
}

std::string poke(tcCall& call, tcArguments& arguments) {
    const tsPlace place = takePlace(call, arguments);
    const std::optional<std::uint32_t> held = shadowOf(call, place.address);
    std::uint32_t asked = 0;
    const std::uint32_t word = takeWord(arguments, place, held.value_or(0), asked);
    arguments.end();
    call.facts() = {{"register", place.address},
                    {"asked", asked},
                    {"held", held ? tcFacts(place.of(*held)) : tcFacts(nullptr)}};
    const int result = call.board().poke(place.address, static_cast<std::int32_t>(word));
    const std::string title = "poke " + place.title();
    requireSuccess(title + " = " + valueText(asked), result);
    const std::optional<std::uint32_t> now = shadowOf(call, place.address);
    const std::string before = held ? "held " + valueText(place.of(*held)) : "held unknown";
    const std::string after =
        now ? "holds " + valueText(place.of(*now)) : "written; the board does not tell";
    call.facts()["value"] = now ? tcFacts(place.of(*now)) : tcFacts(nullptr);
    const std::string fields = now ? tellFields(call, place, *now) : "";
    return title + ": asked " + valueText(asked) + ", " + before + ", " + after + fields + " (" +
           resultText(call.told(result)) + ")";
}

/// \return "0x012 13:0 hd_max: frame length [lines]"
std::string describedField(const registers::tsField& field) {
    constexpr int kDigits = 3;
    const unsigned high = field.lowBit + field.bits - 1;
    return hexText(field.address, kDigits) + " " + std::to_string(high) +
           (field.bits > 1 ? ":" + std::to_string(field.lowBit) : "") + " " + field.name + ": " +
           field.meaning;
}

std::string sensorRegisters(tcCall& call, tcArguments& arguments) {
    const std::string part = arguments.more() ? arguments.takeWord("PART") : "";
    arguments.end();
    const auto* const table = call.head().registers();
    if (table == nullptr)
        throw tcCommandError("registers: the plug-in brought no table of its registers; use "
                             "addresses with \"peek\" and \"poke\"");
    std::string text;
    tcFacts fields = tcFacts::list();
    for (const registers::tsField& field : table->fields()) {
        if (field.name.find(part) == field.name.npos)
            continue;
        text += (text.empty() ? "" : "\n") + describedField(field);
        fields.push_back({{"name", field.name},
                          {"address", field.address},
                          {"low_bit", field.lowBit},
                          {"bits", field.bits},
                          {"meaning", field.meaning}});
    }
    call.facts()["fields"] = fields;
    return text.empty() ? "no field's name holds \"" + part + "\"" : text;
}

tsCommand registerCommand(const char* name, const char* arguments, const char* summary,
                          const char* details, std::vector<std::string> examples,
                          tsCommand::Run run) {
    return {kRegistersGroup,     name,          arguments, summary, details,
            std::move(examples), std::move(run)};
}

} // namespace

void addRegisterCommands(tcCommandTable& table) {
    const auto names = [](tcCall& call, std::size_t index) {
        return index == 0 ? fieldNames(call) : std::vector<std::string>{};
    };
    tsCommand read = registerCommand(
        "peek", "REGISTER", "what a register of the sensor, or a field of one, was told",
        "REGISTER is an address or a field's name.", {"peek 0x0D8", "peek hd_max"}, peek);
    read.choices = names;
    table.add(std::move(read));
    tsCommand write = registerCommand(
        "poke", "REGISTER VALUE", "write a register of the sensor, or a field of one",
        "REGISTER is an address or a field's name; a field leaves the register's other bits as "
        "they\n  were told, 0 where they were not. A wrong value can disturb the sensor.",
        {"poke 0x0D8 0x2D90F", "poke again_fine 3"}, poke);
    write.choices = names;
    table.add(std::move(write));
    table.add(registerCommand("registers", "[PART]", "fields of the sensor's registers by name",
                              "With PART only those whose name holds it.", {"registers hd_"},
                              sensorRegisters));
    tsCommand file = registerCommand(
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
