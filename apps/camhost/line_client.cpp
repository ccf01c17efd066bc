#include "apps/camhost/line_client.h"

#include <chrono>
#include <utility>

#include "apps/camhost/line_protocol.h"

namespace camhost {

namespace {

using asio::ip::tcp;

constexpr std::chrono::seconds kProgressEvery{1};
constexpr std::chrono::seconds kLinger{2}; // for the last reply to arrive

} // namespace

tcLineClient::tcLineClient(tcp::socket socket, tcExecutor& executor, asio::thread_pool& workers,
                           tcLineClients& clients, const tsServerLimits& limits)
    : m_socket(std::move(socket)),
      m_executor(executor),
      m_workers(workers),
      m_clients(clients),
      m_limits(limits),
      m_network(m_socket.get_executor()),
      m_timer(m_network) {}

void tcLineClient::start() {
    read();
}

void tcLineClient::refuse(const std::string& why) {
    m_lastWords = true;
    send(wireText(false, why));
}

void tcLineClient::close() {
    m_gone = true;
    asio::error_code ignored;
    m_timer.cancel();
    m_socket.close(ignored);
    m_clients.leave(shared_from_this());
}

void tcLineClient::read() {
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

void tcLineClient::received(std::size_t count) {
    m_unread.append(m_chunk.data(), count);
    takeLine();
    read();
}

void tcLineClient::takeLine() {
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
void tcLineClient::post(std::string text) {
    asio::post(m_network,
               [self = shared_from_this(), text = std::move(text)] { self->send(text); });
}

tsCaller tcLineClient::caller() {
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

void tcLineClient::carryOut(const std::string& line) {
    const tsReply reply = m_executor.execute(line, caller());
    asio::post(m_network, [self = shared_from_this(), reply] { self->finished(reply); });
}

void tcLineClient::finished(const tsReply& reply) {
    m_running = false;
    m_lastWords = m_lastWords || reply.quit;
    send(wireText(reply.ok(), reply.text));
    takeLine();
    read();
}

void tcLineClient::send(std::string text) {
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

void tcLineClient::write() {
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

void tcLineClient::closeWhenDone() {
    if (m_lastWords && !m_running && m_outbox.empty() && !m_gone)
        linger();
}

/// Closing with something unread would throw away what the client has not fetched yet.
void tcLineClient::linger() {
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

void tcLineClient::discard() {
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

} // namespace camhost
