/// \file
/// What the bench answers to a request: docs/live-interface.md.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "apps/live/fault_session.h"
#include "apps/live/programs.h"
#include "apps/live/time_line.h"
#include "sim/pictures/frame_writer.h"

namespace live {

inline constexpr unsigned kVersion = 1;                             ///< of the interface: "/v1/..."
inline constexpr std::size_t kLongestBody = std::size_t{16} * 1024; ///< of a request [bytes]
inline constexpr std::size_t kMostEvents = 1000;                    ///< of one answer
inline constexpr std::size_t kMostDrawnEvents = 2000;               ///< of one waveform

/// A request, whoever sent it.
struct tsRequest {
    std::string method;                       ///< "GET"
    std::string path;                         ///< "/v1/state", decoded
    std::map<std::string, std::string> query; ///< decoded
    std::string contentType;                  ///< without parameters
    std::string body;
};

/// The answer.
struct tsReply {
    unsigned status = 200;
    std::string type = "application/json";
    std::string body;
    std::map<std::string, std::string> headers;
};

/// \return the answer to a request that is refused \param why what is wrong, and what to do
[[nodiscard]] tsReply complaint(unsigned status, const std::string& why);

/// What is known of the run beside its events.
struct tsRunAbout {
    std::vector<std::string> program; ///< with its arguments
    std::string version;              ///< of the virtual head
    std::string scenario;             ///< path; empty: a healthy head
    std::string run;                  ///< no other run has it
};

/// Answers requests. Any thread may call at any time.
class tcInterface {
public:
    /// All references outlive this object.
    /// \param pictures paints what the head delivers
    tcInterface(tsRunAbout about, tcTimeLine& timeLine, tcPrograms& programs,
                tcFaultSession& faults, const sim::tcFrameWriter& pictures);

    /// Never throws but std::bad_alloc: what is wrong with a request is in the answer.
    [[nodiscard]] tsReply answer(const tsRequest& request);
    /// The program has ended. \param status as a shell has it
    void ended(int status);
    /// \param from number of the first event \return text of a stream's next piece: events as far
    ///        as there are any; \p from is moved behind them
    [[nodiscard]] std::string streamed(std::uint64_t& from) const;
    /// \return text of a stream's last message; empty while the program runs
    [[nodiscard]] std::string farewell() const;
    /// \param from where a stream is to begin \return the answer when the request is wrong
    [[nodiscard]] std::optional<tsReply> streamBegin(const tsRequest& request,
                                                     std::uint64_t& from) const;

private:
    struct tsPainted {
        unsigned process = 0;
        std::uint64_t pictures = 0; // the head had delivered
        sim::tsFrame frame;
        std::string png;
    };
    struct tsRoute;
    static const std::vector<tsRoute>& routes();
    tsReply about(const tsRequest& request);
    tsReply state(const tsRequest& request);
    tsReply registers(const tsRequest& request);
    tsReply events(const tsRequest& request);
    tsReply picture(const tsRequest& request);
    tsReply picturePng(const tsRequest& request);
    tsReply pictureRaw(const tsRequest& request);
    tsReply waveform(const tsRequest& request);
    tsReply faults(const tsRequest& request);
    tsReply makeFault(const tsRequest& request);
    tsReply endFault(const tsRequest& request);
    tsReply scenario(const tsRequest& request);
    tsReply rules(const tsRequest& request);
    tsReply look(const tsRequest& request);
    tsReply time(const tsRequest& request);
    tsReply setTime(const tsRequest& request);
    [[nodiscard]] tsPainted painted();

    tsRunAbout m_about;
    tcTimeLine& m_timeLine;
    tcPrograms& m_programs;
    tcFaultSession& m_faults;
    const sim::tcFrameWriter& m_pictures;
    mutable std::mutex m_mutex; // of what follows
    std::optional<tsPainted> m_painted;
    std::optional<int> m_status; // of the program
};

} // namespace live
