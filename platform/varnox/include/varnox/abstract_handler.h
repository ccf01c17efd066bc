/// \file
/// Text commands: the chain of handlers, and its replies.
#pragma once

#include <string>

#include <varnox/export.h>
#include <varnox/observer.h>

namespace Varnox {

class tcSensorBoard;

/// Base of the command handlers. A handler answers its own keywords and passes the others on.
///
/// Slots: complete destructor, deleting destructor, `update`, `execute`, `forward`.
class VARNOX_API tcAbstractHandler : public tcObserver {
public:
    /// \param board the board it works on, not owned; may be null
    /// \param next  who answers what this handler does not, not owned; may be null
    tcAbstractHandler(tcSensorBoard* board, tcAbstractHandler* next);
    ~tcAbstractHandler() override;

    /// Leaves the update unmarked.
    void update(tsUpdate& update) override;

    /// Passes the command to the next handler; the last one answers `nack(1)`: unknown command.
    /// \param command   the keyword
    /// \param arguments what follows it, separated by spaces
    /// \return the reply
    virtual std::string execute(std::string& command, std::string& arguments);

    /// Passes an event of the host along the chain.
    /// \return what the next handler's `forward` returns; 0 without a next handler
    virtual int forward(int event);

protected:
    /// \return "<ack>", or "<ack PAYLOAD>" for a payload that is not null
    static std::string ack(const char* payload);
    /// \return "<nack CODE>"
    static std::string nack(int code);
    /// \return "^VALUE"
    static std::string carrotNumber(int value);

    /// \return the board it works on; may be null
    [[nodiscard]] tcSensorBoard* board() const { return m_board; }
    /// \return who answers what it does not; may be null
    [[nodiscard]] tcAbstractHandler* next() const { return m_next; }

private:
    // In this order since plug-ins are built against it.
    tcAbstractHandler* m_next;
    tcSensorBoard* m_board;
};

} // namespace Varnox
