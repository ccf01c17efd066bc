#include "apps/camhost/line_server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <deque>
#include <set>
#include <thread>

#include <asio.hpp>

#include "apps/camhost/interrupt.h"

namespace camhost {

namespace {

using asio::ip::tcp;

constexpr std::chrono::seconds kProgressEvery{1};
constexpr std::chrono::seconds kLinger{2}; // for the last reply to arrive
constexpr std::chrono::milliseconds kAcceptAgain{200};

std::uint16_t parsePort(const std::string& text, std::string_view port) {
    std::uint16_t value = 0;
    const char* const end = port.data() + port.size();
    const auto [stop, error] = std::from_chars(port.data(), end, value);
    if (error != std::errc() || stop != end)
        throw tcFatalError(teExit::eListen,
                           "address \"" + text +
                               "\" not understood: the port is no number from 0 to "
                               "65535. Give ADDRESS:PORT with --listen.");
    return value;
}

std::string addressText(const tcp::endpoint& endpoint) {
    const std::string host = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + host + "]" : host) + ":" +
           std::to_string(endpoint.port());
}

std::size_t countLines(const std::string& text) {
    if (text.empty())
        return 0;
    return 1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

/// The reply as it goes over the wire.
std::string wireText(bool ok, const std::string& text) {
    return (ok ? "OK " : "ERR ") + std::to_string(countLines(text)) + "\n" +
           (text.empty() ? "" : text + "\n");
}

/// Lines before a reply, each marked.
std::string wireEvent(const std::string& text) {
    std::string event = "* ";
    for (const char c : text)
        event += c == '\n' ? std::string("\n* ") : std::string(1, c);
    return event + "\n";
}

class tcClient;

/// What clients need of the service.
class tcClients {
public:
    virtual ~tcClients() = default;
    virtual void leave(const std::shared_ptr<tcClient>& client) = 0;
};

/// One connection. All of it but `carryOut` runs on the network thread.
class tcClient : public std::enable_shared_from_this<tcClient> {
public:
    tcClient(tcp::socket socket, tcExecutor& executor, asio::thread_pool& workers,
             tcClients& clients, const tsServerLimits& limits)
        : m_socket(std::move(socket)),
          m_executor(executor),
          m_workers(workers),
          m_clients(clients),
          m_limits(limits),
          m_network(m_socket.get_executor()),
          m_timer(m_network) {}

    void start() { read(); }

    /// Says why and ends the connection.
    void refuse(const std::string& why) {
        m_lastWords = true;
        send(wireText(false, why));
    }

    void close() {
        m_gone = true;
        asio::error_code ignored;
        m_timer.cancel();
        m_socket.close(ignored);
        m_clients.leave(shared_from_this());
    }

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

    tcp::socket m_socket;
    tcExecutor& m_executor;
    asio::thread_pool& m_workers;
    tcClients& m_clients;
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

void tcClient::read() {
    if (m_reading || m_ended || m_lastWords || m_unread.size() > m_limits.lineBytes)
        return;
    m_reading = true;
    m_socket.async_read_some(
        asio::buffer(m_chunk),
        [self = shared_from_this()](const asio::error_code& error, std::size_t count) {
            self->m_reading = false;
            if (self->m_lingering) {
                error ? self->close() : self->discard();
                return;
            }
            if (error == asio::error::eof) {
                self->m_ended = true;
                self->takeLine();
            } else if (error) {
                self->close();
            } else {
                self->received(count);
            }
        });
}

void tcClient::received(std::size_t count) {
    m_unread.append(m_chunk.data(), count);
    takeLine();
    read();
}

void tcClient::takeLine() {
    if (m_running || m_lastWords)
        return;
    auto end = m_unread.find('\n');
    if (end == std::string::npos && m_ended)
        end = m_unread.size(); // the last line needs no end
    if (end == std::string::npos ? m_unread.size() > m_limits.lineBytes
                                 : end > m_limits.lineBytes) {
        refuse("the line is longer than " + std::to_string(m_limits.lineBytes) +
               " bytes; send shorter ones");
        return;
    }
    if (end == std::string::npos)
        return;
    if (m_ended && m_unread.empty()) {
        m_lastWords = true;
        closeWhenDone();
        return;
    }
    std::string line = m_unread.substr(0, end);
    m_unread.erase(0, end + 1);
    m_running = true;
    asio::post(m_workers,
               [self = shared_from_this(), line = std::move(line)] { self->carryOut(line); });
}

/// Hands a text over from the thread of a command.
void tcClient::post(std::string text) {
    asio::post(m_network,
               [self = shared_from_this(), text = std::move(text)] { self->send(text); });
}

tsCaller tcClient::caller() {
    tsCaller caller;
    caller.mayUseFiles = false;
    caller.gone = [this] { return m_gone.load(); };
    caller.line = [this](const std::string& text) { post(wireEvent(text)); };
    // Also tells a client that is gone from one that only waits.
    caller.progress = [this,
                       last = std::chrono::steady_clock::now()](const std::string& text) mutable {
        const auto now = std::chrono::steady_clock::now();
        if (text.empty() || now - last < kProgressEvery)
            return;
        last = now;
        post(wireEvent(text));
    };
    return caller;
}

void tcClient::carryOut(const std::string& line) {
    const tsReply reply = m_executor.execute(line, caller());
    asio::post(m_network, [self = shared_from_this(), reply] { self->finished(reply); });
}

void tcClient::finished(const tsReply& reply) {
    m_running = false;
    m_lastWords = m_lastWords || reply.quit;
    send(wireText(reply.ok(), reply.text));
    takeLine();
    read();
}

void tcClient::send(std::string text) {
    if (m_gone)
        return;
    m_outboxBytes += text.size();
    if (m_outboxBytes > m_limits.unreadBytes) { // it does not fetch its replies
        close();
        return;
    }
    m_outbox.push_back(std::move(text));
    if (m_outbox.size() == 1)
        write();
}

void tcClient::write() {
    asio::async_write(m_socket, asio::buffer(m_outbox.front()),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                          if (error) {
                              self->close();
                              return;
                          }
                          self->m_outboxBytes -= self->m_outbox.front().size();
                          self->m_outbox.pop_front();
                          if (!self->m_outbox.empty())
                              self->write();
                          else
                              self->closeWhenDone();
                      });
}

void tcClient::closeWhenDone() {
    if (m_lastWords && !m_running && m_outbox.empty() && !m_gone)
        linger();
}

/// Closing with something unread would throw away what the client has not fetched yet.
void tcClient::linger() {
    m_lingering = true;
    asio::error_code ignored;
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    m_timer.expires_after(kLinger);
    m_timer.async_wait([self = shared_from_this()](const asio::error_code& error) {
        if (!error)
            self->close();
    });
    discard();
}

void tcClient::discard() {
    if (m_reading) // what is under way ends up here as well
        return;
    m_socket.async_read_some(
        asio::buffer(m_chunk),
        [self = shared_from_this()](const asio::error_code& error, std::size_t) {
            if (error)
                self->close();
            else
                self->discard();
        });
}

} // namespace

/// The network thread, the threads that carry commands out, and the connections.
class tcLineServer::tcService : public tcClients {
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

    void leave(const std::shared_ptr<tcClient>& client) override { m_clients.erase(client); }

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
    std::set<std::shared_ptr<tcClient>> m_clients;
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
        std::make_shared<tcClient>(std::move(socket), m_executor, m_workers, *this, m_limits);
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

tsAddress parseAddress(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos)
        return {"127.0.0.1", parsePort(text, text)};
    std::string host = text.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    return {host.empty() ? "127.0.0.1" : host,
            parsePort(text, std::string_view(text).substr(colon + 1))};
}

} // namespace camhost
