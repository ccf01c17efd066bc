/// \file
/// Text commands over TCP.
#pragma once

#include <memory>
#include <string>

#include "apps/camhost/executor.h"
#include "apps/camhost/listen_address.h"
#include "apps/camhost/server_limits.h"

namespace camhost {

/// Serves the host's commands to several clients at once, one command at a time.
///
/// A client sends lines. Each one is answered by "OK N" or "ERR N" and the N lines of the reply.
/// Before that, lines that begin with "* " may come: what a command shows while it runs.
///
/// | what a client does | what happens |
/// |---|---|
/// | a line beyond the limit | "ERR 1" with the reason, and the connection ends |
/// | one client too many | the same |
/// | it does not fetch its replies | its command is given up and the connection ends |
/// | it goes away | its waiting command is given up |
///
/// Other clients notice none of it.
class tcLineServer {
public:
    /// Binds the address; `start` begins to serve.
    /// \throws tcFatalError (`eListen`) when the address cannot be had
    tcLineServer(tcExecutor& executor, const tsAddress& address, const tsServerLimits& limits);
    tcLineServer(const tcLineServer&) = delete;
    tcLineServer& operator=(const tcLineServer&) = delete;
    /// Ends all connections and waits for the commands being carried out.
    ~tcLineServer();

    void start();

    /// \return the address in use, for example "127.0.0.1:4711"
    [[nodiscard]] std::string address() const;

private:
    class tcService;
    std::shared_ptr<tcService> m_service;
};

} // namespace camhost
