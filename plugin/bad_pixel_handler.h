/// \file
/// Text and register-file access to the bad-pixel replacement.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <varnox/abstract_handler.h>
#include <varnox/codes.h>
#include <varnox/string_tokenizer.h>

#include "common/thread_end.h"
#include "plugin/register_words.h"

namespace Varnox {

/// Keywords "SBPRM" and "GBPRM" switch and ask whether the map is applied, "SBPR" loads the default
/// map or clears it, "GBPR" asks whether the core is running. Register-file words 0x3A070 and
/// 0x3A074 do what "SBPR" and "SBPRM" do.
///
/// Slots after the base's: the core operation.
/// \tparam Core `tcBadPixelReplacement`, or what offers its operations
template<class Core>
class tcBadPixelHandler : public tcAbstractHandler {
public:
    enum teOp : int { eGetMapState = 0, eSetMapState = 1, eGetOnState = 2, eLoadMap = 3 };

    /// \param board null: the handler reaches the hardware through the core alone
    /// \param core  not owned
    tcBadPixelHandler(tcSensorBoard* board, tcAbstractHandler* next, Core& core)
        : tcAbstractHandler(board, next), m_core(&core) {}

    /// Serves word writes to the two words and marks them as handled, with status 0x8FFF when the
    /// core throws.
    void update(tsUpdate& update) override {
        if (update.kind != kUpdateWordWrite) {
            return;
        }
        const std::optional<teOp> op = servedBy(update.address);
        if (op) {
            int value = update.value != 0 ? 1 : 0;
            if (operate(*op, value) != eSuccess) {
                update.status = kUpdateFailed;
            }
            update.handled = true;
        }
    }

    /// \return `ack` with the caret number inside for a question, `ack(nullptr)` for a set,
    /// `nack(2)`
    ///         for a set without an argument, `nack(3)` for one that is not a number
    std::string execute(std::string& command, std::string& arguments) override {
        const std::optional<teOp> op = meantBy(command);
        if (!op) {
            return tcAbstractHandler::execute(command, arguments);
        }
        const bool set = *op == eSetMapState || *op == eLoadMap;
        int value = 0;
        if (set) {
            tcStringTokenizer tokens(arguments, ' ');
            if (!tokens.hasMoreTokens()) {
                return nack(kNoArgument);
            }
            if (!tokens.nextInt(value)) {
                return nack(kNotANumber);
            }
        }
        if (const int result = operate(*op, value); result != 0) {
            return nack(result);
        }
        return set ? ack(nullptr) : ack(carrotNumber(value).c_str());
    }

    /// Does the work for commands and register-file words.
    /// \param op    a `teOp`; others do nothing
    /// \param value what to set, or what was asked for
    /// \return 0; 6 when the core throws
    virtual int operate(int op, int& value) {
        try {
            callCore(op, value);
            return eSuccess;
        } catch (...) {
            if (endsThread()) {
                throw;
            }
            return eLinkFailure;
        }
    }

private:
    static constexpr int kNoArgument = 2;
    static constexpr int kNotANumber = 3;

    void callCore(int op, int& value) {
        switch (op) {
        case eGetMapState:
            value = m_core->mapState() ? 1 : 0;
            break;
        case eSetMapState:
            m_core->setMapState(value != 0);
            break;
        case eGetOnState:
            value = m_core->onState() ? 1 : 0;
            break;
        case eLoadMap:
            m_core->setData(value != 0 ? m_core->defaultData() : std::string());
            break;
        default:
            break;
        }
    }

    static std::optional<teOp> meantBy(std::string_view command) {
        if (command == "SBPR") {
            return eLoadMap;
        }
        if (command == "GBPR") {
            return eGetOnState;
        }
        if (command == "SBPRM") {
            return eSetMapState;
        }
        if (command == "GBPRM") {
            return eGetMapState;
        }
        return std::nullopt;
    }

    static std::optional<teOp> servedBy(std::uint32_t address) {
        switch (address) {
        case registerWords::kBadPixelLoad:
            return eLoadMap;
        case registerWords::kBadPixelApply:
            return eSetMapState;
        default:
            return std::nullopt;
        }
    }

    Core* m_core;
};

} // namespace Varnox
