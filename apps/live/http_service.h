/// \file
/// The bench's HTTP server.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "apps/live/interface.h"
#include "apps/live/request_guard.h"

namespace live {

/// Answers requests over HTTP/1.1. One thread serves all clients, so that none waits for another's
/// connection. Limits: 128 connections, 16 KiB of body, 32 KiB of memory a connection, 500 requests
/// a second (bursts of 1,000); a connection on which nothing moves for 10 s is closed.
class tcHttpService {
public:
    /// \param interface answers; outlives this object \param host address or name to listen at
    /// \param port 0: any that is free
    /// \throws std::runtime_error "cannot listen at ...: why"
    tcHttpService(tcInterface& interface, const std::string& host, std::uint16_t port);
    tcHttpService(const tcHttpService&) = delete;
    tcHttpService& operator=(const tcHttpService&) = delete;
    /// Ends all connections.
    ~tcHttpService();

    /// \return "http://127.0.0.1:8080/"
    [[nodiscard]] std::string address() const;
    /// \return whether somebody follows the run, or asked within the last two seconds
    [[nodiscard]] bool watched() const;
    /// Events may have come: whoever follows the run gets them. To be called often, news or not.
    void tellStreams(bool news);
    /// The run is over: streams end once they have told everything.
    void endStreams();

    class tcServer; // with what the library calls

private:
    std::unique_ptr<tcServer> m_server;
};

} // namespace live
