// The runner on small scripts: broken lines fail at FILE:LINE before anything runs, a failing
// expectation names its line, `on` lines follow their rules, and platform misuse fails the step
// that made it (and, in the unit tests' fixture, the test).
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "lib_fixture.h"
#include "runner.h"

namespace {

std::string WriteScript(const std::string &text)
{
    // ctest runs the tests in parallel processes: the test's name keeps their files apart.
    static int n = 0;
    std::string path = ::testing::TempDir() + "runner_" +
                       ::testing::UnitTest::GetInstance()->current_test_info()->name() + std::to_string(++n) + ".zvs";
    std::ofstream(path) << text;
    return path;
}

// Runs the script; empty when it passed, else the failure without the "FILE:" prefix.
std::string RunScript(const std::string &text, const std::function<void(uint32_t)> &hook = nullptr)
{
    std::string path = WriteScript(text);
    std::ostringstream out;
    sim::Runner runner(out, false);
    runner.SetStepHook(hook);
    std::string failure;
    if (runner.RunFile(path, failure)) {
        return "";
    }
    EXPECT_EQ(failure.rfind(path + ":", 0), 0u) << failure;
    return failure.substr(path.size() + 1);
}

TEST(Runner, FailuresNameTheirLine)
{
    const struct {
        const char *script;
        const char *failure;  // "LINE: what", empty: passes
    } cases[] = {
        // expectations that do not hold, at their line (blank and comment lines count)
        {"get\n\n# c\nexpect adp WorkOn=7\n", "4: expected adp WorkOn=7, got WorkOn=1"},
        {"get\ncallbacks all\ndeploy create pid=0x10 ifgroup=1\non regack do work on expect=9\n"
         "recv pid=0x10 type=7 ack\n",
         "4: expected ZAN_VrrpAdp_SetWorkState(1) result 9, got 0 (reaction run during line 5)"},
        // every line is checked before anything runs
        {"expect adp WorkOn=7\nbogus\n", "2: unknown command 'bogus'"},
        {"get\nexpect output\n|a\n", "2: output block without 'end'"},
        // lexing and arguments
        {"expect debug \"open", "1: text without closing quote"},
        {"expect debug \"bad \\q\"", "1: unknown escape \\q in text"},
        {"recv pid=1 : 001", "1: bad wire bytes '001' (hex digit pairs expected)"},
        {"up pid=1 pid=2", "1: argument 'pid=' given twice"},
        {"up pid=1 bogus=2", "1: unexpected argument 'bogus=2'"},
        {"up", "1: missing argument pid=N"},
        {"component cid=4294967296", "1: cid=: number '4294967296' exceeds 32 bits"},
        {"repeat 2 work {i:x}", "1: bad index pattern in '{i:x}' ({i:Wx} expected)"},
        // message forms
        {"recv pid=1", "1: message expected: type=N ... or ': BYTES'"},
        {"recv pid=1 type=3 w8=0x10000", "1: w8=65536 does not fit 16 bits"},
        {"expect sent pid=1 partial : 00", "1: 'partial' needs the fields form (type=N ...)"},
        {"expect sent pid=1 size=3 : 00", "1: unexpected argument 'size=3'"},
        {"recv pid=1 rec=0a/01 : 00 14", "1: rec= needs the fields form (type=N ...)"},
        {"recv pid=1 type=4 rec=0a", "1: rec=0a: KEY/DATA, RTYPE/KEY/DATA or RTYPE/KEY/DATA/DTYPE expected"},
        {"recv pid=1 type=4 rec=/01", "1: rec=/01: empty key"},
        {"recv pid=1 type=4 rec=0a/zz", "1: rec=0a/zz: bad hex value 'zz'"},
        {"recv pid=1 type=4 rec=0x10000/0a/01", "1: rec=0x10000/0a/01: record type 0x10000 does not fit 16 bits"},
        {"recv pid=1 type=4 rec=1/0a/01/65536", "1: rec=1/0a/01/65536: data type 65536 does not fit 16 bits"},
        // on ... do
        {"on fcm pid=0x10 times=1 do repeat 2 senddata ifgroup=1 key=0a\non clear\n", ""},
        {"on linkup do work on",
         "1: on regack|batchbegin|recvdata|itemdown|allocfail|fcm [ifgroup=N] [pid=N] [times=N] do COMMAND, or "
         "on clear"},
        {"on fcm", "1: on ...: 'do COMMAND' expected"},
        {"on fcm times=0 do work on", "1: times= must be at least 1"},
        {"on fcm do cli adp-base",
         "1: a reaction runs an application call (work, subscribe, unsubscribe, senddata) or a repeat of one"},
        {"on fcm do work on bogus=1", "1: unexpected argument 'bogus=1'"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.script);
        EXPECT_EQ(RunScript(c.script), c.failure);
    }
}

TEST(Runner, OnFiltersBelongToTheirKinds)
{
    for (const char *kind : {"regack", "batchbegin", "recvdata", "itemdown", "allocfail", "fcm"}) {
        const std::string k = kind;
        const bool byGroup = k == "regack" || k == "batchbegin";
        const bool byPid = k == "allocfail" || k == "fcm";
        EXPECT_EQ(RunScript("on " + k + " ifgroup=1 times=2 do work on\n").empty(), byGroup) << k;
        EXPECT_EQ(RunScript("on " + k + " pid=1 times=2 do work on\n").empty(), byPid) << k;
    }
    EXPECT_EQ(RunScript("on regack pid=1 do work on"), "1: pid= filters allocfail and fcm only, not regack");
    EXPECT_EQ(RunScript("on fcm ifgroup=1 do work on"), "1: ifgroup= filters regack and batchbegin only, not fcm");
}

TEST(Runner, PlatformMisuseFailsTheStepThatMadeIt)
{
    const char *script =
        "get\n"
        "callbacks all\n"
        "deploy create pid=0x10 ifgroup=1\n"
        "recv pid=0x10 type=7 ack\n"
        "expect event regack ifgroup=1\n";
    ASSERT_EQ(RunScript(script), "");
    const struct {
        uint32_t line;
        std::function<void()> misuse;
        const char *failure;
    } cases[] = {
        {3, [] { ZAN_Frame_StopTmr(host::Ctx(), 0xdead); },
         "3: platform misuse: ZAN_Frame_StopTmr of unknown timer 57005"},
        {5,
         [] {
             uint32_t local = 0;
             KOL_Free_F(&local, "hook.c", 12);
             MSG_Free(0x10, &local);
         },
         "5: platform misuse: KOL_Free_F of unknown block at hook.c:12 (and 1 more)"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(RunScript(script, [&c](uint32_t line) {
                      if (line == c.line) {
                          c.misuse();
                      }
                  }),
                  c.failure);
    }
}

TEST(Runner, FixtureFailsOnPlatformMisuse)
{
    EXPECT_NONFATAL_FAILURE(
        {
            host::Reset();
            ZAN_Frame_StopTmr(host::Ctx(), 0xdead);
            ZAN_Frame_StopTmr(host::Ctx(), 0xbeef);
            libtest::ExpectNoFaults();
        },
        "platform misuse:\n  ZAN_Frame_StopTmr of unknown timer 57005\n  ZAN_Frame_StopTmr of unknown timer 48879");
    host::Reset();
}

}  // namespace
