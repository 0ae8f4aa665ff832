// The host's component framework: instance table and its ordered scans, instance heads and
// operations, configuration callbacks and the withdrawal of registrations.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace {

struct Inst {
    ZAN_COMP_INST_S head;   // first member, as in a component's instance record
    std::vector<std::string> *log;
    uint32_t scanResult;
};

std::vector<std::string> g_log;

uint32_t Record(void *p, const char *what)
{
    Inst *inst = static_cast<Inst *>(p);
    inst->log->push_back(std::string(what) + ":" + std::to_string(inst->head.ulPid));
    return inst->scanResult;
}

uint32_t OpUp(void *p) { return Record(p, "up"); }
uint32_t OpDown(void *p) { return Record(p, "down"); }
uint32_t OpScan(void *p) { return Record(p, "scan"); }
uint32_t OpDeInit(void *p) { return Record(p, "deinit"); }

const ZAN_COMP_INST_VOPS_S kOps = {{OpUp, OpDown, nullptr, nullptr, nullptr, nullptr}};

class HostFrameTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::Reset();
        g_log.clear();
        ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
    }

    Inst *Add(uint32_t pid, uint32_t scanResult = 0)
    {
        insts.push_back(std::make_unique<Inst>());
        Inst *i = insts.back().get();
        EXPECT_EQ(ZAN_CompInst_Init(&i->head, pid, host::Ctx(), pid + 1), 0u);
        i->head.pVOps = &kOps;
        i->log = &g_log;
        i->scanResult = scanResult;
        EXPECT_EQ(ZAN_CompAdp_AddInst(&adp, &i->head), 0u);
        return i;
    }

    ZAN_COMP_ADP_S adp{};
    std::vector<std::unique_ptr<Inst>> insts;
};

TEST_F(HostFrameTest, AdapterBaseKeepsTheContextAndAFixedClass)
{
    EXPECT_EQ(adp.pCompCtx, host::Ctx());
    EXPECT_NE(adp.usMsgClass, 0u);
    EXPECT_NE(adp.usMsgClass, 7u);
    EXPECT_TRUE(host::InstPids().empty());
}

TEST_F(HostFrameTest, InstanceHeadAndStart)
{
    Inst i{};
    i.log = &g_log;
    i.head.ulStatus = 77;
    ASSERT_EQ(ZAN_CompInst_Init(&i.head, 0x10, host::Ctx(), 5), 0u);
    EXPECT_EQ(i.head.ulPid, 0x10u);
    EXPECT_EQ(i.head.pCompCtx, host::Ctx());
    EXPECT_EQ(i.head.ulIfGroupId, 5u);
    EXPECT_EQ(i.head.ulStatus, 1u);
    i.head.pVOps = &kOps;
    ASSERT_EQ(ZAN_CompInst_StartWork(&i.head), 0u);
    EXPECT_EQ(i.head.ulStatus, 0u);
    EXPECT_EQ(g_log, (std::vector<std::string>{"up:16"}));
}

TEST_F(HostFrameTest, TableIsKeyedByPidAndOrdered)
{
    Inst *a = Add(0x30);
    Inst *b = Add(0x10);
    Add(0x20);
    EXPECT_EQ(host::InstPids(), (std::vector<uint32_t>{0x10, 0x20, 0x30}));
    EXPECT_EQ(ZAN_CompAdp_FindInstByPid(&adp, 0x30), &a->head);
    EXPECT_EQ(host::FindInst(0x10), &b->head);
    EXPECT_EQ(ZAN_CompAdp_FindInstByPid(&adp, 0x40), nullptr);

    Inst dup{};
    ZAN_CompInst_Init(&dup.head, 0x10, host::Ctx(), 0);
    EXPECT_NE(ZAN_CompAdp_AddInst(&adp, &dup.head), 0u);
    EXPECT_NE(ZAN_CompAdp_DelInst(&adp, &dup.head), 0u);   // same pid, other record
    EXPECT_EQ(host::FindInst(0x10), &b->head);

    EXPECT_EQ(ZAN_CompAdp_DelInst(&adp, &b->head), 0u);
    EXPECT_EQ(host::InstPids(), (std::vector<uint32_t>{0x20, 0x30}));
    EXPECT_EQ(host::FindInst(0x10), nullptr);
}

TEST_F(HostFrameTest, ScanVisitsEveryInstanceAscendingAndReturnsTheFirstNonZero)
{
    struct Case {
        const char *name;
        std::vector<std::pair<uint32_t, uint32_t>> pidResult;
        uint32_t expect;
    };
    const Case cases[] = {
        {"all zero", {{0x30, 0}, {0x10, 0}, {0x20, 0}}, 0},
        {"one fails", {{0x30, 0}, {0x10, 0}, {0x20, 5}}, 5},
        {"first failure wins", {{0x30, 9}, {0x10, 0}, {0x20, 5}}, 5},
        {"empty", {}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        insts.clear();
        std::vector<std::string> expectLog;
        for (const auto &pr : c.pidResult) {
            Add(pr.first, pr.second);
        }
        for (uint32_t pid : host::InstPids()) {
            expectLog.push_back("scan:" + std::to_string(pid));
        }
        EXPECT_EQ(ZAN_CompAdp_ScanInstTbl(&adp, OpScan), c.expect);
        EXPECT_EQ(g_log, expectLog);
        EXPECT_EQ(expectLog.size(), c.pidResult.size());
    }
}

TEST_F(HostFrameTest, DeInitVisitsAscendingThenDropsTheTable)
{
    Add(0x20);
    Add(0x10);
    Add(0x30);
    ZAN_CompAdp_DeInit(&adp, OpDeInit);
    EXPECT_EQ(g_log, (std::vector<std::string>{"deinit:16", "deinit:32", "deinit:48"}));
    EXPECT_TRUE(host::InstPids().empty());
    EXPECT_EQ(host::FindInst(0x10), nullptr);
    EXPECT_EQ(ZAN_CompAdp_FindInstByPid(&adp, 0x10), nullptr);
    ZAN_CompAdp_DeInit(&adp, OpDeInit);   // nothing left to visit
    EXPECT_EQ(g_log.size(), 3u);
}

TEST_F(HostFrameTest, UpDownAndStatusByPid)
{
    Inst *a = Add(0x10);
    EXPECT_TRUE(host::RunUp(0x10));
    EXPECT_TRUE(host::RunDown(0x10));
    EXPECT_FALSE(host::RunUp(0x11));
    EXPECT_EQ(g_log, (std::vector<std::string>{"up:16", "down:16"}));
    EXPECT_TRUE(host::SetStatus(0x10, 4));
    EXPECT_EQ(a->head.ulStatus, 4u);
    EXPECT_FALSE(host::SetStatus(0x11, 4));
}

struct CfgSeen {
    std::vector<uint8_t> rec;
    uint32_t answer = 0;
    uint32_t calls = 0;
};

uint32_t CfgCb4(void *pArg, const void *pRec)
{
    CfgSeen &s = *static_cast<CfgSeen *>(pArg);
    const uint8_t *p = static_cast<const uint8_t *>(pRec);
    s.rec.assign(p, p + 4);
    s.calls++;
    return s.answer;
}

TEST_F(HostFrameTest, ConfigurationCallbacksByTableAndOperation)
{
    CfgSeen create;
    create.answer = 0;
    CfgSeen del;
    del.answer = 3;
    ASSERT_EQ(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 0xD30A6B7, 1, 4, CfgCb4, &create), 0u);
    ASSERT_EQ(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 0xD30A6B7, 2, 4, CfgCb4, &del), 0u);
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 1, {1, 2, 3, 4}), std::optional<uint32_t>(0));
    EXPECT_EQ(create.rec, (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 2, {5, 6}), std::optional<uint32_t>(3));
    EXPECT_EQ(del.rec, (std::vector<uint8_t>{5, 6, 0, 0}));   // padded to the registered length
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 3, {1}), std::nullopt);
    EXPECT_EQ(host::DeliverCfg(0xD30A6B8, 1, {1}), std::nullopt);

    // Registering the same (table, operation) again replaces the callback.
    CfgSeen other;
    other.answer = 9;
    ASSERT_EQ(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 0xD30A6B7, 1, 4, CfgCb4, &other), 0u);
    EXPECT_EQ(host::DeliverCfg(0xD30A6B7, 1, {1, 2, 3, 4}), std::optional<uint32_t>(9));
    EXPECT_EQ(create.calls, 1u);
}

uint32_t MsgProc(void *, void *) { return 0; }
uint32_t Inner(ZAN_INNERDATA_REQ_S *, ZAN_CLI_CMD_S *, void *) { return 0; }

TEST_F(HostFrameTest, WithdrawDropsEveryRegistrationWithThatArgument)
{
    int mine = 0;
    int theirs = 0;
    CfgSeen cfgMine;
    ASSERT_EQ(ZAN_Frame_RegMsgProc(host::Ctx(), adp.usMsgClass, MsgProc, &mine, nullptr), 0u);
    ASSERT_EQ(ZAN_Frame_RegMsgProc(host::Ctx(), 7, MsgProc, &theirs, nullptr), 0u);
    ASSERT_EQ(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 1, 1, 4, CfgCb4, &mine), 0u);
    ASSERT_EQ(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 1, 2, 4, CfgCb4, &cfgMine), 0u);
    ASSERT_EQ(ZAN_InnerData_RegCallBack(host::Ctx(), "mine", Inner, &mine), 0u);
    ASSERT_EQ(ZAN_InnerData_RegCallBack(host::Ctx(), "theirs", Inner, &theirs), 0u);

    ZAN_Frame_WithdrawRegs(host::Ctx(), &mine);
    EXPECT_FALSE(host::DeliverMsg(0x10, {0}));
    EXPECT_TRUE(host::DeliverFcm(0x10));
    EXPECT_EQ(host::DeliverCfg(1, 1, {0, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(host::DeliverCfg(1, 2, {0, 0, 0, 0}), std::optional<uint32_t>(0));
    EXPECT_FALSE(host::RunCli("mine", "x", std::nullopt, 0).registered);
    EXPECT_TRUE(host::RunCli("theirs", "x", std::nullopt, 0).registered);
}

TEST_F(HostFrameTest, ArmedRegistrationFailuresRegisterNothing)
{
    int arg = 0;
    host::ArmFail(host::FailKind::RegMsg, 0, 1);
    EXPECT_NE(ZAN_Frame_RegMsgProc(host::Ctx(), adp.usMsgClass, MsgProc, &arg, nullptr), 0u);
    EXPECT_EQ(host::AdapterMsgClass(), 0u);
    host::ArmFail(host::FailKind::RegCfg, 0, 1);
    EXPECT_NE(ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 1, 1, 4, CfgCb4, &arg), 0u);
    EXPECT_EQ(host::DeliverCfg(1, 1, {0, 0, 0, 0}), std::nullopt);
    host::ArmFail(host::FailKind::RegInner, 0, 1);
    EXPECT_NE(ZAN_InnerData_RegCallBack(host::Ctx(), "cmd", Inner, &arg), 0u);
    EXPECT_FALSE(host::RunCli("cmd", "x", std::nullopt, 0).registered);
}

}  // namespace
