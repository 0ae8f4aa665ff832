// The sweep (`zanvrrp-sim script --sweep`): it counts the fallible calls a script makes, fails
// each of them in turn, ignores what the script expects, re-enters the library as its modes say,
// and reports every kind of breakage a run can show: a block left (held at the end, or lost on a
// handle that the library's end freed with it), a timer, message buffer, memory handle or
// registration left, a platform misuse, a crash, a hang. The breakages are made on purpose
// through the sweep's sabotage seam, so that a sweep that checks nothing cannot pass.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "runner.h"
#include "sweep.h"

namespace {

std::string WriteScript(const std::string &text)
{
    static int n = 0;
    std::string path = ::testing::TempDir() + "sweep_" +
                       ::testing::UnitTest::GetInstance()->current_test_info()->name() + std::to_string(++n) + ".zvs";
    std::ofstream(path) << text;
    return path;
}

uint32_t Calls(const sim::CaseOutcome &o, host::FailKind k)
{
    return o.calls[static_cast<std::size_t>(k)];
}

// An adapter, an instance registered, two items subscribed and acknowledged, the instance
// taken down and up again, and an expectation that never holds.
const char *const kScript =
    "get\n"
    "callbacks all\n"
    "deploy create pid=0x10 ifgroup=1\n"
    "recv pid=0x10 type=7 ack\n"
    "subscribe ifgroup=1 keytype=1 key=0100000001 subtype=2 sub=01\n"
    "subscribe ifgroup=1 keytype=1 key=0200000001 subtype=2 sub=01\n"
    "flush\n"
    "recv pid=0x10 type=9 ack\n"
    "expect adp WorkOn=7\n"
    "down pid=0x10\n"
    "up pid=0x10\n"
    "recv pid=0x10 type=7 ack\n"
    "advance 6000\n";

sim::SweepOptions Plain()
{
    sim::SweepOptions opt;
    opt.modes = {sim::Reentry::Plain};
    return opt;
}

TEST(Sweep, CountsEveryFallibleCallOfAScript)
{
    std::ostringstream out;
    const sim::CaseOutcome o = sim::RunCase(WriteScript("get\n"), sim::SweepCase{}, sim::Sabotage::None, out, false);
    EXPECT_TRUE(o.ok) << o.what;
    // The adapter: its block, its memory handle, the framework's adapter, two message
    // handlers, two configuration callbacks and the diagnostic command; nothing else.
    sim::CallCounts want{};
    want[static_cast<std::size_t>(host::FailKind::Malloc)] = 1;
    want[static_cast<std::size_t>(host::FailKind::MemInit)] = 1;
    want[static_cast<std::size_t>(host::FailKind::AdpInit)] = 1;
    want[static_cast<std::size_t>(host::FailKind::RegMsg)] = 2;
    want[static_cast<std::size_t>(host::FailKind::RegCfg)] = 2;
    want[static_cast<std::size_t>(host::FailKind::RegInner)] = 1;
    EXPECT_EQ(o.calls, want);

    // One counting run, then every call once alone and once with all later calls of its kind.
    const sim::SweepFileResult r = sim::SweepFile(WriteScript("get\n"), Plain());
    EXPECT_EQ(r.cases, 1u + 2u * 8u);
    EXPECT_EQ(r.failed, 0u);
}

TEST(Sweep, SkipsExpectationsButRunsEverythingElse)
{
    const std::string path = WriteScript(kScript);
    std::ostringstream out;
    // The script as a conformance script fails at its expectation...
    std::string failure;
    {
        sim::Runner runner(out, false);
        EXPECT_FALSE(runner.RunFile(path, failure));
    }
    EXPECT_NE(failure.find(":9: expected adp WorkOn=7"), std::string::npos) << failure;
    // ...and as a sweep run survives, having made the calls of the steps after it too.
    const sim::CaseOutcome o = sim::RunCase(path, sim::SweepCase{}, sim::Sabotage::None, out, false);
    EXPECT_TRUE(o.ok) << o.what;
    EXPECT_GE(Calls(o, host::FailKind::Send), 4u);  // Register twice, Subscribe, AddProducer at least
    EXPECT_GE(Calls(o, host::FailKind::Timer), 3u);
}

TEST(Sweep, AFailureTheLibraryLeaksIsReportedWithItsCase)
{
    sim::SweepOptions opt = Plain();
    opt.sabotage = sim::Sabotage::Leak;
    opt.keepFailures = 0;
    const sim::SweepFileResult r = sim::SweepFile(WriteScript(kScript), opt);
    ASSERT_GT(r.failed, 0u);
    ASSERT_EQ(r.failures.size(), r.failed);
    // The counting run fails nothing and so leaks nothing; the first failure is the first
    // allocation failed alone.
    const sim::SweepFailure &f = r.failures.front();
    EXPECT_EQ(sim::CaseId(f.c), "malloc:0:one:plain");
    EXPECT_NE(f.what.find("1 block(s) held on the framework handle: sweep-sabotage:1 x1 (24 bytes)"),
              std::string::npos)
        << f.what;
    EXPECT_NE(f.what.find("[first failure injected at line 1]"), std::string::npos) << f.what;
    // Every case fails but the counting run, which fails nothing, and those where allocations
    // keep failing (the leaking one among them).
    ASSERT_EQ(r.counts.size(), 1u);
    EXPECT_EQ(r.failed, r.cases - 1u - r.counts[0].second[static_cast<std::size_t>(host::FailKind::Malloc)]);
    for (const sim::SweepFailure &x : r.failures) {
        EXPECT_FALSE(x.c.kind == host::FailKind::Malloc && x.c.rest) << sim::CaseId(x.c);
    }
}

TEST(Sweep, LostBlocksMisuseTimersBuffersHandlesRegistrationsCrashesAndHangsAreReported)
{
    const std::string path = WriteScript(kScript);
    const struct {
        sim::Sabotage s;
        const char *what;  // found in the first failure's description
    } cases[] = {
        {sim::Sabotage::Misuse, "platform misuse: MSG_Free of unknown buffer for pid 0"},
        // a block the library would lose on its own handle: ending the handle frees it, unseen
        // by any count of blocks held afterwards
        {sim::Sabotage::Lost,
         "1 block(s) still held on a memory handle when the library ended it: sweep-sabotage:2 x1 (40 bytes)"},
        {sim::Sabotage::Timer, "timer(s) still running: 1234 ms"},
        {sim::Sabotage::Buffer, "1 message buffer(s) neither sent nor freed"},
        {sim::Sabotage::Handle, "not finalised"},
        {sim::Sabotage::Reg, "registration(s) left: message class 30583"},
        {sim::Sabotage::Crash, ""},
        {sim::Sabotage::Hang, "hangs: no end after 1 s"},
    };
    for (const auto &c : cases) {
        sim::SweepOptions opt = Plain();
        opt.sabotage = c.s;
        opt.kinds = {host::FailKind::RegCfg};  // two calls, four cases: short even when each hangs
        opt.caseTimeoutSec = 1;
        const sim::SweepFileResult r = sim::SweepFile(path, opt);
        EXPECT_EQ(r.cases, 5u);
        ASSERT_EQ(r.failed, 4u) << static_cast<int>(c.s);
        const std::string &what = r.failures.front().what;
        EXPECT_EQ(sim::CaseId(r.failures.front().c), "regcfg:0:one:plain");
        if (c.s == sim::Sabotage::Crash) {
            // A signal, or the sanitizer's report of it, with where it happened.
            EXPECT_TRUE(what.rfind("crashed: signal", 0) == 0 || what.rfind("sanitizer report", 0) == 0) << what;
            EXPECT_NE(what.find('\n'), std::string::npos) << what;
        } else {
            EXPECT_NE(what.find(c.what), std::string::npos) << what;
        }
    }
}

// The ended adapter's context stays in the slot with its registrations; one of them that still
// acts when run after the end (made so by replacing the adapter's handler) is reported.
TEST(Sweep, ARegistrationOfTheEndedAdapterThatStillActsIsReported)
{
    const std::string path = WriteScript(kScript);
    sim::SweepOptions opt = Plain();
    opt.sabotage = sim::Sabotage::Acts;
    opt.kinds = {host::FailKind::Timer};
    const sim::SweepFileResult r = sim::SweepFile(path, opt);
    ASSERT_GT(r.failed, 0u);
    const std::string &what = r.failures.front().what;
    EXPECT_NE(what.find("a registration of the ended adapter still acts"), std::string::npos) << what;
    EXPECT_EQ(what.find("registration(s) left"), std::string::npos) << what;
}

TEST(Sweep, ReentryModesCallTheLibraryFromTheCallbacks)
{
    const std::string path = WriteScript(kScript);
    std::ostringstream out;
    sim::SweepCase c;
    const sim::CaseOutcome plain = sim::RunCase(path, c, sim::Sabotage::None, out, false);
    // pfnItemDown subscribes the two items again: two more items, and a Subscribe request more.
    c.mode = sim::Reentry::ItemDown;
    const sim::CaseOutcome down = sim::RunCase(path, c, sim::Sabotage::None, out, false);
    EXPECT_TRUE(down.ok) << down.what;
    EXPECT_GT(Calls(down, host::FailKind::Malloc), Calls(plain, host::FailKind::Malloc));
    EXPECT_GT(Calls(down, host::FailKind::Send), Calls(plain, host::FailKind::Send));
    // pfnRegAck subscribes an item of its own.
    c.mode = sim::Reentry::Feed;
    const sim::CaseOutcome feed = sim::RunCase(path, c, sim::Sabotage::None, out, false);
    EXPECT_TRUE(feed.ok) << feed.what;
    EXPECT_GT(Calls(feed, host::FailKind::Malloc), Calls(plain, host::FailKind::Malloc));
    // pfnMsgAllocFail turns the work state off: the instance goes down, its two items with it.
    c.mode = sim::Reentry::AllocFail;
    c.kind = host::FailKind::MsgAlloc;
    c.index = 2;  // the first allocation after the registration's acknowledgement
    const sim::CaseOutcome fail = sim::RunCase(path, c, sim::Sabotage::None, out, false);
    c.mode = sim::Reentry::Plain;
    const sim::CaseOutcome failPlain = sim::RunCase(path, c, sim::Sabotage::None, out, false);
    EXPECT_TRUE(fail.ok) << fail.what;
    EXPECT_NE(fail.calls, failPlain.calls);
}

TEST(Sweep, AReentryCaseIsRunWhenItsPlainCaseSawAnEventTheModeActsOn)
{
    // Only pfnMsgAllocFail would make the allocfail mode differ, and only a failed message
    // allocation calls it: of that mode's cases only the msgalloc ones run.
    sim::SweepOptions opt;
    opt.modes = {sim::Reentry::Plain, sim::Reentry::AllocFail};
    const std::string path = WriteScript(kScript);
    const sim::SweepFileResult r = sim::SweepFile(path, opt);
    EXPECT_EQ(r.failed, 0u);
    ASSERT_EQ(r.counts.size(), 2u);
    const sim::CallCounts &n = r.counts[0].second;
    uint64_t all = 0;
    for (uint32_t k : n) {
        all += k;
    }
    all -= n[static_cast<std::size_t>(host::FailKind::Copy)];  // not swept unless named
    EXPECT_GT(n[static_cast<std::size_t>(host::FailKind::Copy)], 0u);
    const uint64_t msgalloc = n[static_cast<std::size_t>(host::FailKind::MsgAlloc)];
    EXPECT_EQ(r.cases, 2u + 2u * all + 2u * msgalloc);
    EXPECT_EQ(r.same, 2u * (all - msgalloc));
}

TEST(Sweep, CommandLineExitStatusAndReport)
{
    const std::string path = WriteScript("get\ncallbacks all\ndeploy create pid=0x10 ifgroup=1\n");
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(sim::SweepMain({"--sweep", "--modes", "plain", path}, out, err), 0) << out.str() << err.str();
    EXPECT_NE(out.str().find("ok sweep " + path + ": "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("\n1 passed, 0 failed\n"), std::string::npos) << out.str();

    out.str("");
    EXPECT_EQ(sim::SweepMain({"--sweep", "--modes", "plain", "--sabotage", "timer", path}, out, err), 1);
    EXPECT_NE(out.str().find("FAIL sweep " + path + ": "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("  malloc #0 one, plain: timer(s) still running: 1234 ms"), std::string::npos)
        << out.str();
    EXPECT_NE(out.str().find("    again: zanvrrp-sim script --sweep --case malloc:0:one:plain --verbose " + path),
              std::string::npos)
        << out.str();
    EXPECT_NE(out.str().find("\n0 passed, 1 failed\n"), std::string::npos) << out.str();

    EXPECT_EQ(sim::SweepMain({"--sweep", "--modes", "bogus", path}, out, err), 2);
    EXPECT_EQ(sim::SweepMain({"--sweep", "--case", "malloc:0:sometimes:plain", path}, out, err), 2);
    ASSERT_TRUE(sim::ParseCaseId("send:3:on:itemdown"));
    EXPECT_EQ(sim::CaseId(*sim::ParseCaseId("send:3:on:itemdown")), "send:3:on:itemdown");
}

}  // namespace
