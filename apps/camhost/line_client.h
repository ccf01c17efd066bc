/// \file
/// One client of the line server.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include <asio.hpp>

#include "apps/camhost/executor.h"
#include "apps/camhost/server_limits.h"

namespace camhost {

class tcLineClient;

/// What clients need of the service.
class tcLineClients {
public:
    virtual ~tcLineClients() = default;
    virtual void leave(const std::shared_ptr<tcLineClient>& client) = 0;
};

/// One connection. All of it but `carryOut` runs on the network thread.
class tcLineClient : public std::enable_shared_from_this<tcLineClient> {
public:
    /// All but the socket outlive the client. \param workers carry commands out
    tcLineClient(asio::ip::tcp::socket socket, tcExecutor& executor, asio::thread_pool& workers,
                 tcLineClients& clients, const tsServerLimits& limits);

    /// Begins to serve it.
    void start();

    /// Says why and ends the connection.
    void refuse(const std::string& why);

    void close();

private:
    void read();
    void received(std::size_t count);
    void takeLine();
    void carryOut(const std::string& line);
    void finished(const tsReply& reply);
    void send(std::string text);
    void write();
    void closeWhenDone();
    void linger();
    void discard();
    [[nodiscard]] tsCaller caller();
    void post(std::string text);

    asio::ip::tcp::socket m_socket;
    tcExecutor& m_executor;
    asio::thread_pool& m_workers;
    tcLineClients& m_clients;
    const tsServerLimits& m_limits;
    const asio::any_io_executor m_network;
    asio::steady_timer m_timer;
    std::array<char, 4096> m_chunk{};
    std::string m_unread;
    std::deque<std::string> m_outbox;
    std::size_t m_outboxBytes = 0;
    bool m_reading = false;
    bool m_ended = false;     // it sends no more
    bool m_running = false;   // a command of its is being carried out
    bool m_lastWords = false; // the connection ends when the outbox is empty
    bool m_lingering = false; // everything is said
    std::atomic<bool> m_gone = false;
};

} // namespace camhost
