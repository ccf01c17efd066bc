// A run that is looked at while it goes on, from end to end: launcher, program, HTTP.

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/live/served.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_directory.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kObey = std::string("-- ") + HEAD_PROGRAM + " obey";

json state(const tcServed& served, const std::string& query = "") {
    return json::parse(ask(served.port(), "GET", "/v1/state" + query).body);
}

// With which the program has ended; null before.
json status(const tcServed& served) {
    return json::parse(ask(served.port(), "GET", "/v1").body)["status"];
}

// Waits until the bench knows of it: it reads events some times a second.
bool comes(const std::function<bool()>& wanted) {
    const auto until = std::chrono::steady_clock::now() + kPatience;
    while (!wanted()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::vector<std::string> eventTexts(const tcServed& served) {
    std::vector<std::string> texts;
    std::uint64_t from = 0;
    for (;;) {
        const json answer =
            json::parse(ask(served.port(), "GET", "/v1/events?from=" + std::to_string(from)).body);
        if (answer["events"].empty()) {
            return texts;
        }
        for (const json& event : answer["events"]) {
            texts.push_back(event["text"]);
        }
        from = answer["next"];
    }
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(LiveRun, FollowsAProgramAndEndsWithIt) {
    const tcTemporaryDirectory folder;
    tcServed served("--serve 0 --log log " + kObey);
    EXPECT_EQ(served.tell("up"), "up 0");
    EXPECT_EQ(served.tell("start"), "start");
    ASSERT_TRUE(comes([&] { return state(served)["link"]["aligned"] == true; }));
    const json now = state(served);
    for (const json& lane : now["link"]["lanes"]) {
        EXPECT_EQ(lane["locked"], true);
        EXPECT_EQ(lane["held"], true);
    }
    EXPECT_EQ(now["sensor"]["doing"], "streaming");
    EXPECT_EQ(now["reset"]["level"], 1);
    EXPECT_EQ(now["violations"], 0);
    EXPECT_EQ(now["process"]["number"], 1);
    EXPECT_EQ(now["process"]["time"], "virtual");
    EXPECT_EQ(now["process"]["running"], true);
    // Event for event the log, with what the head did by itself in between.
    std::string log;
    for (const std::string& text : eventTexts(served)) {
        log += text.starts_with("STATE ") ? "" : text + "\n";
    }
    std::istringstream lines(contentOf("log"));
    std::string expected;
    for (std::string line; std::getline(lines, line);) {
        expected += line.substr(line.find("] ") + 2) + "\n";
    }
    EXPECT_EQ(log, expected);
    EXPECT_EQ(served.finish(), 0);
    EXPECT_THAT(served.complaints(), HasSubstr("violations: none"));
    EXPECT_THROW(tcConnection(served.port()), std::runtime_error);
}

// The state at an event is the one that a fresh reader makes of the log up to there.
TEST(LiveRun, GoesBackToAnyEvent) {
    tcServed served("--serve 0 " + kObey);
    EXPECT_EQ(served.tell("up"), "up 0");
    EXPECT_EQ(served.tell("start"), "start");
    ASSERT_TRUE(comes([&] { return state(served)["link"]["aligned"] == true; }));
    const std::vector<std::string> texts = eventTexts(served);
    const auto at = [&](const std::string& text) {
        const auto found = std::find(texts.begin(), texts.end(), text);
        EXPECT_NE(found, texts.end()) << text;
        return static_cast<std::size_t>(found - texts.begin());
    };
    const std::size_t lane5 = at("STATE LANE5-LOCK 1");
    EXPECT_EQ(state(served, "?at=" + std::to_string(lane5))["link"]["lanes"][5]["locked"], true);
    EXPECT_EQ(state(served, "?at=" + std::to_string(lane5 - 1))["link"]["lanes"][5]["locked"],
              false);
    const std::size_t reset = at("GPIO RESET_B = 1");
    EXPECT_EQ(state(served, "?at=" + std::to_string(reset))["reset"]["level"], 1);
    EXPECT_EQ(state(served, "?at=" + std::to_string(reset - 1))["reset"]["level"], 0);
    EXPECT_EQ(served.finish(), 0);
}

// Nobody has to wait for the next time that it looks by itself.
TEST(LiveRun, TellsEverythingUntilNowWhenAsked) {
    tcServed served("--serve 0 --keep-serving -- sh -c 'read line; exec " +
                    std::string(HEAD_PROGRAM) + " obey'");
    const auto look = [&] { return ask(served.port(), "POST", "/v1/look"); };
    EXPECT_EQ(look().body, "{\"next_event\":0}\n"); // no program has used the head
    served.send("go");
    EXPECT_EQ(served.tell("up"), "up 0");
    tcConnection stream(served.port());
    ASSERT_TRUE(stream.send("GET /v1/stream HTTP/1.1\r\nHost: localhost:" +
                            std::to_string(served.port()) + "\r\n\r\n"));
    EXPECT_THAT(stream.until("\r\n\r\n"), HasSubstr("200 OK"));
    EXPECT_EQ(served.tell("start"), "start");
    const tsAnswer looked = look();
    EXPECT_EQ(looked.status, 200);
    const json now = state(served);
    EXPECT_EQ(looked.body,
              "{\"next_event\":" + std::to_string(now["event"].get<int>() + 1) + "}\n");
    EXPECT_EQ(now["link"]["aligned"], true);
    // Who follows hears of what another's question has brought in.
    EXPECT_THAT(stream.until("STATE ALIGNED 1"), HasSubstr("STATE ALIGNED 1"));
    EXPECT_EQ(ask(served.port(), "GET", "/v1/look").headers["allow"], "POST");
    EXPECT_EQ(ask(served.port(), "POST", "/v1/look", "{}").status, 400);
    ASSERT_EQ(kill(now["process"]["pid"].get<pid_t>(), SIGKILL), 0);
    ASSERT_TRUE(comes([&] { return state(served)["process"]["running"] == false; }));
    const tsAnswer over = look();
    EXPECT_EQ(over.status, 200);
    EXPECT_EQ(over.body,
              "{\"next_event\":" + std::to_string(state(served)["event"].get<int>() + 1) + "}\n");
}

TEST(LiveRun, MakesAFaultAtOnceAndEndsIt) {
    tcServed served("--serve 0 " + kObey);
    EXPECT_EQ(served.tell("up"), "up 0");
    EXPECT_EQ(served.tell("start"), "start");
    EXPECT_EQ(served.tell("flags"), "flags 15"); // PLL flags and alignment
    ASSERT_TRUE(comes([&] { return state(served)["link"]["aligned"] == true; }));
    const tsAnswer made =
        ask(served.port(), "POST", "/v1/faults", R"({"what":"lanes 3 lost","name":"three"})");
    EXPECT_EQ(made.status, 201);
    // The program sleeps in its read: nobody has called the head since.
    ASSERT_TRUE(comes([&] { return state(served)["link"]["lanes"][3]["locked"] == false; }));
    EXPECT_EQ(state(served)["link"]["aligned"], false);
    EXPECT_EQ(state(served)["faults"], json::array({"three"}));
    EXPECT_EQ(served.tell("flags"), "flags 7");
    EXPECT_EQ(ask(served.port(), "DELETE", "/v1/faults/three").status, 200);
    ASSERT_TRUE(comes([&] { return state(served)["faults"].empty(); }));
    const tsAnswer again = ask(served.port(), "DELETE", "/v1/faults/three");
    EXPECT_EQ(again.status, 409);
    EXPECT_EQ(json::parse(again.body)["error"], "no fault of that name waits or lasts");
    const tsAnswer wrong =
        ask(served.port(), "POST", "/v1/faults", R"({"what":"lanes 3 lost","at":"x"})");
    EXPECT_EQ(wrong.status, 409);
    EXPECT_EQ(json::parse(wrong.body)["error"], "at \"x\": allowed is milliseconds since the head "
                                                "was built, for example `450`");
    EXPECT_EQ(served.finish(), 0);
}

TEST(LiveRun, MakesAFaultBeforeTheProgramUsesTheHead) {
    tcServed served("--serve 0 -- sh -c 'read line; exec " + std::string(HEAD_PROGRAM) +
                    " bring-up'");
    EXPECT_EQ(json::parse(ask(served.port(), "GET", "/v1/state").body)["process"], nullptr);
    EXPECT_EQ(ask(served.port(), "POST", "/v1/faults", R"({"what":"lanes 3 lost"})").status, 201);
    served.send("go");
    EXPECT_EQ(served.line(), "link -2");
    EXPECT_EQ(served.finish(), 1);
}

TEST(LiveRun, StopsStepsAndGoes) {
    tcServed served("--serve 0 --stopped " + kObey);
    ASSERT_TRUE(comes([&] { return !state(served)["process"].is_null(); }));
    const auto next = [&] {
        return json::parse(ask(served.port(), "GET", "/v1").body)["next_event"].get<unsigned>();
    };
    const auto act = [&](const std::string& action) {
        return json::parse(
            ask(served.port(), "POST", "/v1/time", R"({"action":")" + action + R"("})").body);
    };
    EXPECT_EQ(state(served)["process"]["stopped"], true);
    EXPECT_EQ(next(), 0U);
    for (unsigned step = 1; step <= 3; ++step) {
        EXPECT_EQ(act("step")["stopped"], true);
        ASSERT_TRUE(comes([&] { return next() == step; })) << step;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(next(), 3U);
    EXPECT_EQ(act("go")["stopped"], false);
    EXPECT_EQ(served.tell("up"), "up 0");
    EXPECT_EQ(act("stop")["stopped"], true);
    served.send("sleep");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(act("go")["stopped"], false);
    EXPECT_EQ(served.line(), "sleep");
    EXPECT_EQ(served.finish(), 0);
}

TEST(LiveRun, DoesNotStopRealTime) {
    tcServed served("--serve 0 --time real " + kObey);
    EXPECT_EQ(served.tell("sleep"), "sleep");
    ASSERT_TRUE(comes([&] { return !state(served)["process"].is_null(); }));
    const tsAnswer answer = ask(served.port(), "POST", "/v1/time", R"({"action":"stop"})");
    EXPECT_EQ(answer.status, 409);
    EXPECT_EQ(json::parse(answer.body)["error"],
              "time is real and cannot be stopped; start the program with --time virtual");
    EXPECT_EQ(served.finish(), 0);
}

// The same pixels as --frames writes.
TEST(LiveRun, ShowsTheLatestPicture) {
    const tcTemporaryDirectory folder;
    tcServed served("--serve 0 --keep-serving --frames shots -- " + std::string(HEAD_PROGRAM) +
                    " capture");
    EXPECT_TRUE(comes([&] { return contentOf("shots/frame-0003.png").size() > 1000; }));
    ASSERT_TRUE(comes([&] { return status(served) == 0; }));
    const tsAnswer png = ask(served.port(), "GET", "/v1/picture.png");
    EXPECT_EQ(png.headers.at("content-type"), "image/png");
    EXPECT_EQ(png.headers.at("x-pictures"), "3");
    EXPECT_TRUE(png.body == contentOf("shots/frame-0003.png"));
    const json about = json::parse(ask(served.port(), "GET", "/v1/picture").body);
    EXPECT_EQ(about["width"], 240);
    EXPECT_EQ(about["height"], 128);
    EXPECT_EQ(about["settings"]["digital gain"], "2.000");
    const tsAnswer raw = ask(served.port(), "GET", "/v1/picture.raw");
    EXPECT_EQ(raw.headers.at("x-width"), "240");
    EXPECT_EQ(raw.body.size(), 2U * 240 * 128);
    // The run stays to be looked at.
    EXPECT_EQ(state(served)["process"]["running"], false);
    served.signal(SIGTERM);
    EXPECT_EQ(served.finish(), 0);
    EXPECT_THAT(served.complaints(), HasSubstr("the program has ended; the bench stays at"));
}

TEST(LiveRun, StreamsEventsAsTheyCome) {
    tcServed served("--serve 0 " + kObey);
    const std::string host = "Host: localhost:" + std::to_string(served.port()) + "\r\n\r\n";
    tcConnection stream(served.port());
    ASSERT_TRUE(stream.send("GET /v1/stream?from=0 HTTP/1.1\r\n" + host));
    EXPECT_THAT(stream.until("\r\n\r\n"), HasSubstr("Content-Type: text/event-stream"));
    EXPECT_EQ(served.tell("wrong"), "wrong");
    const std::string message = stream.until("sensor-asleep: register 0x20");
    EXPECT_THAT(message, HasSubstr("event: events\ndata: [{\"event\":0,"));
    EXPECT_EQ(served.finish(), 9);
    EXPECT_THAT(stream.until("STATE END"), HasSubstr("STATE END"));
    EXPECT_THAT(stream.until("event: end"), testing::EndsWith("event: end"));
    EXPECT_THAT(stream.rest(kPatienceMs),
                AllOf(StartsWith("\ndata: {\"status\":0}\n\n"),
                      testing::EndsWith("0\r\n\r\n"))); // it ends with the run
}

TEST(LiveRun, ShowsTheHeadThatBeganLast) {
    tcServed served("--serve 0 -- sh -c '" + std::string(HEAD_PROGRAM) + " bring-up; " +
                    HEAD_PROGRAM + " violate; read line; true'");
    EXPECT_EQ(served.line(), "link 0");
    ASSERT_TRUE(comes([&] {
        const json now = state(served);
        return !now["process"].is_null() && now["process"]["number"] == 2 && now["ended"] == true &&
               now["process"]["running"] == false;
    }));
    EXPECT_EQ(state(served)["link"]["aligned"], false);
    EXPECT_EQ(state(served)["violations"], 2);
    EXPECT_EQ(state(served)["process"]["running"], false);
    EXPECT_EQ(served.finish(), 9);
}

TEST(LiveRun, SurvivesAKilledProgram) {
    tcServed served("--serve 0 --keep-serving -- " + std::string(HEAD_PROGRAM) + " die");
    ASSERT_TRUE(comes([&] { return status(served) == 128 + SIGKILL; }));
    served.signal(SIGINT);
    EXPECT_EQ(served.finish(), 128 + SIGKILL);
}

// Its child has a copy of all that it had open.
TEST(LiveRun, NoticesTheEndOfAProgramThatLeavesAChild) {
    tcServed served("--serve 0 --keep-serving -- " + std::string(HEAD_PROGRAM) + " daemon");
    ASSERT_TRUE(comes([&] {
        const json process = state(served)["process"];
        return !process.is_null() && process["running"] == false;
    }));
    EXPECT_EQ(ask(served.port(), "POST", "/v1/look").status, 200);
    ASSERT_TRUE(comes([&] { return status(served) == 0; }));
    served.signal(SIGINT);         // before, it would have been the program's
    EXPECT_EQ(served.finish(), 9); // a write to a sensor that sleeps
}

// What is left of a run takes its time to write.
TEST(LiveRun, HearsTheUserFromTheProgramsEndOn) {
    const tcTemporaryDirectory folder;
    tcServed served("--serve 0 --keep-serving --report page.html -- " + std::string(HEAD_PROGRAM) +
                    " capture");
    ASSERT_TRUE(comes([&] { return status(served) == 0; }));
    served.signal(SIGINT);
    EXPECT_EQ(served.finish(), 0);
    EXPECT_THAT(contentOf("page.html"), testing::EndsWith("</html>\n"));
}

TEST(LiveRun, AnswersOnlyItsOwnPageAndProgramsHere) {
    tcServed served("--serve 0 " + kObey);
    const std::uint16_t port = served.port();
    EXPECT_EQ(ask(port, "GET", "/").status, 200);
    EXPECT_THAT(ask(port, "GET", "/").headers.at("content-type"), StartsWith("text/html"));
    EXPECT_EQ(ask(port, "GET", "/v1", "", "", "evil.example").status, 403);
    EXPECT_EQ(ask(port, "GET", "/v1", "", "", "").status, 403);
    EXPECT_EQ(ask(port, "GET", "/v1", "", "Origin: http://evil.example\r\n").status, 403);
    EXPECT_EQ(
        ask(port, "GET", "/v1", "", "Origin: http://localhost:" + std::to_string(port) + "\r\n")
            .status,
        200);
    EXPECT_EQ(ask(port, "POST", "/v1/faults", std::string(20000, ' ')).status, 413);
    EXPECT_EQ(ask(port, "GET", "/v1/state?at=%31%30%30%30").status, 404);
    EXPECT_EQ(served.finish(), 0);
}

// A hundred who follow and do not read, half requests, and one who asks.
TEST(LiveRun, SlowClientsSlowNobody) {
    tcServed served("--serve 0 " + kObey);
    const std::string host = "Host: localhost:" + std::to_string(served.port()) + "\r\n\r\n";
    std::vector<std::unique_ptr<tcConnection>> clients;
    for (int at = 0; at < 50; ++at) {
        clients.push_back(std::make_unique<tcConnection>(served.port()));
        clients.back()->send("GET /v1/stream?from=0 HTTP/1.1\r\n" + host);
        clients.push_back(std::make_unique<tcConnection>(served.port()));
        clients.back()->send("GET /v1/state HTTP/1.1\r\nHost: loc");
    }
    for (int at = 0; at < 5; ++at) {
        EXPECT_EQ(served.tell("flags").substr(0, 5), "flags");
    }
    EXPECT_EQ(ask(served.port(), "GET", "/v1").status, 200);
    clients.clear();
    EXPECT_EQ(ask(served.port(), "GET", "/v1").status, 200);
    EXPECT_EQ(served.finish(), 0);
}

TEST(LiveRun, SaysWhatIsWrongWithTheAddress) {
    const auto complaint = [](const std::string& arguments) {
        tcServed served(arguments + " -- true");
        const std::string text = std::to_string(served.port());
        return std::to_string(served.finish()) + " " + text;
    };
    EXPECT_EQ(complaint("--serve 65536"), "2 0");
    EXPECT_EQ(complaint("--serve x"), "2 0");
    EXPECT_EQ(complaint("--serve ::1:80"), "2 0");
    EXPECT_EQ(complaint("--serve 0 --stopped --time real"), "2 0");
    EXPECT_EQ(complaint("--keep-serving"), "2 0");
    tcServed first("--serve 0 " + kObey);
    EXPECT_EQ(complaint("--serve " + std::to_string(first.port())), "2 0");
    EXPECT_EQ(first.finish(), 0);
}

} // namespace
