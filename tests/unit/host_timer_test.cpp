// The host's loop timers on the virtual clock: expiry times, ordering of equal times, and
// timers stopped or started from inside a callback.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace {

struct Fire {
    std::string name;
    uint64_t at;
    bool operator==(const Fire &o) const { return name == o.name && at == o.at; }
};

std::ostream &operator<<(std::ostream &os, const Fire &f)
{
    return os << f.name << "@" << f.at;
}

struct Probe;
using Action = void (*)(Probe &self);

// What a timer's parameter points at: a name, its handle, and an action run at each expiry.
struct Probe {
    std::string name;
    std::vector<Fire> *log = nullptr;
    uint32_t handle = 0;
    Action action = nullptr;
    Probe *peer = nullptr;
    uint32_t gotHandle = 0;
    ZAN_COMP_CTX_S *gotCtx = nullptr;
};

void OnTimer(void *pParam, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    Probe &p = *static_cast<Probe *>(pParam);
    p.gotHandle = ulTmrVal;
    p.gotCtx = pCompCtx;
    p.log->push_back(Fire{p.name, host::Now()});
    if (p.action != nullptr) {
        p.action(p);
    }
}

class HostTimerTest : public ::testing::Test {
protected:
    void SetUp() override { host::Reset(); }

    Probe Make(const std::string &name)
    {
        Probe p;
        p.name = name;
        p.log = &log;
        return p;
    }

    uint32_t Start(Probe &p, uint32_t period)
    {
        p.handle = ZAN_Frame_StartLoopTmr(host::Ctx(), OnTimer, period, &p);
        return p.handle;
    }

    std::vector<Fire> log;
};

TEST_F(HostTimerTest, LoopTimerFiresAtStartPlusMultiplesOfItsPeriod)
{
    Probe a = Make("a");
    host::Advance(30);
    ASSERT_NE(Start(a, 100), 0u);
    host::Advance(250);
    EXPECT_EQ(host::Now(), 280u);
    host::Advance(50);
    EXPECT_EQ(log, (std::vector<Fire>{{"a", 130}, {"a", 230}, {"a", 330}}));
    EXPECT_EQ(a.gotHandle, a.handle);
    EXPECT_EQ(a.gotCtx, host::Ctx());
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostTimerTest, EqualTimesFireInStartOrder)
{
    Probe slow = Make("slow");
    Probe fast = Make("fast");
    Probe last = Make("last");
    ASSERT_NE(Start(slow, 200), 0u);
    ASSERT_NE(Start(fast, 100), 0u);
    ASSERT_NE(Start(last, 200), 0u);
    host::Advance(400);
    EXPECT_EQ(log, (std::vector<Fire>{{"fast", 100},
                                      {"slow", 200},
                                      {"fast", 200},
                                      {"last", 200},
                                      {"fast", 300},
                                      {"slow", 400},
                                      {"fast", 400},
                                      {"last", 400}}));
}

TEST_F(HostTimerTest, HandlesAreUniqueAndPeriodsListed)
{
    Probe a = Make("a");
    Probe b = Make("b");
    Probe c = Make("c");
    ASSERT_NE(Start(a, 500), 0u);
    ASSERT_NE(Start(b, 100), 0u);
    ASSERT_NE(Start(c, 500), 0u);
    EXPECT_NE(a.handle, b.handle);
    EXPECT_NE(b.handle, c.handle);
    EXPECT_NE(a.handle, c.handle);
    EXPECT_EQ(host::RunningTimerPeriods(), (std::vector<uint32_t>{100, 500, 500}));
    std::vector<uint32_t> handles = {a.handle, b.handle, c.handle};
    std::sort(handles.begin(), handles.end());
    EXPECT_EQ(host::RunningTimerHandles(), handles);
    EXPECT_EQ(host::TimerPeriod(b.handle), 100u);
    ZAN_Frame_StopTmr(host::Ctx(), b.handle);
    EXPECT_EQ(host::TimerPeriod(b.handle), 0u);
    EXPECT_EQ(host::RunningTimerPeriods(), (std::vector<uint32_t>{500, 500}));
    handles.erase(std::find(handles.begin(), handles.end(), b.handle));
    EXPECT_EQ(host::RunningTimerHandles(), handles);
    EXPECT_EQ(host::Faults(), 0u);
    ZAN_Frame_StopTmr(host::Ctx(), b.handle);   // already stopped
    EXPECT_EQ(host::Faults(), 1u);
}

TEST_F(HostTimerTest, TimerStoppedInsideACallbackDoesNotFireAgain)
{
    struct Case {
        const char *name;
        bool selfStop;
        std::vector<Fire> expected;
    };
    const Case cases[] = {
        // a stops itself at its first expiry.
        {"itself", true, {{"a", 100}, {"b", 100}, {"b", 200}}},
        // a stops b, which is due at the same time and started after it.
        {"a peer due at the same time", false, {{"a", 100}, {"a", 200}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        host::Reset();
        log.clear();
        Probe a = Make("a");
        Probe b = Make("b");
        a.peer = c.selfStop ? &a : &b;
        a.action = [](Probe &self) {
            if (self.peer->handle != 0u) {
                ZAN_Frame_StopTmr(host::Ctx(), self.peer->handle);
                self.peer->handle = 0;
            }
        };
        ASSERT_NE(Start(a, 100), 0u);
        ASSERT_NE(Start(b, 100), 0u);
        host::Advance(200);
        EXPECT_EQ(log, c.expected);
        EXPECT_EQ(host::Faults(), 0u);
    }
}

TEST_F(HostTimerTest, TimerStartedInsideACallbackFiresInTheSameAdvance)
{
    Probe a = Make("a");
    Probe b = Make("b");
    b.log = &log;
    a.peer = &b;
    a.action = [](Probe &self) {
        if (self.peer->handle == 0u) {
            self.peer->handle = ZAN_Frame_StartLoopTmr(host::Ctx(), OnTimer, 30, self.peer);
        }
    };
    ASSERT_NE(Start(a, 100), 0u);
    host::Advance(170);
    EXPECT_EQ(log, (std::vector<Fire>{{"a", 100}, {"b", 130}, {"b", 160}}));
    EXPECT_EQ(host::Now(), 170u);
}

TEST_F(HostTimerTest, ArmedTimerFailureStartsNothing)
{
    Probe a = Make("a");
    host::ArmFail(host::FailKind::Timer, 0, 1);
    EXPECT_EQ(Start(a, 100), 0u);
    EXPECT_TRUE(host::RunningTimerPeriods().empty());
    host::Advance(1000);
    EXPECT_TRUE(log.empty());
    EXPECT_NE(Start(a, 100), 0u);
}

TEST_F(HostTimerTest, ResetDropsTimersAndClock)
{
    Probe a = Make("a");
    ASSERT_NE(Start(a, 100), 0u);
    host::Advance(50);
    host::Reset();
    EXPECT_EQ(host::Now(), 0u);
    EXPECT_TRUE(host::RunningTimerPeriods().empty());
    EXPECT_TRUE(host::RunningTimerHandles().empty());
    host::Advance(1000);
    EXPECT_TRUE(log.empty());
}

}  // namespace
