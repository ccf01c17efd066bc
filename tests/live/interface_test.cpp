// What is answered to a request, without a program and without a network.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "apps/live/interface.h"
#include "apps/live/request_guard.h"
#include "sim/scenario/scenario_pictures.h"
#include "tests/support/temporary_directory.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class Interface : public testing::Test {
protected:
    live::tsReply get(const std::string& path,
                      const std::map<std::string, std::string>& query = {}) {
        return m_interface.answer({"GET", path, query, "", ""});
    }
    live::tsReply post(const std::string& path, const std::string& body,
                       const std::string& type = "application/json") {
        return m_interface.answer({"POST", path, {}, type, body});
    }
    static std::string errorOf(const live::tsReply& reply) {
        return json::parse(reply.body).at("error").get<std::string>();
    }

    tcTemporaryDirectory m_folder;
    live::tcTimeLine m_timeLine{std::size_t{1} << 20};
    live::tcPrograms m_programs{m_folder.path(), m_timeLine};
    live::tcFaultSession m_faults{"[Supplies]\nVDD1.2 = 1.15\n", m_timeLine};
    sim::tcFrameWriter m_pictures{sim::frameWriter("", "")};
    live::tcInterface m_interface{{{"camhost", "a b"}, "0.1.0", "x.ini", "run 7"},
                                  m_timeLine,
                                  m_programs,
                                  m_faults,
                                  m_pictures};
};

TEST_F(Interface, SaysWhatItIs) {
    m_timeLine.begin(1);
    m_timeLine.add(0, "NOTE a");
    const live::tsReply reply = get("/v1");
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.type, "application/json");
    EXPECT_EQ(
        reply.body,
        "{\"interface\":1,\"virtual_head\":\"0.1.0\",\"program\":[\"camhost\",\"a b\"],"
        "\"scenario\":\"x.ini\",\"run\":\"run 7\",\"status\":null,\"process\":0,\"first_event\":0,"
        "\"next_event\":1,\"paths\":[\"GET /v1\",\"GET /v1/state\",\"GET /v1/registers\","
        "\"GET /v1/events\",\"GET /v1/picture\",\"GET /v1/picture.png\","
        "\"GET /v1/picture.raw\",\"GET /v1/waveform.svg\",\"GET /v1/faults\","
        "\"POST /v1/faults\",\"DELETE /v1/faults/*\",\"GET /v1/scenario\",\"GET /v1/rules\","
        "\"POST /v1/look\","
        "\"GET /v1/time\",\"POST /v1/time\",\"GET /v1/stream\"]}\n");
    m_interface.ended(9);
    EXPECT_EQ(json::parse(get("/v1").body).at("status"), 9);
}

TEST_F(Interface, TellsTheStateAtAnyEvent) {
    m_timeLine.begin(1);
    m_timeLine.add(5, "STATE LANE11-LOCK 1");
    m_timeLine.add(6, "STATE LANE11-LOCK 0");
    m_timeLine.add(7, "GPIO PS_1.2V_EN out 1");
    m_timeLine.add(7, "STATE VDD1.2 1200000 500000");
    m_timeLine.add(500'007, "STATE VDD1.2-GOOD 1");
    m_timeLine.add(600'000, "ADC 0 0x700"); // 1792 steps of 2.5 V / 4096
    const json at0 = json::parse(get("/v1/state", {{"at", "0"}}).body);
    EXPECT_EQ(at0["event"], 0);
    EXPECT_EQ(at0["time_ns"], 5);
    EXPECT_EQ(at0["link"]["lanes"].size(), 12U);
    EXPECT_EQ(at0["link"]["lanes"][11],
              json::parse(R"({"locked":true,"reset":false,"held":false,"event":0})"));
    EXPECT_EQ(at0["link"]["lanes"][10],
              json::parse(R"({"locked":false,"reset":false,"held":false,"event":null})"));
    const json now = json::parse(get("/v1/state").body);
    EXPECT_EQ(now["event"], 5);
    EXPECT_EQ(now["link"]["lanes"][11]["locked"], false);
    EXPECT_EQ(now["process"], nullptr);
    EXPECT_EQ(now["supplies"][0], json::parse(R"({"name":"VDD1.2","enable_line":"PS_1.2V_EN",
        "enable":1,"volts":1.2,"good":true,"event":4,
        "measured":{"volts":1.09375,"verdict":"too low","good":false,
                    "lowest":1.1,"highest":1.3,"event":5}})"));
    EXPECT_EQ(now["sensor"], json::parse(R"({"awake":false,"doing":"asleep","frame_state":0,
                                             "triggered":false,"event":null})"));
    EXPECT_EQ(now["pulses"], nullptr);
}

TEST_F(Interface, SaysWhatTheSensorDoes) {
    m_timeLine.begin(1);
    const auto doing = [this](const std::string& text) {
        m_timeLine.add(0, text);
        return json::parse(get("/v1/state").body)["sensor"]["doing"].get<std::string>();
    };
    EXPECT_EQ(doing("STATE SENSOR-AWAKE 1"), "stopped");
    EXPECT_EQ(doing("STATE SENSOR-WORD 0x010 - 0x000004 taken"), "lanes on");
    EXPECT_EQ(doing("STATE SENSOR-WORD 0x010 0x000004 0x000003 taken"), "streaming");
    EXPECT_EQ(doing("STATE SENSOR-WORD 0x010 0x000003 0x000005 taken"), "something else");
    EXPECT_EQ(doing("STATE SENSOR-AWAKE 0"), "asleep");
}

TEST_F(Interface, NamesRegistersFieldsAndDifferences) {
    m_timeLine.begin(1);
    m_timeLine.add(0, "STATE SENSOR-AWAKE 1");
    m_timeLine.add(3, "STATE SENSOR-WORD 0x010 - 0x000103 taken");
    m_timeLine.add(4, "STATE SENSOR-WORD 0x012 - 0x0007BC not-selected");
    m_timeLine.add(5, "STATE FPGA-WORD 0xFF211004 0x00000000 0x00000010 taken");
    const json registers = json::parse(get("/v1/registers").body);
    EXPECT_EQ(registers["sensor"], json::parse(R"([{"address":"0x010","value":259,
        "hex":"0x00000103","event":1,"time_ns":3,"fields":[
        {"name":"frame_state","value":3,
         "meaning":"what the sensor does: 0 stop, 3 stream, 4 lanes on"},
        {"name":"frame_control_mode","value":1,
         "meaning":"who sets frame and exposure: 0 registers, 1 and 3 trigger"}]}])"));
    EXPECT_EQ(registers["fpga"], json::parse(R"([{"address":"0xFF211004","value":16,
        "hex":"0x00000010","event":3,"time_ns":5,"block":"Frame-start pulses","fields":[
        {"name":"period","value":16,"meaning":"period, 2 and more [clocks]"}]}])"));
    EXPECT_EQ(registers["differences"],
              json::parse(R"([{"address":"0x012","sent":1980,"sensor":null,"event":2}])"));
    EXPECT_EQ(json::parse(get("/v1/registers", {{"at", "1"}}).body)["differences"], json::array());
}

TEST_F(Interface, ListsTheRulesWithReasonAndRemedy) {
    const json rules = json::parse(get("/v1/rules").body);
    ASSERT_EQ(rules.size(), 33U);
    EXPECT_EQ(rules[0], json::parse(R"({"name":"supply-order",
        "rule":"The supplies go on in the order 1.2 V, 3.3 V SVDD, 3.3 V AVDDH.",
        "reason":"A 3.3 V supply without the 1.2 V core supply drives current through the sensor's )"
                                    R"(input protection.",
        "remedy":"Set PS_1.2V_EN, then PS_3.3SVDD_EN, then PS_3.3AVDDH_EN."})"));
    EXPECT_EQ(rules[32]["name"], "log-full");
    EXPECT_EQ(get("/v1/rules", {{"at", "1"}}).status, 400U);
}

TEST_F(Interface, GivesEventsPieceByPiece) {
    m_timeLine.begin(1);
    for (int at = 0; at < 5; ++at) {
        m_timeLine.add(static_cast<std::uint64_t>(at), "NOTE " + std::to_string(at));
    }
    EXPECT_EQ(get("/v1/events", {{"from", "1"}, {"limit", "2"}}).body,
              "{\"events\":[{\"event\":1,\"process\":1,\"time_ns\":1,\"kind\":\"NOTE\","
              "\"text\":\"NOTE 1\"},{\"event\":2,\"process\":1,\"time_ns\":2,\"kind\":\"NOTE\","
              "\"text\":\"NOTE 2\"}],\"next\":3,\"first_event\":0,\"next_event\":5}\n");
    EXPECT_EQ(get("/v1/events", {{"from", "5"}}).body,
              "{\"events\":[],\"next\":5,\"first_event\":0,\"next_event\":5}\n");
    EXPECT_EQ(json::parse(get("/v1/events").body)["events"].size(), 5U);
}

TEST_F(Interface, StreamsEvents) {
    m_timeLine.begin(1);
    m_timeLine.add(1, "NOTE odd \xFF byte");
    std::uint64_t from = 0;
    EXPECT_EQ(m_interface.streamed(from),
              "id: 1\nevent: events\ndata: [{\"event\":0,\"process\":1,\"time_ns\":1,"
              "\"kind\":\"NOTE\",\"text\":\"NOTE odd \xEF\xBF\xBD byte\"}]\n\n");
    EXPECT_EQ(from, 1U);
    EXPECT_EQ(m_interface.streamed(from), "");
    EXPECT_EQ(m_interface.farewell(), "");
    m_interface.ended(9);
    EXPECT_EQ(m_interface.farewell(), "event: end\ndata: {\"status\":9}\n\n");
    std::uint64_t begin = 99;
    EXPECT_FALSE(m_interface.streamBegin({"GET", "/v1/stream", {}, "", ""}, begin));
    EXPECT_EQ(begin, 1U);
    EXPECT_FALSE(m_interface.streamBegin({"GET", "/v1/stream", {{"from", "0"}}, "", ""}, begin));
    EXPECT_EQ(begin, 0U);
    EXPECT_EQ(
        m_interface.streamBegin({"GET", "/v1/stream", {{"form", "0"}}, "", ""}, begin)->status,
        400U);
    EXPECT_EQ(
        m_interface.streamBegin({"GET", "/v1/stream", {{"from", "x"}}, "", ""}, begin)->status,
        400U);
}

TEST_F(Interface, DrawsTheWiresOfSomeEvents) {
    m_timeLine.begin(1);
    m_timeLine.add(1000, "GPIO RESET_B out 0");
    m_timeLine.add(2000, "GPIO RESET_B = 1");
    m_timeLine.add(3000, "GPIO EXT_TRIG_EN out 1");
    const live::tsReply reply = get("/v1/waveform.svg", {{"from", "0"}, {"to", "3"}});
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.type, "image/svg+xml");
    EXPECT_THAT(reply.body, HasSubstr("RESET_B"));
    EXPECT_THAT(errorOf(get("/v1/waveform.svg", {{"from", "3"}, {"to", "2"}})),
                HasSubstr("allowed are up to 2000 events"));
    EXPECT_THAT(errorOf(get("/v1/waveform.svg", {{"from", "0"}, {"to", "2001"}})),
                HasSubstr("allowed are up to 2000 events"));
    EXPECT_EQ(get("/v1/waveform.svg", {{"from", "7"}, {"to", "9"}}).status, 404U);
}

// What stood still in a piece did its work before.
TEST_F(Interface, DrawsAPieceFromWhatWasBefore) {
    m_timeLine.begin(1);
    m_timeLine.add(1000, "GPIO PS_1.2V_EN out 1");
    m_timeLine.add(2000, "STATE VDD1.2-GOOD 1");
    m_timeLine.add(3000, "STATE LANE3-LOCK 1");
    m_timeLine.add(4000, "GPIO RESET_B out 0");
    m_timeLine.add(5000, "GPIO RESET_B = 1");
    const std::string red = "#b00020";
    EXPECT_THAT(get("/v1/waveform.svg", {{"from", "0"}}).body, HasSubstr(red));
    const std::string piece = get("/v1/waveform.svg", {{"from", "3"}}).body;
    EXPECT_THAT(piece, HasSubstr(">PS_1.2V_EN<"));
    EXPECT_THAT(piece, HasSubstr(">VDD1.2-GOOD<"));
    EXPECT_THAT(piece, HasSubstr(">LANE3-LOCK<"));
    EXPECT_THAT(piece, HasSubstr(">RESET_B<"));
    EXPECT_THAT(piece, Not(HasSubstr(">LANE4-LOCK<")));
    EXPECT_THAT(piece, Not(HasSubstr(red)));
    m_timeLine.begin(2); // another head
    m_timeLine.add(0, "GPIO PS_1.2V_EN out 1");
    EXPECT_THAT(get("/v1/waveform.svg", {{"from", "5"}}).body, HasSubstr(red));
}

TEST_F(Interface, RefusesWhatItDoesNotKnow) {
    const auto refused = [](const live::tsReply& reply) {
        return std::to_string(reply.status) + " " + errorOf(reply);
    };
    EXPECT_EQ(refused(get("/v1/stat")), "404 there is no /v1/stat; GET /v1 lists what there is");
    EXPECT_EQ(refused(get("/v2/state")), "404 there is no /v2/state; GET /v1 lists what there is");
    EXPECT_EQ(refused(get("/v1/state", {{"att", "1"}})),
              "400 unknown parameter \"att\" of /v1/state");
    EXPECT_EQ(refused(get("/v1/state", {{"at", "-1"}})),
              "400 at \"-1\" is no number of an event; allowed is a whole number from 0");
    EXPECT_EQ(refused(get("/v1/state", {{"at", "18446744073709551616"}})),
              "400 at \"18446744073709551616\" is no number of an event; allowed is a whole number "
              "from 0");
    EXPECT_EQ(refused(get("/v1/state", {{"at", "7"}})),
              "404 event 7 is not kept; there are 0 to 0, the last one left out");
    EXPECT_EQ(refused(get("/v1/events", {{"limit", "0"}})), "400 limit 0; allowed is 1 to 1000");
    EXPECT_EQ(refused(get("/v1/events", {{"limit", "1001"}})),
              "400 limit 1001; allowed is 1 to 1000");
    EXPECT_EQ(refused(get("/v1/picture.png")),
              "404 no picture was delivered yet; the program has to stream");
    const live::tsReply wrong = m_interface.answer({"PUT", "/v1/faults", {}, "", ""});
    EXPECT_EQ(refused(wrong), "405 PUT is not for /v1/faults; allowed is GET, POST");
    EXPECT_EQ(wrong.headers.at("Allow"), "GET, POST");
    EXPECT_EQ(m_interface.answer({"DELETE", "/v1/faults/", {}, "", ""}).status, 404U);
}

TEST_F(Interface, RefusesBodiesThatItCannotRead) {
    const auto refused = [this](const std::string& body) {
        const live::tsReply reply = post("/v1/faults", body);
        return std::to_string(reply.status) + " " + errorOf(reply);
    };
    EXPECT_EQ(refused("what: lanes 3 lost"), "400 the body is no JSON object");
    EXPECT_EQ(refused("[]"), "400 the body is no JSON object");
    EXPECT_EQ(refused(R"({"what": 3})"), "400 member \"what\" is no text");
    EXPECT_EQ(refused(R"({"wat": "x"})"),
              "400 unknown member \"wat\"; allowed are name, what, at, after, for, until");
    EXPECT_EQ(refused(R"({"what": "lanes 3\nlost"})"),
              "400 what has line breaks or control characters, or is longer than 500 bytes");
    EXPECT_EQ(refused(R"({"what": "cat on keyboard"})"),
              "400 what \"cat on keyboard\" is no fault; GET /v1/faults lists the kinds");
    EXPECT_THAT(refused(R"({"what": "lanes 3 lost", "name": "a]b"})"),
                HasSubstr("400 name \"a]b\"; allowed are up to 64 letters"));
    EXPECT_EQ(refused(std::string(16385, ' ')), "413 the body has more than 16384 bytes");
    EXPECT_EQ(post("/v1/faults", "{}", "text/plain").status, 415U);
    EXPECT_EQ(errorOf(post("/v1/time", R"({"action": "rewind"})")),
              "member \"action\"; allowed are stop, step and go");
    EXPECT_EQ(errorOf(post("/v1/time", R"({"action": "stop"})")),
              "no program uses the head at present");
    EXPECT_EQ(post("/v1/time", R"({"action": "stop"})").status, 409U);
}

// They wait for the next program.
TEST_F(Interface, KeepsFaultsOfASessionAsAScenario) {
    EXPECT_EQ(get("/v1/scenario").body, "[Supplies]\nVDD1.2 = 1.15\n");
    live::tsReply made = post("/v1/faults", R"({"what": "lanes 3 lost", "for": "20"})");
    EXPECT_EQ(made.status, 201U);
    EXPECT_EQ(made.body, "{\"name\":\"fault 1\"}\n");
    made =
        post("/v1/faults", R"({"what": "PLL lost", "name": "pll", "after": "GPIO RESET_B = 1"})");
    EXPECT_EQ(made.status, 201U);
    made = post("/v1/faults", R"({"what": "PLL lost", "name": "pll"})");
    EXPECT_EQ(made.status, 409U);
    EXPECT_EQ(errorOf(made), "there is a fault \"pll\" already; choose another name");
    m_timeLine.begin(1);
    m_timeLine.add(450'250'000, "NOTE fault fault 1 begins");
    m_timeLine.add(470'250'000, "NOTE fault fault 1 ends");
    EXPECT_EQ(get("/v1/scenario").body, "[Supplies]\nVDD1.2 = 1.15\n\n"
                                        "[Fault fault 1]\nwhat = lanes 3 lost\nat = 450.25\n"
                                        "for = 20\n\n"
                                        "[Fault pll]\nwhat = PLL lost\nafter = GPIO RESET_B = 1\n");
    const json faults = json::parse(get("/v1/faults").body);
    EXPECT_EQ(faults["made"].size(), 2U);
    EXPECT_EQ(faults["lasting"], json::array());
    EXPECT_EQ(faults["kinds"].size(), 20U);
    EXPECT_EQ(m_interface.answer({"DELETE", "/v1/faults/pll", {}, "", ""}).status, 200U);
    EXPECT_EQ(m_interface.answer({"DELETE", "/v1/faults/pll", {}, "", ""}).status, 409U);
}

// A page from elsewhere, and a name that it chose.
TEST(RequestGuard, LetsInLoopbackAndTheAddressAsked) {
    const live::tsListening listening{"192.168.1.5", 8080};
    const auto refused = [&](const std::string& host, const std::string& origin = "") {
        return live::refusal(listening, host, origin).has_value();
    };
    EXPECT_FALSE(refused("127.0.0.1:8080"));
    EXPECT_FALSE(refused("LocalHost:8080"));
    EXPECT_FALSE(refused("[::1]:8080"));
    EXPECT_FALSE(refused("192.168.1.5:8080"));
    EXPECT_FALSE(refused("localhost:8080", "http://localhost:8080"));
    EXPECT_TRUE(refused(""));
    EXPECT_TRUE(refused("localhost"));
    EXPECT_TRUE(refused("localhost:8081"));
    EXPECT_TRUE(refused("127.0.0.1.evil.example:8080"));
    EXPECT_TRUE(refused("evil.example:8080"));
    EXPECT_TRUE(refused("localhost:8080", "http://evil.example"));
    EXPECT_TRUE(refused("localhost:8080", "https://localhost:8080"));
    EXPECT_TRUE(refused("localhost:8080", "null"));
    EXPECT_FALSE(live::refusal({"::1", 80}, "localhost", ""));
    EXPECT_FALSE(live::refusal({"FE80::1", 81}, "[fe80::1]:81", ""));
}

} // namespace
