// What the library's tests and scripts take from the host platform unchecked: memory, failure
// injection, messages, loop timers, the instance scan, Reset, basic functions, diagnostic text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace {

std::vector<std::string> g_log;   // what callbacks saw, in order

class HostTest : public ::testing::Test {
protected:
    void SetUp() override { host::Reset(); g_log.clear(); }
    void TearDown() override { host::Reset(); }   // nothing a test holds reaches the leak checker
};

uint32_t Fw() { return host::Ctx()->ulFwMemHandle; }
void *Malloc(uint32_t handle, uint32_t size) { return KOL_Malloc_F(handle, g_aucKolMemPt[0], size, "t", 7); }
void *MsgAlloc(uint32_t pid, uint32_t n) { return KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, pid, n, "t", 1); }
void NoTimer(void *, uint32_t, ZAN_COMP_CTX_S *) {}
uint32_t NoMsg(void *, void *) { return 0; }
uint32_t NoCfg(void *, const void *) { return 0; }
uint32_t NoInner(ZAN_INNERDATA_REQ_S *, ZAN_CLI_CMD_S *, void *) { return 0; }

TEST_F(HostTest, FinalizeTakesTheHandlesBlocksAndUnknownFreesAreFaults)
{
    uint32_t h = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    void *a = Malloc(h, 32);
    void *b = Malloc(h, 8);
    ASSERT_TRUE(a != nullptr && b != nullptr && Malloc(Fw(), 8) != nullptr);
    KOL_Free_F(a, "t", 1);
    KOL_HandleFinalize(h);   // takes b with it
    EXPECT_TRUE(host::BlocksOn(h) == 0u && host::BlocksOn(Fw()) == 1u && host::Faults() == 0u);
    int onStack = 0;
    for (void *unknown : {a, b, static_cast<void *>(&onStack), static_cast<void *>(nullptr)}) {
        KOL_Free_F(unknown, "free_site", 42);
        EXPECT_NE(host::FaultLog().back().find("free_site:42"), std::string::npos);
    }
    EXPECT_TRUE(host::Faults() == 4u && Malloc(h, 8) == nullptr);   // the ended handle gives nothing
}

// One call of each fallible kind; true when it succeeded.
const struct { host::FailKind kind; bool (*call)(); } kKindCalls[] = {
    {host::FailKind::Malloc, [] { return Malloc(Fw(), 8) != nullptr; }},
    {host::FailKind::MsgAlloc, [] { return MsgAlloc(0x10, 4) != nullptr; }},
    {host::FailKind::Timer, [] { return ZAN_Frame_StartLoopTmr(host::Ctx(), NoTimer, 100, nullptr) != 0u; }},
    {host::FailKind::Send, [] { return KOL_SEND_MSG(0x10, 0, 0, MsgAlloc(0x10, 4), 4) == 0u; }},
    {host::FailKind::MemInit, [] { uint32_t h = 0; return KOL_HandleInitialize(0x100, 1, &h) == 0u; }},
    {host::FailKind::RegMsg, [] { return ZAN_Frame_RegMsgProc(host::Ctx(), 0x40, NoMsg, nullptr, nullptr) == 0u; }},
    {host::FailKind::RegCfg, [] { return ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 1, 2, 4, NoCfg, 0) == 0u; }},
    {host::FailKind::RegInner, [] { return ZAN_InnerData_RegCallBack(host::Ctx(), "c", NoInner, nullptr) == 0u; }},
};

TEST_F(HostTest, FailureInjectionSkipsThenFailsCountTimesAndFailedCallsHoldNothing)
{
    const struct { uint32_t skip, count; std::string pattern; } arms[] = {
        {0, 1, "F....."}, {2, 1, "..F..."}, {1, 3, ".FFF.."}, {0, 0, "......"}};
    for (const auto &k : kKindCalls) {
        for (const auto &a : arms) {
            SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(k.kind) << " " << a.pattern);
            host::Reset();
            host::ArmFail(k.kind, a.skip, a.count);
            std::string got;
            while (got.size() < a.pattern.size()) {
                const auto failed = static_cast<uint32_t>(std::count(got.begin(), got.end(), 'F'));
                EXPECT_EQ(host::FailArmed(k.kind), failed < a.count);
                got += k.call() ? '.' : 'F';
            }
            EXPECT_EQ(got, a.pattern);
            // Only successful allocations and timer starts (kinds up to Timer) hold something; a
            // send takes its buffer.
            const size_t held = host::BlocksOn(Fw()) + host::MsgsOutstanding() + host::RunningTimerHandles().size();
            const auto succeeded = static_cast<size_t>(std::count(got.begin(), got.end(), '.'));
            EXPECT_EQ(held, k.kind <= host::FailKind::Timer ? succeeded : 0u);
            EXPECT_EQ(host::Faults(), 0u);
        }
    }
    uint32_t h = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    host::ArmFail(host::FailKind::Malloc, 1, 2, h);   // calls on other handles neither fail nor count
    std::string got;
    for (uint32_t handle : {Fw(), h, Fw(), h, h, Fw(), h}) {
        got += Malloc(handle, 8) != nullptr ? '.' : 'F';
    }
    EXPECT_EQ(got, "...FF..");
}

TEST_F(HostTest, SendTakesTheBufferWhateverTheResultAndUnknownBuffersAreFaults)
{
    auto *p = static_cast<uint8_t *>(MsgAlloc(0x10, 8));
    void *failed = MsgAlloc(0x20, 4);
    ASSERT_TRUE(p != nullptr && failed != nullptr);
    std::memcpy(p, "\x01\x02\x03", 3);
    host::ArmFail(host::FailKind::Send, 1, 1);
    EXPECT_TRUE(KOL_SEND_MSG(0x10, 0, 0, p, 3) == 0u && KOL_SEND_MSG(0x20, 0, 0, failed, 4) != 0u);
    ASSERT_TRUE(host::MsgsOutstanding() == 0u && host::Sent().size() == 1u && host::Faults() == 0u);
    EXPECT_TRUE(host::Sent().front().pid == 0x10u && host::Sent().front().bytes == std::vector<uint8_t>({1, 2, 3}));
    static uint8_t local[8];
    EXPECT_NE(KOL_SEND_MSG(0x10, 0, 0, local, 4), 0u);
    MSG_Free(0x10, local);
    MSG_Free(0x10, p);   // sent already
    EXPECT_EQ(MSG_DataSizeGet(local), 0u);   // not a received buffer
    EXPECT_TRUE(host::Faults() == 4u && host::MsgsOutstanding() == 0u);
}

uint32_t g_tmr[3];   // timers a, b, c; a stops itself, b stops c (due with it, started after it)

void OnTimer(void *pParam, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    const auto i = reinterpret_cast<uintptr_t>(pParam);
    EXPECT_TRUE(ulTmrVal == g_tmr[i] && pCompCtx == host::Ctx());
    g_log.push_back(std::string(1, static_cast<char>('a' + i)) + "@" + std::to_string(host::Now()));
    if (const uintptr_t stops = i == 0 ? 0 : 2; i != 2 && g_tmr[stops] != 0u) {
        ZAN_Frame_StopTmr(host::Ctx(), g_tmr[stops]);
        g_tmr[stops] = 0;
    }
}

TEST_F(HostTest, LoopTimersFireInTimeThenStartOrderUntilStopped)
{
    host::Advance(30);
    const uint32_t periods[] = {100, 200, 50};
    for (uintptr_t i = 0; i < 3; i++) {
        ASSERT_NE(g_tmr[i] = ZAN_Frame_StartLoopTmr(host::Ctx(), OnTimer, periods[i], reinterpret_cast<void *>(i)), 0u);
    }
    const uint32_t c = g_tmr[2];
    host::Advance(180);   // an expiry stays due across calls of Advance
    host::Advance(240);
    EXPECT_EQ(g_log, (std::vector<std::string>{"c@80", "a@130", "c@130", "c@180", "b@230", "b@430"}));
    EXPECT_TRUE(host::RunningTimerHandles() == std::vector<uint32_t>{g_tmr[1]} && host::Faults() == 0u);
    ZAN_Frame_StopTmr(host::Ctx(), c);   // already stopped
    EXPECT_EQ(host::Faults(), 1u);
}

TEST_F(HostTest, ScanVisitsEveryInstanceInPidOrderAndAnswersTheFirstNonZero)
{
    ZAN_COMP_ADP_S adp{};
    ZAN_COMP_INST_S insts[3]{};
    ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
    const uint32_t pids[] = {0x30, 0x10, 0x20};
    for (size_t n = 0; n < 3; n++) {
        ASSERT_EQ(ZAN_CompInst_Init(&insts[n], pids[n], host::Ctx(), 5) + ZAN_CompAdp_AddInst(&adp, &insts[n]), 0u);
    }
    EXPECT_EQ(ZAN_CompAdp_ScanInstTbl(&adp, [](void *p) {   // 0x10 answers 0, the others their pid
                  const uint32_t pid = static_cast<ZAN_COMP_INST_S *>(p)->ulPid;
                  g_log.push_back(std::to_string(pid));
                  return pid == 0x10u ? 0u : pid;
              }),
              0x20u);
    EXPECT_EQ(g_log, (std::vector<std::string>{"16", "32", "48"}));
}

TEST_F(HostTest, ResetReturnsTheWorldToItsStart)
{
    ZAN_COMP_ADP_S adp{};
    ZAN_COMP_INST_S inst{};
    ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
    ASSERT_TRUE(ZAN_CompInst_Init(&inst, 0x10, host::Ctx(), 5) == 0u && ZAN_CompAdp_AddInst(&adp, &inst) == 0u);
    for (const auto &k : kKindCalls) {
        ASSERT_TRUE(k.call());
    }
    host::Advance(50);
    KOL_Assert("x", 1, 1);
    KOL_Free_F(nullptr, "x", 1);
    *host::Ctx() = ZAN_COMP_CTX_S{9, 9, 9, 1, 9, 9, &adp, {9}};
    host::ArmFail(host::FailKind::Malloc, 0, 1);
    host::Reset();
    const ZAN_COMP_CTX_S &ctx = *host::Ctx();
    EXPECT_TRUE(ctx.ulHandle == 1u && ctx.ulCid == 0x100u && ctx.usCompKind == 0x21u && ctx.usStartInhibit == 0u);
    EXPECT_TRUE(ctx.pAdpSlot == nullptr && host::LastCreatedHandle() == 0u && host::MsgsOutstanding() == 0u);
    EXPECT_TRUE(host::InstPids().empty() && !host::DeliverCfg(1, 2, {0}) && host::Sent().empty());
    EXPECT_TRUE(host::Now() == 0u && host::RunningTimerHandles().empty() && !host::RunCli("c", "", {}, 0).registered);
    EXPECT_TRUE(host::Asserts().empty() && host::Faults() == 0u && !host::FailArmed(host::FailKind::Malloc));
    EXPECT_TRUE(host::BlocksOn(Fw()) == 0u && Malloc(Fw(), 8) != nullptr);   // the component's handle works again
}

TEST_F(HostTest, StrToUint32AcceptsDecimalOrHexThatFits)
{
    const std::pair<const char *, int64_t> cases[] = {   // -1: refused, the output untouched
        {"0", 0}, {"0010", 10}, {"4294967295", ~0u}, {"0x10", 0x10}, {"0xABCdef", 0xABCDEF}, {"0xffffffff", ~0u},
        {"", -1}, {"12ab", -1}, {"4294967296", -1}, {"99999999999999999999", -1}, {"0x", -1}, {"0x100000000", -1},
        {"0x1g", -1}, {"0X10", -1}, {"-1", -1}, {" 1", -1}, {"1 ", -1}, {nullptr, -1}};
    for (const auto &[text, value] : cases) {
        uint32_t out = 7;
        EXPECT_EQ(WUX_StrToUint32(text, &out) == 0u, value >= 0) << (text != nullptr ? text : "NULL");
        EXPECT_EQ(out, value >= 0 ? value : 7) << (text != nullptr ? text : "NULL");
    }
    EXPECT_NE(WUX_StrToUint32("1", nullptr), 0u);
}

TEST_F(HostTest, MemcpySAndMemsetSStayInBounds)
{
    char d[8];
    auto run = [&d](auto call) {   // the result and the 8 bytes of d afterwards
        std::memset(d, '.', sizeof(d));
        const bool ok = call() == 0u;
        return std::make_pair(ok, std::string(d, sizeof(d)));
    };
    using R = std::pair<bool, std::string>;
    EXPECT_EQ(run([&] { return memcpy_s(d, 8, "ABCDEFGH", 3); }), R(true, "ABC....."));
    EXPECT_EQ(run([&] { return memcpy_s(d, 5, "ABCDEFGH", 6); }), R(false, std::string("\0\0\0\0\0...", 8)));   // zeroed
    EXPECT_EQ(run([&] { return memcpy_s(d, 8, nullptr, 4); }), R(false, "........"));
    EXPECT_EQ(run([&] { return memcpy_s(nullptr, 8, "ABCDEFGH", 4); }), R(false, "........"));
    EXPECT_EQ(run([&] { return memset_s(d, 3, 'x', 3); }), R(true, "xxx....."));
    EXPECT_EQ(run([&] { return memset_s(d, 4, 'x', 5); }), R(false, "........"));
    EXPECT_EQ(run([&] { return memset_s(nullptr, 8, 'x', 4); }), R(false, "........"));
}

TEST_F(HostTest, InnerDataOutputStaysInsideTheTextArea)
{
    const uint32_t max = ZAN_INNERDATA_TEXT_MAX;
    const std::string huge(5000, 'y');
    std::vector<char> area(max + 64u, 'g');   // guard bytes after the area
    EXPECT_EQ(ZAN_InnerData_Output(area.data(), 0, "%s", "pid[0x10]"), 9u);
    EXPECT_EQ(std::string(area.data()), "pid[0x10]");
    EXPECT_EQ(ZAN_InnerData_Output(area.data(), 3000, "%s", huge.c_str()), max - 1u - 3000u);   // cut
    EXPECT_EQ(std::string(area.data() + 3000), huge.substr(0, max - 1u - 3000u));   // and zero-terminated
    const std::vector<char> before = area;
    EXPECT_EQ(ZAN_InnerData_Output(area.data(), max - 1u, "y"), 0u);   // no room: nothing written
    EXPECT_EQ(ZAN_InnerData_Output(area.data(), max + 10u, "y"), 0u);
    EXPECT_EQ(area, before);
    EXPECT_TRUE(std::all_of(area.begin() + max, area.end(), [](char v) { return v == 'g'; }));
}

}  // namespace
