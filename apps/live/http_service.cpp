#include "apps/live/http_service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netdb.h>
#include <set>
#include <span>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include <microhttpd.h>

#include "apps/live/page_files.h"

namespace live {

namespace {

using tcNow = std::chrono::steady_clock;

constexpr unsigned kMostConnections = 128;
constexpr unsigned kIdleSeconds = 10;
constexpr std::size_t kConnectionMemory = std::size_t{32} * 1024;
constexpr double kRequestsPerSecond = 500;
constexpr double kBurst = 1000;
constexpr auto kWatchedFor = std::chrono::seconds(2);
constexpr auto kSignOfLife = std::chrono::seconds(5); // in a stream without news
constexpr auto kFarewell = std::chrono::milliseconds(500);
constexpr std::size_t kStreamBlock = 4096;

std::string textOf(const char* text) {
    return text == nullptr ? "" : text;
}

/// \return addresses to listen at, to be given back
std::shared_ptr<addrinfo> resolved(const std::string& host, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (error != 0) {
        throw std::runtime_error("cannot listen at " + host + ": " + ::gai_strerror(error));
    }
    return {found, ::freeaddrinfo};
}

std::uint16_t portOf(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    void* start = &address;
    if (::getsockname(socket, static_cast<sockaddr*>(start), &length) != 0) {
        return 0;
    }
    std::array<char, 16> text{};
    ::getnameinfo(static_cast<sockaddr*>(start), length, nullptr, 0, text.data(),
                  static_cast<socklen_t>(text.size()), NI_NUMERICSERV);
    return static_cast<std::uint16_t>(std::stoul(text.data()));
}

int listeningSocket(const std::string& host, std::uint16_t port) {
    const std::shared_ptr<addrinfo> addresses = resolved(host, port);
    const int socket = ::socket(addresses->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    constexpr int yes = 1;
    constexpr int backlog = 128;
    // The port of a bench that has just ended is free again at once.
    if (socket < 0 || ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        ::bind(socket, addresses->ai_addr, addresses->ai_addrlen) != 0 ||
        ::listen(socket, backlog) != 0) {
        const std::string why = std::strerror(errno);
        throw std::runtime_error("cannot listen at " + host + ":" + std::to_string(port) + ": " +
                                 why);
    }
    return socket;
}

} // namespace

class tcHttpService::tcServer {
public:
    tcServer(tcInterface& interface, const std::string& host, std::uint16_t port)
        : m_interface(interface), m_socket(listeningSocket(host, port)) {
        m_listening = {host, portOf(m_socket)};
        m_daemon = MHD_start_daemon(
            MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr,
            nullptr, onRequest, this, MHD_OPTION_LISTEN_SOCKET, m_socket,
            MHD_OPTION_CONNECTION_LIMIT, kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT,
            kIdleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
            MHD_OPTION_NOTIFY_COMPLETED, onCompleted, nullptr, MHD_OPTION_END);
        if (m_daemon == nullptr) {
            throw std::runtime_error("cannot serve at " + address());
        }
    }
    tcServer(const tcServer&) = delete;
    tcServer& operator=(const tcServer&) = delete;
    ~tcServer() {
        endStreams(); // a suspended connection must be resumed before the end
        // Who reads gets the stream's end; who does not is cut off.
        const auto until = tcNow::now() + kFarewell;
        while (m_streams != 0 && tcNow::now() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        MHD_stop_daemon(m_daemon);
    }

    [[nodiscard]] std::string address() const {
        const std::string& host = m_listening.host;
        return "http://" + (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" +
               std::to_string(m_listening.port) + "/";
    }

    [[nodiscard]] bool watched() const {
        return m_streams != 0 || tcNow::now().time_since_epoch().count() - m_asked <
                                     tcNow::duration(kWatchedFor).count();
    }

    void tellStreams(bool news) {
        std::vector<MHD_Connection*> due;
        {
            const std::lock_guard lock(m_mutex);
            const auto now = tcNow::now();
            for (auto at = m_waiting.begin(); at != m_waiting.end();) {
                if (news || m_ending || now - (*at)->told >= kSignOfLife) {
                    due.push_back((*at)->connection);
                    at = m_waiting.erase(at);
                } else {
                    ++at;
                }
            }
        }
        // Without the lock: the library has one of its own, under which it ends streams. Who waits
        // does not end.
        for (MHD_Connection* const connection : due) {
            MHD_resume_connection(connection);
        }
    }

    void endStreams() {
        m_ending = true;
        tellStreams(true);
    }

private:
    // A request while it comes in.
    struct tsIncoming {
        tsRequest request;
        bool tooLong = false;
    };
    // Somebody who follows the run.
    struct tsStream {
        tcServer* server = nullptr;
        MHD_Connection* connection = nullptr;
        std::uint64_t from = 0; // the next event
        std::string pending;    // not sent yet
        bool endTold = false;   // of the program
        tcNow::time_point told = tcNow::now();
    };

    static MHD_Result onArgument(void* target, MHD_ValueKind /*unused*/, const char* name,
                                 const char* value) {
        (*static_cast<std::map<std::string, std::string>*>(target))[textOf(name)] = textOf(value);
        return MHD_YES;
    }

    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* url,
                                const char* method, const char* /*version*/, const char* data,
                                std::size_t* length, void** state) {
        auto& server = *static_cast<tcServer*>(self);
        if (*state == nullptr) {
            auto incoming = std::make_unique<tsIncoming>();
            incoming->request.method = textOf(method);
            incoming->request.path = textOf(url);
            *state = incoming.release();
            return MHD_YES;
        }
        auto& incoming = *static_cast<tsIncoming*>(*state);
        if (*length != 0) {
            std::string& body = incoming.request.body;
            incoming.tooLong = incoming.tooLong || body.size() + *length > kLongestBody;
            if (!incoming.tooLong) {
                body.append(data, *length);
            }
            *length = 0;
            return MHD_YES;
        }
        return server.answer(connection, incoming);
    }

    static void onCompleted(void* /*unused*/, MHD_Connection* /*unused*/, void** state,
                            MHD_RequestTerminationCode /*unused*/) {
        delete static_cast<tsIncoming*>(*state);
        *state = nullptr;
    }

    static std::string header(MHD_Connection* connection, const char* name) {
        return textOf(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name));
    }

    MHD_Result answer(MHD_Connection* connection, tsIncoming& incoming) {
        m_asked = tcNow::now().time_since_epoch().count();
        tsRequest& request = incoming.request;
        if (const auto why = refusal(m_listening, header(connection, MHD_HTTP_HEADER_HOST),
                                     header(connection, MHD_HTTP_HEADER_ORIGIN))) {
            return complain(connection, MHD_HTTP_FORBIDDEN, *why);
        }
        if (!mayAsk()) {
            return complain(connection, MHD_HTTP_TOO_MANY_REQUESTS,
                            "more than 500 requests a second; wait a second");
        }
        if (incoming.tooLong) {
            return complain(connection, MHD_HTTP_CONTENT_TOO_LARGE,
                            "the body has more than 16384 bytes");
        }
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, onArgument, &request.query);
        std::string type = header(connection, MHD_HTTP_HEADER_CONTENT_TYPE);
        request.contentType = type.substr(0, type.find_first_of("; "));
        if (const std::optional<tsPageFile> file = pageFile(request.path)) {
            if (request.method == MHD_HTTP_METHOD_GET) {
                return send(connection,
                            {MHD_HTTP_OK, std::string(file->type), std::string(file->content), {}});
            }
        }
        if (request.path == "/v1/stream" && request.method == MHD_HTTP_METHOD_GET) {
            return follow(connection, request);
        }
        try {
            return send(connection, m_interface.answer(request));
        } catch (const std::exception& error) {
            return complain(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, error.what());
        }
    }

    // As much as has been saved up since the last request, up to a burst.
    bool mayAsk() {
        const auto now = tcNow::now();
        const std::chrono::duration<double> passed = now - m_saved;
        m_saved = now;
        m_requests = std::min(kBurst, m_requests + passed.count() * kRequestsPerSecond);
        if (m_requests < 1) {
            return false;
        }
        m_requests -= 1;
        return true;
    }

    static MHD_Result complain(MHD_Connection* connection, unsigned status,
                               const std::string& why) {
        return send(connection, complaint(status, why));
    }

    static void addHeaders(MHD_Response* response, const std::string& type) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type.c_str());
        MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
        MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
        MHD_add_response_header(response, "Content-Security-Policy",
                                "default-src 'self'; style-src 'self' 'unsafe-inline'; "
                                "img-src 'self' blob: data:; frame-ancestors 'none'");
    }

    static MHD_Result send(MHD_Connection* connection, const tsReply& reply) {
        MHD_Response* const response = MHD_create_response_from_buffer(
            reply.body.size(), const_cast<char*>(reply.body.data()), MHD_RESPMEM_MUST_COPY);
        if (response == nullptr) {
            return MHD_NO;
        }
        addHeaders(response, reply.type);
        for (const auto& [name, value] : reply.headers) {
            MHD_add_response_header(response, name.c_str(), value.c_str());
        }
        const MHD_Result queued = MHD_queue_response(connection, reply.status, response);
        MHD_destroy_response(response);
        return queued;
    }

    MHD_Result follow(MHD_Connection* connection, const tsRequest& request) {
        std::uint64_t from = 0;
        if (const std::optional<tsReply> wrong = m_interface.streamBegin(request, from)) {
            return send(connection, *wrong);
        }
        auto stream = std::make_unique<tsStream>();
        stream->server = this;
        stream->connection = connection;
        stream->from = from;
        MHD_Response* const response = MHD_create_response_from_callback(
            MHD_SIZE_UNKNOWN, kStreamBlock, onMore, stream.get(), onStreamEnd);
        if (response == nullptr) {
            return MHD_NO;
        }
        ++m_streams;
        [[maybe_unused]] const tsStream* const kept = stream.release(); // by the response
        addHeaders(response, "text/event-stream");
        const MHD_Result queued = MHD_queue_response(connection, MHD_HTTP_OK, response);
        MHD_destroy_response(response);
        return queued;
    }

    static ssize_t onMore(void* target, std::uint64_t /*position*/, char* buffer,
                          std::size_t most) {
        auto& stream = *static_cast<tsStream*>(target);
        return stream.server->more(stream, {buffer, most});
    }

    ssize_t more(tsStream& stream, std::span<char> buffer) {
        if (stream.pending.empty()) {
            const std::lock_guard lock(m_mutex); // news wait until the stream is seen to wait
            stream.pending = m_interface.streamed(stream.from);
            if (stream.pending.empty() && !stream.endTold) {
                stream.pending = m_interface.farewell();
                stream.endTold = !stream.pending.empty();
            }
            const auto now = tcNow::now();
            if (stream.pending.empty() && m_ending) {
                return MHD_CONTENT_READER_END_OF_STREAM;
            }
            if (stream.pending.empty() && now - stream.told >= kSignOfLife) {
                stream.pending = ": still here\n\n";
            }
            if (stream.pending.empty()) {
                m_waiting.insert(&stream);
                MHD_suspend_connection(stream.connection);
                return 0;
            }
            stream.told = now;
        }
        const std::size_t length = std::min(buffer.size(), stream.pending.size());
        std::copy_n(stream.pending.begin(), length, buffer.begin());
        stream.pending.erase(0, length);
        return static_cast<ssize_t>(length);
    }

    static void onStreamEnd(void* target) {
        const std::unique_ptr<tsStream> stream(static_cast<tsStream*>(target));
        tcServer& server = *stream->server;
        const std::lock_guard lock(server.m_mutex);
        server.m_waiting.erase(stream.get());
        --server.m_streams;
    }

    tcInterface& m_interface;
    int m_socket;
    tsListening m_listening;
    MHD_Daemon* m_daemon = nullptr;
    std::atomic<tcNow::rep> m_asked{0};
    std::atomic<unsigned> m_streams{0};
    std::atomic<bool> m_ending{false};
    double m_requests = kBurst; // that may still come; the server's thread only
    tcNow::time_point m_saved = tcNow::now();
    std::mutex m_mutex;
    std::set<tsStream*> m_waiting; // suspended until there are news
};

tcHttpService::tcHttpService(tcInterface& interface, const std::string& host, std::uint16_t port)
    : m_server(std::make_unique<tcServer>(interface, host, port)) {}

tcHttpService::~tcHttpService() = default;

std::string tcHttpService::address() const {
    return m_server->address();
}

bool tcHttpService::watched() const {
    return m_server->watched();
}

void tcHttpService::tellStreams(bool news) {
    m_server->tellStreams(news);
}

void tcHttpService::endStreams() {
    m_server->endStreams();
}

} // namespace live
