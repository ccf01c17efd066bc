#include "apps/live/request_guard.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace live {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char one) { return static_cast<char>(std::tolower(one)); });
    return text;
}

std::string bracketed(const std::string& host) {
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

bool isOurs(const tsListening& listening, const std::string& name) {
    const std::string port = ":" + std::to_string(listening.port);
    const std::array<std::string, 4> hosts{"127.0.0.1", "localhost", "[::1]",
                                           bracketed(lower(listening.host))};
    return std::any_of(hosts.begin(), hosts.end(), [&](const std::string& host) {
        constexpr std::uint16_t http = 80; // goes without saying
        return name == host + port || (listening.port == http && name == host);
    });
}

} // namespace

std::optional<std::string> refusal(const tsListening& listening, const std::string& host,
                                   const std::string& origin) {
    if (!isOurs(listening, lower(host))) {
        return "the request is for host \"" + host +
               "\"; ask for 127.0.0.1 or localhost with the " +
               "bench's port, or for the address that --serve was given";
    }
    constexpr std::string_view scheme = "http://";
    if (!origin.empty() &&
        (!origin.starts_with(scheme) || !isOurs(listening, lower(origin.substr(scheme.size()))))) {
        return "the request comes from a page of \"" + origin +
               "\"; only the bench's own page, or a program without a page, may ask";
    }
    return std::nullopt;
}

} // namespace live
