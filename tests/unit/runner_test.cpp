// The script runner run on small scripts: platform misuse fails the step that caused it,
// reactions are wired to every callback with their filters and limits, and malformed `on`
// lines are script errors at their line.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "host/host_world.h"
#include "recorder.h"
#include "runner.h"

namespace {

std::string WriteScript(const std::string &text)
{
    const ::testing::TestInfo *info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "_" + info->name() + ".zvs";
    for (char &c : name) {
        if (c == '/') {
            c = '_';
        }
    }
    std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

// ---- platform misuse ----

const char *const kMisuseScript =
    "get\n"                                   // 1
    "callbacks all\n"                         // 2
    "deploy create pid=0x10 ifgroup=1\n"      // 3
    "expect blocks msgs=0\n"                  // 4
    "recv pid=0x10 type=7 ack\n"              // 5
    "expect event regack ifgroup=1\n";        // 6

struct MisuseCase {
    const char *name;
    uint32_t line;
    std::function<void()> misuse;
    std::string fault;
};

void PrintTo(const MisuseCase &c, std::ostream *os)
{
    *os << c.name;
}

class PlatformMisuse : public ::testing::TestWithParam<MisuseCase> {};

TEST_P(PlatformMisuse, FailsTheStepItHappenedIn)
{
    const MisuseCase &c = GetParam();
    std::string path = WriteScript(kMisuseScript);
    std::ostringstream out;
    sim::Runner runner(out, false);
    std::string failure;
    ASSERT_TRUE(runner.RunFile(path, failure)) << failure;

    runner.SetStepHook([&c](uint32_t line) {
        if (line == c.line) {
            c.misuse();
        }
    });
    EXPECT_FALSE(runner.RunFile(path, failure));
    EXPECT_EQ(failure, path + ":" + std::to_string(c.line) + ": platform misuse: " + c.fault);

    runner.SetStepHook(nullptr);
    EXPECT_TRUE(runner.RunFile(path, failure)) << failure;
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, PlatformMisuse,
    ::testing::Values(
        MisuseCase{"UnknownTimerStopped", 3, [] { ZAN_Frame_StopTmr(host::Ctx(), 0xdead); },
                   "ZAN_Frame_StopTmr of unknown timer 57005"},
        MisuseCase{"UnknownBufferFreed", 4,
                   [] {
                       uint32_t local = 0;
                       MSG_Free(0x10, &local);
                   },
                   "MSG_Free of unknown buffer for pid 16"},
        MisuseCase{"UnknownBlockFreed", 6,
                   [] {
                       uint32_t local = 0;
                       KOL_Free_F(&local, "hook.c", 12);
                   },
                   "KOL_Free_F of unknown block at hook.c:12"},
        MisuseCase{"SeveralAtOnce", 1,
                   [] {
                       ZAN_Frame_StopTmr(host::Ctx(), 7);
                       ZAN_Frame_StopTmr(host::Ctx(), 8);
                   },
                   "ZAN_Frame_StopTmr of unknown timer 7 (and 1 more)"}),
    [](const ::testing::TestParamInfo<MisuseCase> &p) { return std::string(p.param.name); });

// ---- reactions on each callback ----

// Calls the recording application's callbacks the way the library would.
const ZAN_VRRP_CALLBACK_S &Table()
{
    static const ZAN_VRRP_CALLBACK_S t = sim::Recorder::Table(true, {});
    return t;
}

void RecvData()
{
    ZAN_VRRP_TLV_S key{};
    key.usType = 3001;
    key.usLen = 1;
    key.aucValue[0] = 0x0a;
    ZAN_VRRP_TLV_S data{};
    data.usType = 1001;
    Table().pfnRecvData(&key, &data, host::Ctx()->ulHandle);
}

void ItemDown()
{
    uint8_t item[32] = {};
    Table().pfnItemDown(item, host::Ctx()->ulHandle);
}

struct ReactCase {
    const char *name;
    const char *on;                  // the `on` line
    std::function<void()> events;    // the callbacks made
    uint32_t fired;                  // how often the reaction ran
};

void PrintTo(const ReactCase &c, std::ostream *os)
{
    *os << c.name;
}

class Reactions : public ::testing::TestWithParam<ReactCase> {};

// The reaction subscribes, so Evt.Subscribe counts how often it ran.
TEST_P(Reactions, FireOnMatchingEventsUpToTheLimit)
{
    const ReactCase &c = GetParam();
    std::string path = WriteScript(std::string("get\ncallbacks all\n") + c.on +
                                   " do subscribe ifgroup=1 keytype=1 key=01 subtype=2 sub=01\n"
                                   "expect adp Evt.Subscribe=0\n"
                                   "expect adp Evt.Subscribe=" +
                                   std::to_string(c.fired) + "\n");
    std::ostringstream out;
    sim::Runner runner(out, false);
    runner.SetStepHook([&c](uint32_t line) {
        if (line == 4) {
            c.events();
        }
    });
    std::string failure;
    EXPECT_TRUE(runner.RunFile(path, failure)) << failure;
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Reactions,
    ::testing::Values(
        ReactCase{"RegAckOfOneGroup", "on regack ifgroup=1",
                  [] {
                      Table().pfnRegAck(1, 1);
                      Table().pfnRegAck(2, 1);
                      Table().pfnRegAck(1, 1);
                  },
                  2},
        ReactCase{"BatchBeginOfOneGroup", "on batchbegin ifgroup=2",
                  [] {
                      Table().pfnProdBatchBegin(1, 1);
                      Table().pfnProdBatchBegin(2, 1);
                  },
                  1},
        ReactCase{"RecvDataTwice", "on recvdata times=2",
                  [] {
                      RecvData();
                      RecvData();
                      RecvData();
                  },
                  2},
        ReactCase{"ItemDownEveryTime", "on itemdown",
                  [] {
                      ItemDown();
                      ItemDown();
                      ItemDown();
                  },
                  3},
        ReactCase{"AllocFailOfOnePid", "on allocfail pid=0x20",
                  [] {
                      Table().pfnMsgAllocFail(0x10, 1, 1);
                      Table().pfnMsgAllocFail(0x20, 1, 2);
                      Table().pfnMsgAllocFail(0x30, 1, 3);
                  },
                  1},
        ReactCase{"FcmOnceOfOnePid", "on fcm pid=0x10 times=1",
                  [] {
                      Table().pfnFcm(0x20, 1);
                      Table().pfnFcm(0x10, 1);
                      Table().pfnFcm(0x10, 1);
                  },
                  1},
        ReactCase{"OtherKindsDoNotTrigger", "on fcm",
                  [] {
                      Table().pfnRegAck(1, 1);
                      Table().pfnMsgAllocFail(0x10, 1, 1);
                      RecvData();
                      ItemDown();
                  },
                  0}),
    [](const ::testing::TestParamInfo<ReactCase> &p) { return std::string(p.param.name); });

TEST(ReactionOrder, EventIsRecordedFirstThenReactionsInTheOrderGiven)
{
    std::string path = WriteScript(
        "get\n"
        "callbacks all\n"
        "on recvdata do work off\n"
        "on recvdata do work on\n"
        "expect adp WorkOn=1\n"
        "expect adp WorkOn=1\n");
    std::ostringstream out;
    sim::Runner runner(out, true);
    runner.SetStepHook([](uint32_t line) {
        if (line == 5) {
            RecvData();
        }
    });
    std::string failure;
    ASSERT_TRUE(runner.RunFile(path, failure)) << failure;
    std::string log = out.str();
    std::size_t event = log.find("callback recvdata");
    std::size_t first = log.find("reaction of line 3");
    std::size_t second = log.find("reaction of line 4");
    ASSERT_NE(event, std::string::npos) << log;
    ASSERT_NE(first, std::string::npos) << log;
    ASSERT_NE(second, std::string::npos) << log;
    EXPECT_LT(event, first);
    EXPECT_LT(first, second);
}

// ---- malformed `on` lines ----

struct OnErrorCase {
    const char *name;
    const char *line;
    const char *error;   // empty: the line is accepted
};

void PrintTo(const OnErrorCase &c, std::ostream *os)
{
    *os << c.name;
}

class OnLines : public ::testing::TestWithParam<OnErrorCase> {};

TEST_P(OnLines, AreCheckedBeforeAnythingRuns)
{
    const OnErrorCase &c = GetParam();
    std::string path = WriteScript(std::string("# reactions\n") + c.line + "\n");
    std::ostringstream out;
    sim::Runner runner(out, false);
    std::string failure;
    bool ok = runner.RunFile(path, failure);
    if (c.error[0] == '\0') {
        EXPECT_TRUE(ok) << failure;
    } else {
        EXPECT_FALSE(ok);
        EXPECT_EQ(failure, path + ":2: " + c.error);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, OnLines,
    ::testing::Values(
        OnErrorCase{"AllFilters", "on regack ifgroup=1 times=3 do work on", ""},
        OnErrorCase{"PidOnFcm", "on fcm pid=0x10 do repeat 2 work off", ""},
        OnErrorCase{"RecvData", "on recvdata times=1 do senddata ifgroup=1 key=0a", ""},
        OnErrorCase{"ItemDown", "on itemdown do unsubscribe ifgroup=1 keytype=1 key=01 subtype=2", ""},
        OnErrorCase{"PidOnRegAck", "on regack pid=1 do work on", "pid= filters allocfail and fcm only, not regack"},
        OnErrorCase{"PidOnRecvData", "on recvdata pid=1 do work on",
                    "pid= filters allocfail and fcm only, not recvdata"},
        OnErrorCase{"IfGroupOnFcm", "on fcm ifgroup=1 do work on",
                    "ifgroup= filters regack and batchbegin only, not fcm"},
        OnErrorCase{"IfGroupOnItemDown", "on itemdown ifgroup=1 do work on",
                    "ifgroup= filters regack and batchbegin only, not itemdown"},
        OnErrorCase{"ZeroTimes", "on allocfail times=0 do work on", "times= must be at least 1"},
        OnErrorCase{"BadTimes", "on allocfail times=x do work on", "times=: bad number 'x'"},
        OnErrorCase{"PidTwice", "on fcm pid=1 pid=2 do work on", "argument 'pid=' given twice"},
        OnErrorCase{"UnknownKind", "on linkup do work on",
                    "on regack|batchbegin|recvdata|itemdown|allocfail|fcm [ifgroup=N] [pid=N] [times=N] do COMMAND, "
                    "or on clear"},
        OnErrorCase{"NoCommand", "on fcm", "on ...: 'do COMMAND' expected"},
        OnErrorCase{"NotAnApplicationCall", "on fcm do cli adp-base",
                    "a reaction runs an application call (work, subscribe, unsubscribe, senddata) or a repeat of one"}),
    [](const ::testing::TestParamInfo<OnErrorCase> &p) { return std::string(p.param.name); });

}  // namespace
