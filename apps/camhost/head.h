/// \file
/// One camera head, as the host drives it.
#pragma once

#include <deque>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <varnox/abstract_handler.h>
#include <varnox/multiple_roi_sensor.h>
#include <varnox/pipeline.h>
#include <varnox/register_file.h>
#include <varnox/sensor_board.h>

#include "apps/camhost/board_talk.h"
#include "apps/camhost/output.h"
#include "apps/failures/failure_table.h"
#include "apps/registers/register_table.h"
#include "apps/settings/settings_table.h"

namespace camhost {

/// Where a board comes from.
struct tsOrigin {
    std::string plugin;
    std::string spi;
    std::string noTable; ///< why the board has no table
};

/// A board with its command handlers, registered with the process's register file, its status
/// lines going to the log. Destroying it stops a running capture, takes everything off the register
/// file, deletes the handlers and then the board. It powers nothing off.
///
/// Not safe for several threads: `tcExecutor` serves one command after the other.
class tcHead {
public:
    /// \param sensorType what the plug-in says it serves
    /// \param makeBoard  makes a fresh board of the plug-in, for as long as the head lives; what it
    ///                   throws is passed on
    /// \param output     where status lines go; outlives the head
    tcHead(int sensorType, std::function<std::unique_ptr<Varnox::tcSensorBoard>()> makeBoard,
           tcOutput& output);
    tcHead(const tcHead&) = delete;
    tcHead& operator=(const tcHead&) = delete;
    ~tcHead();

    [[nodiscard]] int sensorType() const { return m_sensorType; }
    /// \return what the board told by printing
    [[nodiscard]] tcBoardTalk& talk() { return m_talk; }
    /// What the board prints from now on belongs to a new command.
    void beginCommand();
    /// From now on failures are explained.
    void knowFailures(failures::tcFailureTable table) { m_failures = std::move(table); }
    /// From now on registers of the sensor have names.
    void knowRegisters(registers::tcRegisterTable table) { m_registers = std::move(table); }
    /// \return the names of the sensor's registers; null where nobody told any
    [[nodiscard]] const registers::tcRegisterTable* registers() const {
        return m_registers ? &*m_registers : nullptr;
    }
    /// From now on it is known what the board takes.
    void knowSettings(settings::tcSettingsTable table) { m_settings = std::move(table); }
    /// \return what the board takes; null where nobody told
    [[nodiscard]] const settings::tcSettingsTable* settings() const {
        return m_settings ? &*m_settings : nullptr;
    }
    /// \return the board's table, or null
    [[nodiscard]] const failures::tcFailureTable* failures() const {
        return m_failures ? &*m_failures : nullptr;
    }
    /// What a diagnosis names: from where the board comes, and why `failures` is null.
    void comesFrom(tsOrigin origin) { m_origin = std::move(origin); }
    [[nodiscard]] const tsOrigin& origin() const { return m_origin; }

    /// Powers the head up and brings its link up. Settings are the board's own then.
    /// \return the board's result
    int initialize();
    /// \return whether the head came up since the board was made
    [[nodiscard]] bool isUp() const { return m_isUp; }
    /// \return whether it may be on: somebody has tried since the board was made
    [[nodiscard]] bool mayBeOn() const { return m_mayBeOn; }
    /// Takes board and handlers down and makes them anew: the head is off then, as at the start.
    /// \throws what `makeBoard` throws; the head is good for nothing but its end then
    void rebuild();
    /// \return whether there is a board: a failed `rebuild` leaves none
    [[nodiscard]] bool hasBoard() const { return m_board != nullptr; }
    /// \return all lines of the last command: standard output, standard error, status lines
    [[nodiscard]] std::vector<std::string> lines() const;
    /// \return of them what the board complains of: standard error and status lines of errors
    [[nodiscard]] std::vector<std::string> complaints() const;
    /// \return lines that the board printed as it was made
    [[nodiscard]] const std::vector<std::string>& builtWith() const { return m_builtWith; }
    /// \return of them what the board complained of
    [[nodiscard]] const std::vector<std::string>& builtComplaints() const {
        return m_builtComplaints;
    }

    /// \param result a failure that the board answered to this command
    /// \return what it means, by the board's table; nothing where nothing fits
    [[nodiscard]] std::optional<failures::tsExplanation> explanation(int result) const;
    [[nodiscard]] Varnox::tcSensorBoard& board() { return *m_board; }
    [[nodiscard]] Varnox::tcPipeline& pipeline() { return m_pipeline; }
    [[nodiscard]] Varnox::tcRegisterFile& registerFile() { return m_registerFile; }
    /// \return the board's several regions, or null when it has a single one only
    [[nodiscard]] Varnox::tcMultipleROISensor* regions();

    /// \return the keywords that the board's handlers answer, in alphabetical order
    [[nodiscard]] std::vector<std::string> keywords() const;
    [[nodiscard]] bool hasKeyword(const std::string& keyword) const;
    /// Hands a command to the handler of its keyword, or to the chain where it has none.
    /// \return the handler's reply
    std::string execute(std::string keyword, std::string arguments);

    /// Boards do not tell every setting: the host keeps what they took.
    void remember(const std::string& setting, int value) { m_remembered[setting] = value; }
    [[nodiscard]] std::optional<int> remembered(const std::string& setting) const;
    /// After an initialization the board's own defaults hold.
    void forgetSettings() { m_remembered.clear(); }

private:
    using tmHandlers = std::map<std::string, Varnox::tcAbstractHandler*>;

    void build();
    void takeDown();
    void takeHandlers();

    tcBoardTalk m_talk{std::cout}; // the last to go: boards print to the end
    tcBoardTalk m_complaints{std::cerr};
    mutable std::mutex m_statusLock;
    std::deque<std::string> m_statusLines; // of the last command
    std::optional<failures::tcFailureTable> m_failures;
    std::optional<registers::tcRegisterTable> m_registers;
    std::optional<settings::tcSettingsTable> m_settings;
    int m_sensorType;
    std::function<std::unique_ptr<Varnox::tcSensorBoard>()> m_makeBoard;
    tcOutput& m_output;
    tsOrigin m_origin;
    bool m_isUp = false;
    bool m_mayBeOn = false;
    Varnox::tcPipeline m_pipeline;
    Varnox::tcRegisterFile& m_registerFile;
    std::unique_ptr<Varnox::tcSensorBoard> m_board;
    std::vector<std::string> m_builtWith;         // lines that the board printed as it was made
    std::vector<std::string> m_builtComplaints;   // of them what it complained of
    tmHandlers m_keywords;                        // not owned
    Varnox::tcAbstractHandler* m_chain = nullptr; // not owned
    std::set<std::unique_ptr<Varnox::tcAbstractHandler>> m_handlers;
    std::map<std::string, int> m_remembered;
};

} // namespace camhost
