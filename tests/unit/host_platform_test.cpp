// The host platform's promises to the library and the script runner: memory and failure
// injection, messages, loop timers, the component framework, basic functions and diagnostics.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace {

std::vector<std::string> g_log;   // what callbacks saw, in order

class HostTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::Reset();
        g_log.clear();
    }
    // Blocks a test leaves held are released, so that the leak checker sees none at exit.
    void TearDown() override { host::Reset(); }
};

uint32_t Fw() { return host::Ctx()->ulFwMemHandle; }
void *Malloc(uint32_t handle, uint32_t size) { return KOL_Malloc_F(handle, g_aucKolMemPt[0], size, "t", 7); }
void *MsgAlloc(uint32_t pid, uint32_t len)
{
    return KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, pid, len, "t", 1);
}
bool Filled(const void *p, uint32_t len)   // not zeroed: the library must not rely on zeroing
{
    const auto *b = static_cast<const uint8_t *>(p);
    return std::all_of(b, b + len, [](uint8_t v) { return v == 0xA5u; });
}
void NoTimer(void *, uint32_t, ZAN_COMP_CTX_S *) {}
uint32_t NoMsg(void *, void *) { return 0; }
uint32_t NoCfg(void *, const void *) { return 0; }
uint32_t NoInner(ZAN_INNERDATA_REQ_S *, ZAN_CLI_CMD_S *, void *) { return 0; }

// --- Memory and failure injection ---------------------------------------------------------

TEST_F(HostTest, BlocksPerHandleFinalizeUnknownFreesAndAsserts)
{
    uint32_t h = 0;
    uint32_t other = 0;
    ASSERT_TRUE(KOL_HandleInitialize(0x100, 1, &h) == 0u && KOL_HandleInitialize(0x100, 2, &other) == 0u);
    EXPECT_EQ(host::LastCreatedHandle(), other);
    EXPECT_TRUE(h != 0u && h != other && h != Fw() && other != Fw());
    void *a = Malloc(h, 32);
    void *b = Malloc(h, 8);
    ASSERT_TRUE(a != nullptr && b != nullptr && Malloc(other, 8) != nullptr);
    EXPECT_TRUE(Filled(a, 32));
    EXPECT_EQ(host::BlocksOn(h), 2u);
    KOL_Free_F(a, "host_test", 1);
    EXPECT_EQ(host::BlocksOn(h), 1u);
    KOL_HandleFinalize(h);
    EXPECT_TRUE(host::BlocksOn(h) == 0u && host::BlocksOn(other) == 1u && host::Faults() == 0u);
    int onStack = 0;
    for (void *unknown : {a, b, static_cast<void *>(&onStack), static_cast<void *>(nullptr)}) {   // b: went with h
        const uint32_t before = host::Faults();
        KOL_Free_F(unknown, "free_site", 42);
        ASSERT_EQ(host::Faults(), before + 1u);
        EXPECT_NE(host::FaultLog().back().find("free_site:42"), std::string::npos);
    }
    EXPECT_EQ(Malloc(h, 8), nullptr);   // the ended handle gives nothing
    KOL_Assert("zan_vrrpinst", 12, 5);
    ASSERT_EQ(host::Asserts().size(), 1u);
    EXPECT_TRUE(host::Asserts()[0].file == "zan_vrrpinst" && host::Asserts()[0].line == 12u);
    EXPECT_EQ(host::Asserts()[0].value, 5u);
}

// One call of each fallible kind; true when it succeeded.
const struct {
    host::FailKind kind;
    bool (*call)();
} kKindCalls[] = {
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
    const struct {
        uint32_t skip;
        uint32_t count;
        std::string pattern;
    } arms[] = {{0, 1, "F....."}, {2, 1, "..F..."}, {1, 3, ".FFF.."}, {0, 0, "......"}};
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
            // Only successful allocations and timer starts hold something; a send takes its buffer.
            const size_t held = host::BlocksOn(Fw()) + host::MsgsOutstanding() + host::RunningTimerHandles().size();
            const bool holds = k.kind == host::FailKind::Malloc || k.kind == host::FailKind::MsgAlloc ||
                               k.kind == host::FailKind::Timer;
            EXPECT_EQ(held, holds ? static_cast<size_t>(std::count(got.begin(), got.end(), '.')) : 0u);
            EXPECT_EQ(host::Faults(), 0u);
        }
    }
}

TEST_F(HostTest, MallocFailureNarrowedToAHandle)
{
    uint32_t h = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    host::ArmFail(host::FailKind::Malloc, 1, 2, h);
    std::string got;
    for (uint32_t handle : {Fw(), h, Fw(), h, h, Fw(), h}) {   // calls on Fw() neither fail nor count
        got += Malloc(handle, 8) != nullptr ? '.' : 'F';
    }
    EXPECT_EQ(got, "...FF..");
}

// --- Messages -----------------------------------------------------------------------------

TEST_F(HostTest, SendTakesTheBufferWhateverTheResult)
{
    auto *p = static_cast<uint8_t *>(MsgAlloc(0x10, 8));
    ASSERT_TRUE(p != nullptr && Filled(p, 8));
    std::memcpy(p, "\x01\x02\x03\x04\x05\x06", 6);
    void *failed = MsgAlloc(0x20, 4);
    void *freed = MsgAlloc(0x30, 4);
    EXPECT_EQ(host::MsgsOutstanding(), 3u);
    EXPECT_EQ(KOL_SEND_MSG(0x10, 0, 0, p, 6), 0u);
    host::ArmFail(host::FailKind::Send, 0, 1);
    EXPECT_EQ(KOL_SEND_MSG(0x20, 0, 0, failed, 4), 1u);
    MSG_Free(0x30, freed);
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
    ASSERT_EQ(host::Sent().size(), 1u);   // the failed send delivered nothing
    EXPECT_EQ(host::Sent().front().pid, 0x10u);
    EXPECT_EQ(host::Sent().front().bytes, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostTest, MisusedBuffersAreFaults)
{
    static uint8_t local[8];
    void (*const cases[])() = {
        [] { EXPECT_NE(KOL_SEND_MSG(0x10, 0, 0, local, 4), 0u); },
        [] { EXPECT_NE(KOL_SEND_MSG(0x10, 0, 0, MsgAlloc(0x10, 4), 5), 0u); },   // more than allocated
        [] { MSG_Free(0x10, local); },
        [] { void *p = MsgAlloc(0x10, 4); (void)KOL_SEND_MSG(0x10, 0, 0, p, 4); MSG_Free(0x10, p); },   // sent
        [] { EXPECT_EQ(MSG_SenderCidGet(local), 0u); },   // not a received buffer
        [] { EXPECT_EQ(MSG_DataSizeGet(local), 0u); },
    };
    for (size_t i = 0; i < std::size(cases); i++) {
        SCOPED_TRACE(i);
        host::Reset();
        cases[i]();
        EXPECT_EQ(host::Faults(), 1u);
        EXPECT_EQ(host::MsgsOutstanding(), 0u);
    }
}

// --- Loop timers --------------------------------------------------------------------------

struct Probe {
    std::string name;
    uint32_t handle = 0;
    Probe *stops = nullptr;   // stopped at this probe's expiry
};

void OnTimer(void *pParam, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    Probe &p = *static_cast<Probe *>(pParam);
    EXPECT_TRUE(ulTmrVal == p.handle && pCompCtx == host::Ctx());
    g_log.push_back(p.name + "@" + std::to_string(host::Now()));
    if (p.stops != nullptr && p.stops->handle != 0u) {
        ZAN_Frame_StopTmr(host::Ctx(), p.stops->handle);
        p.stops->handle = 0;
    }
}

uint32_t Start(Probe &p, uint32_t ms) { return p.handle = ZAN_Frame_StartLoopTmr(host::Ctx(), OnTimer, ms, &p); }

TEST_F(HostTest, LoopTimersFireInTimeThenStartOrderUntilStopped)
{
    Probe c{"c"};
    Probe a{"a", 0, &a};   // stops itself at its first expiry
    Probe b{"b", 0, &c};   // stops c, due at the same time and started after b
    host::Advance(30);
    ASSERT_TRUE(Start(a, 100) != 0u && Start(b, 200) != 0u && Start(c, 50) != 0u);
    const uint32_t cHandle = c.handle;
    EXPECT_EQ(host::RunningTimerPeriods(), (std::vector<uint32_t>{50, 100, 200}));
    EXPECT_EQ(host::TimerPeriod(cHandle), 50u);
    host::Advance(180);   // an expiry stays due across calls of Advance
    EXPECT_EQ(host::Now(), 210u);
    host::Advance(240);
    EXPECT_EQ(g_log, (std::vector<std::string>{"c@80", "a@130", "c@130", "c@180", "b@230", "b@430"}));
    EXPECT_EQ(host::RunningTimerHandles(), std::vector<uint32_t>{b.handle});
    EXPECT_EQ(host::TimerPeriod(cHandle), 0u);
    EXPECT_EQ(host::Faults(), 0u);
    ZAN_Frame_StopTmr(host::Ctx(), cHandle);   // already stopped
    EXPECT_EQ(host::Faults(), 1u);
}

// --- Component framework ------------------------------------------------------------------

struct Inst {
    ZAN_COMP_INST_S head;   // first member, as in a component's instance record
    uint32_t result;        // what its operations answer
};

uint32_t Op(void *p, const char *what)
{
    const Inst &i = *static_cast<Inst *>(p);
    g_log.push_back(what + std::to_string(i.head.ulPid) + "/" + std::to_string(i.head.ulStatus));
    return i.result;
}
uint32_t OpUp(void *p) { return Op(p, "up:"); }
uint32_t OpDown(void *p) { return Op(p, "down:"); }
uint32_t OpScan(void *p) { return Op(p, "scan:"); }
const ZAN_COMP_INST_VOPS_S kOps = {{OpUp, OpDown, nullptr, nullptr, nullptr, nullptr}};

TEST_F(HostTest, InstanceTableInAscendingPidOrder)
{
    ZAN_COMP_ADP_S adp{};
    ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
    Inst insts[] = {{{}, 9}, {{}, 0}, {{}, 5}};
    const uint32_t pids[] = {0x30, 0x10, 0x20};
    for (size_t n = 0; n < std::size(insts); n++) {
        ASSERT_EQ(ZAN_CompInst_Init(&insts[n].head, pids[n], host::Ctx(), 5), 0u);
        insts[n].head.pVOps = &kOps;
        ASSERT_EQ(ZAN_CompAdp_AddInst(&adp, &insts[n].head), 0u);
        EXPECT_NE(ZAN_CompAdp_AddInst(&adp, &insts[n].head), 0u);   // one instance per pid
        EXPECT_EQ(ZAN_CompAdp_FindInstByPid(&adp, pids[n]), &insts[n].head);
    }
    EXPECT_EQ(host::InstPids(), (std::vector<uint32_t>{0x10, 0x20, 0x30}));
    EXPECT_EQ(ZAN_CompAdp_ScanInstTbl(&adp, OpScan), 5u);   // every instance, the first non-zero in pid order
    insts[2].result = 0;
    EXPECT_EQ(ZAN_CompAdp_ScanInstTbl(&adp, OpScan), 9u);
    insts[0].result = 0;
    EXPECT_EQ(ZAN_CompAdp_ScanInstTbl(&adp, OpScan), 0u);
    ASSERT_EQ(ZAN_CompInst_StartWork(&insts[1].head), 0u);   // Up runs at once, with status 0
    EXPECT_TRUE(host::SetStatus(0x10, 4) && host::RunDown(0x10) && host::RunUp(0x10));   // the runner's commands
    EXPECT_FALSE(host::RunUp(0x11) || host::SetStatus(0x11, 4));
    EXPECT_EQ(ZAN_CompAdp_DelInst(&adp, &insts[2].head), 0u);
    ZAN_CompAdp_DeInit(&adp, OpDown);
    std::vector<std::string> expect;
    for (int scans = 0; scans < 3; scans++) {
        expect.insert(expect.end(), {"scan:16/1", "scan:32/1", "scan:48/1"});   // status 1: created
    }
    expect.insert(expect.end(), {"up:16/0", "down:16/4", "up:16/4", "down:16/4", "down:48/1"});
    EXPECT_EQ(g_log, expect);
    EXPECT_TRUE(host::InstPids().empty() && ZAN_CompAdp_FindInstByPid(&adp, 0x10) == nullptr);
}

uint32_t Receive(void *pMsg, void *)
{
    const auto *p = static_cast<const uint8_t *>(pMsg);
    g_log.push_back(std::to_string(MSG_SenderCidGet(pMsg)) + ":" + std::string(p, p + MSG_DataSizeGet(pMsg)));
    return 0;
}

uint32_t OnCfg(void *pArg, const void *pRec)
{
    g_log.emplace_back(static_cast<const char *>(pRec), 4);
    return *static_cast<uint32_t *>(pArg);
}

TEST_F(HostTest, RegistrationsAreReachedUntilWithdrawn)
{
    uint32_t mine = 3;
    uint32_t theirs = 0;
    ZAN_COMP_ADP_S adp{};
    ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
    EXPECT_FALSE(host::DeliverMsg(0x10, {'x'}));   // no handler yet
    for (uint32_t *arg : {&mine, &theirs}) {
        const bool isMine = arg == &mine;
        ASSERT_EQ(ZAN_Frame_RegMsgProc(host::Ctx(), isMine ? adp.usMsgClass : 7, Receive, arg, nullptr), 0u);
        ASSERT_EQ(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 0xD30A6B7, isMine ? 1 : 2, 4, OnCfg, arg), 0u);
        ASSERT_EQ(ZAN_InnerData_RegCallBack(host::Ctx(), isMine ? "mine" : "theirs", NoInner, arg), 0u);
    }
    EXPECT_EQ(host::AdapterMsgClass(), adp.usMsgClass);
    // Messages with their sender and delivered size (a longer size is zero-padded) ...
    EXPECT_TRUE(host::DeliverMsg(1, {'a', 'b', 'c', 'd'}) && host::DeliverMsg(2, {'a', 'b', 'c', 'd'}, 2));
    EXPECT_TRUE(host::DeliverMsg(3, {'a', 'b'}, 4));
    // ... and a record padded to the registered length, answered by the callback's result.
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 1, {'a', 'b'}), std::optional<uint32_t>(3));
    EXPECT_EQ(g_log, (std::vector<std::string>{"1:abcd", "2:ab", {"3:ab\0\0", 6}, {"ab\0\0", 4}}));
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 3, {0}), std::nullopt);
    ZAN_Frame_WithdrawRegs(host::Ctx(), &mine);
    EXPECT_TRUE(host::AdapterMsgClass() == 0u && !host::DeliverMsg(0x10, {0}) && host::DeliverFcm(0x10));
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 1, {0}), std::nullopt);
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 2, {0}), std::optional<uint32_t>(0));
    EXPECT_FALSE(host::RunCli("mine", "x", std::nullopt, 0).registered);
    EXPECT_TRUE(host::RunCli("theirs", "x", std::nullopt, 0).registered);
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostTest, ResetReturnsTheWorldToItsStart)
{
    ZAN_COMP_ADP_S adp{};
    Inst i{{}, 0};
    ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
    ASSERT_TRUE(ZAN_CompInst_Init(&i.head, 0x10, host::Ctx(), 5) == 0u && ZAN_CompAdp_AddInst(&adp, &i.head) == 0u);
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
    EXPECT_TRUE(host::InstPids().empty() && !host::DeliverCfg(1, 2, {0}));
    EXPECT_TRUE(host::Now() == 0u && host::RunningTimerHandles().empty() && !host::RunCli("c", "", {}, 0).registered);
    EXPECT_TRUE(host::Asserts().empty() && host::Faults() == 0u && !host::FailArmed(host::FailKind::Malloc));
    EXPECT_TRUE(host::BlocksOn(Fw()) == 0u && Malloc(Fw(), 8) != nullptr);   // the component's handle works again
}

// --- Basic functions and diagnostics ------------------------------------------------------

TEST_F(HostTest, StrToUint32AcceptsDecimalOrHexThatFits)
{
    const std::pair<const char *, uint32_t> accepted[] = {
        {"0", 0}, {"0010", 10}, {"4294967295", ~0u}, {"0x10", 0x10}, {"0xABCdef", 0xABCDEF}, {"0xffffffff", ~0u}};
    const char *const refused[] = {"",     "12ab", "4294967296", "99999999999999999999", "0x", "0x100000000",
                                   "0x1g", "0X10", "-1",         " 1",                   "1 ", nullptr};
    for (const auto &[text, value] : accepted) {
        uint32_t out = 7;
        EXPECT_EQ(WUX_StrToUint32(text, &out), 0u) << text;
        EXPECT_EQ(out, value) << text;
    }
    for (const char *text : refused) {
        uint32_t out = 7;
        EXPECT_NE(WUX_StrToUint32(text, &out), 0u) << (text != nullptr ? text : "NULL");
        EXPECT_EQ(out, 7u) << (text != nullptr ? text : "NULL");
    }
    EXPECT_NE(WUX_StrToUint32("1", nullptr), 0u);
}

TEST_F(HostTest, MemcpySAndMemsetSStayInBounds)
{
    char dest[8];
    const struct {
        bool copy;
        char *dest;
        const char *src;
        size_t destMax;
        size_t count;
        bool ok;
        const char *after;   // the 8 bytes of dest
    } cases[] = {
        {true, dest, "ABCDEFGH", 8, 3, true, "ABC....."},   {true, dest, "ABCDEFGH", 5, 6, false, "\0\0\0\0\0..."},
        {true, dest, nullptr, 8, 4, false, "........"},     {true, nullptr, "ABCDEFGH", 8, 4, false, "........"},
        {false, dest, nullptr, 3, 3, true, "xxx....."},     {false, dest, nullptr, 4, 5, false, "........"},
        {false, nullptr, nullptr, 8, 4, false, "........"},
    };
    for (const auto &c : cases) {   // a count over destMax makes memcpy_s zero-fill destMax
        SCOPED_TRACE(testing::Message() << (c.copy ? "memcpy_s " : "memset_s ") << c.destMax << " " << c.count);
        std::memset(dest, '.', sizeof(dest));
        const uint32_t ret =
            c.copy ? memcpy_s(c.dest, c.destMax, c.src, c.count) : memset_s(c.dest, c.destMax, 'x', c.count);
        EXPECT_EQ(ret == 0u, c.ok);
        EXPECT_EQ(std::string(dest, 8), std::string(c.after, 8));
    }
}

TEST_F(HostTest, InnerDataOutputStaysInsideTheTextArea)
{
    const std::string huge(5000, 'y');
    const struct {
        uint32_t cur;
        const char *text;
        uint32_t added;
    } cases[] = {
        {0, "pid[0x10]", 9},
        {3000, huge.c_str(), ZAN_INNERDATA_TEXT_MAX - 1u - 3000u},   // cut, still zero-terminated
        {ZAN_INNERDATA_TEXT_MAX - 1u, "y", 0},                       // no room: nothing written
        {ZAN_INNERDATA_TEXT_MAX + 10u, "y", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.cur);
        std::vector<char> area(ZAN_INNERDATA_TEXT_MAX + 64u, 'g');   // guard bytes after the area
        const std::vector<char> before = area;
        EXPECT_EQ(ZAN_InnerData_Output(area.data(), c.cur, "%s", c.text), c.added);
        if (c.cur < ZAN_INNERDATA_TEXT_MAX - 1u) {
            EXPECT_EQ(std::string(area.data() + c.cur), std::string(c.text, c.added));
        } else {
            EXPECT_EQ(area, before);
        }
        EXPECT_TRUE(std::all_of(area.begin() + ZAN_INNERDATA_TEXT_MAX, area.end(), [](char v) { return v == 'g'; }));
    }
}

uint32_t Command(ZAN_INNERDATA_REQ_S *pReq, ZAN_CLI_CMD_S *pCmd, void *)
{
    g_log.push_back(std::string(pReq->pcItem) + " " + (pReq->pcPid != nullptr ? pReq->pcPid : "-") + " " +
                    std::to_string(pReq->bPidGiven) + " " + std::to_string(pReq->ulContinue));
    std::vector<char> rec(ZAN_INNERDATA_REC_LEN, 0);
    for (const char *text : {"first\r\n", "second\r\n"}) {
        rec[0] = static_cast<char>(std::strlen(text));
        std::strcpy(rec.data() + ZAN_INNERDATA_TEXT_OFF, text);
        EXPECT_EQ(CLI_AddRec(pCmd, rec.data(), ZAN_INNERDATA_REC_LEN, 1), 0u);
    }
    (void)CLI_AddOptionData(pCmd, &pReq->ulContinue, sizeof(uint32_t));
    (void)CLI_SetRetCode(pCmd->ulCmdId, 0, 2);
    return 42;
}

TEST_F(HostTest, RunCliHandsTheRequestOverAndRecordsTheAnswer)
{
    ASSERT_EQ(ZAN_InnerData_RegCallBack(host::Ctx(), "zanvrrp", Command, nullptr), 0u);
    EXPECT_FALSE(host::RunCli("other", "adp-base", std::nullopt, 0).registered);
    const host::CliResult r = host::RunCli("zanvrrp", "inst-base", std::string("0x10"), 3);
    EXPECT_TRUE(r.registered && r.result == 42u);
    ASSERT_EQ(r.records.size(), 2u);
    EXPECT_TRUE(r.records[1].size() == ZAN_INNERDATA_REC_LEN && r.records[1][0] == 8u);
    EXPECT_EQ(r.text, "first\r\nsecond\r\n");
    EXPECT_TRUE(r.optionDataCalls == 1u && r.retCodeCalls == 1u);
    EXPECT_TRUE(host::RunCli("zanvrrp", "adp-base", std::nullopt, 0).registered);
    EXPECT_EQ(g_log, (std::vector<std::string>{"inst-base 0x10 1 3", "adp-base - 0 0"}));
    EXPECT_EQ(host::Faults(), 0u);
}

}  // namespace
