#include "apps/camhost/line_server.h"

#include <chrono>
#include <set>
#include <thread>
#include <utility>

#include <asio.hpp>

#include "apps/camhost/interrupt.h"
#include "apps/camhost/line_client.h"

namespace camhost {

namespace {

using asio::ip::tcp;

constexpr std::chrono::milliseconds kAcceptAgain{200};

std::string addressText(const tcp::endpoint& endpoint) {
    const std::string host = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + host + "]" : host) + ":" +
           std::to_string(endpoint.port());
}

} // namespace

/// The network thread, the threads that carry commands out, and the connections.
class tcLineServer::tcService : public tcLineClients {
public:
    tcService(tcExecutor& executor, const tsAddress& address, const tsServerLimits& limits)
        : m_executor(executor), m_limits(limits), m_acceptor(m_network), m_workers(limits.clients) {
        bind(address);
    }

    void start() {
        accept();
        m_thread = std::thread([this] { m_network.run(); });
    }

    void stop() {
        asio::post(m_network, [this] {
            asio::error_code ignored;
            m_acceptor.close(ignored);
            m_pause.cancel();
            const auto clients = m_clients; // closing takes them out
            for (const auto& client : clients)
                client->close();
        });
        m_workers.join(); // commands see that nobody waits for them
        m_network.stop();
        if (m_thread.joinable())
            m_thread.join();
    }

    void leave(const std::shared_ptr<tcLineClient>& client) override { m_clients.erase(client); }

    [[nodiscard]] std::string address() const { return addressText(m_acceptor.local_endpoint()); }

private:
    void bind(const tsAddress& address);
    void accept();
    void welcome(tcp::socket socket);

    tcExecutor& m_executor;
    tsServerLimits m_limits;
    asio::io_context m_network{1};
    tcp::acceptor m_acceptor;
    asio::steady_timer m_pause{m_network};
    asio::thread_pool m_workers;
    std::set<std::shared_ptr<tcLineClient>> m_clients;
    std::thread m_thread;
};

void tcLineServer::tcService::bind(const tsAddress& address) {
    const std::string where = address.host + ":" + std::to_string(address.port);
    try {
        const tcp::endpoint endpoint(asio::ip::make_address(address.host), address.port);
        m_acceptor.open(endpoint.protocol());
        m_acceptor.set_option(tcp::acceptor::reuse_address(true));
        m_acceptor.bind(endpoint);
        m_acceptor.listen();
    } catch (const std::system_error& error) {
        throw tcFatalError(teExit::eListen,
                           "not listening on " + where + ": " + error.code().message() +
                               ". Give a free ADDRESS:PORT of this machine with --listen.");
    }
}

void tcLineServer::tcService::accept() {
    m_acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
        if (!m_acceptor.is_open())
            return;
        if (!error) {
            welcome(std::move(socket));
            accept();
            return;
        }
        m_pause.expires_after(kAcceptAgain); // out of descriptors, for example
        m_pause.async_wait([this](const asio::error_code& cancelled) {
            if (!cancelled)
                accept();
        });
    });
}

void tcLineServer::tcService::welcome(tcp::socket socket) {
    asio::error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::keep_alive(true), ignored);
    const bool full = m_clients.size() >= m_limits.clients;
    const auto client =
        std::make_shared<tcLineClient>(std::move(socket), m_executor, m_workers, *this, m_limits);
    if (full) {
        client->refuse("there are " + std::to_string(m_limits.clients) +
                       " clients already; try again when one is gone");
        return;
    }
    m_clients.insert(client);
    client->start();
}

tcLineServer::tcLineServer(tcExecutor& executor, const tsAddress& address,
                           const tsServerLimits& limits)
    : m_service([&] {
          const tcStartsUninterrupted starts;
          return std::make_shared<tcService>(executor, address, limits);
      }()) {}

tcLineServer::~tcLineServer() {
    m_service->stop();
}

void tcLineServer::start() {
    const tcStartsUninterrupted starts;
    m_service->start();
}

std::string tcLineServer::address() const {
    return m_service->address();
}

} // namespace camhost
