// The host's diagnostics: bounded text output into a record's text area, and running a
// registered inner-data command with its answer records.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace {

constexpr uint32_t kGuard = 64;
constexpr uint8_t kGuardByte = 0x5A;

class HostCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::Reset();
        buf.assign(ZAN_INNERDATA_TEXT_OFF + ZAN_INNERDATA_TEXT_MAX + kGuard, kGuardByte);
    }

    char *Text() { return reinterpret_cast<char *>(buf.data() + ZAN_INNERDATA_TEXT_OFF); }

    bool GuardIntact() const
    {
        for (size_t i = ZAN_INNERDATA_TEXT_OFF + ZAN_INNERDATA_TEXT_MAX; i < buf.size(); i++) {
            if (buf[i] != kGuardByte) {
                return false;
            }
        }
        return true;
    }

    std::vector<uint8_t> buf;
};

TEST_F(HostCliTest, OutputAppendsAndReturnsTheCharactersAdded)
{
    uint32_t len = ZAN_InnerData_Output(Text(), 0, "pid[0x%x] ", 0x10u);
    EXPECT_EQ(len, 10u);
    len += ZAN_InnerData_Output(Text(), len, "%s=%u", "State", 2u);
    EXPECT_EQ(len, 17u);
    EXPECT_STREQ(Text(), "pid[0x10] State=2");
    EXPECT_EQ(ZAN_InnerData_Output(Text(), len, "%s", ""), 0u);
    EXPECT_STREQ(Text(), "pid[0x10] State=2");
}

TEST_F(HostCliTest, OutputNeverWritesPastTheTextArea)
{
    const std::string line(100, 'x');
    uint32_t len = 0;
    uint32_t calls = 0;
    for (;;) {
        const uint32_t added = ZAN_InnerData_Output(Text(), len, "%s\r\n", line.c_str());
        calls++;
        if (added == 0u) {
            break;
        }
        len += added;
        ASSERT_LE(len, ZAN_INNERDATA_TEXT_MAX - 1u);
        ASSERT_LT(calls, 100u);
    }
    EXPECT_EQ(len, ZAN_INNERDATA_TEXT_MAX - 1u);
    EXPECT_EQ(Text()[ZAN_INNERDATA_TEXT_MAX - 1u], '\0');
    EXPECT_EQ(std::strlen(Text()), ZAN_INNERDATA_TEXT_MAX - 1u);
    EXPECT_TRUE(GuardIntact());

    // At or past the last byte nothing is written at all.
    for (uint32_t cur : {ZAN_INNERDATA_TEXT_MAX - 1u, ZAN_INNERDATA_TEXT_MAX, ZAN_INNERDATA_TEXT_MAX + 10u}) {
        SCOPED_TRACE(cur);
        std::vector<uint8_t> before = buf;
        EXPECT_EQ(ZAN_InnerData_Output(Text(), cur, "%s", line.c_str()), 0u);
        EXPECT_EQ(buf, before);
    }
}

TEST_F(HostCliTest, OneLongOutputIsTruncatedInsideTheArea)
{
    const std::string huge(5000, 'y');
    const uint32_t added = ZAN_InnerData_Output(Text(), 3000, "%s", huge.c_str());
    EXPECT_EQ(added, ZAN_INNERDATA_TEXT_MAX - 1u - 3000u);
    EXPECT_EQ(Text()[ZAN_INNERDATA_TEXT_MAX - 1u], '\0');
    EXPECT_EQ(Text()[ZAN_INNERDATA_TEXT_MAX - 2u], 'y');
    EXPECT_TRUE(GuardIntact());
}

struct CmdSeen {
    std::string item;
    std::optional<std::string> pid;
    uint32_t pidGiven = 0;
    uint32_t cont = 0;
    uint32_t calls = 0;
    std::vector<std::string> texts;   // one record per text
    uint32_t result = 0;
    bool moreData = false;
};

uint32_t Command(ZAN_INNERDATA_REQ_S *pReq, ZAN_CLI_CMD_S *pCmd, void *pArg)
{
    CmdSeen &s = *static_cast<CmdSeen *>(pArg);
    s.calls++;
    s.item = pReq->pcItem;
    s.pid = pReq->pcPid != nullptr ? std::optional<std::string>(pReq->pcPid) : std::nullopt;
    s.pidGiven = pReq->bPidGiven;
    s.cont = pReq->ulContinue;
    std::vector<uint8_t> rec(ZAN_INNERDATA_REC_LEN, 0);
    for (const std::string &t : s.texts) {
        std::fill(rec.begin(), rec.end(), 0);
        rec[0] = static_cast<uint8_t>(t.size());
        (void)ZAN_InnerData_Output(reinterpret_cast<char *>(rec.data() + ZAN_INNERDATA_TEXT_OFF), 0, "%s", t.c_str());
        EXPECT_EQ(CLI_AddRec(pCmd, rec.data(), ZAN_INNERDATA_REC_LEN, 1), 0u);
    }
    if (s.moreData) {
        EXPECT_EQ(CLI_AddOptionData(pCmd, &pReq->ulContinue, sizeof(uint32_t)), 0u);
        EXPECT_EQ(CLI_SetRetCode(pCmd->ulCmdId, 0, 2), 0u);
    }
    return s.result;
}

TEST_F(HostCliTest, RunCliHandsTheRequestOverAndCollectsTheRecords)
{
    CmdSeen s;
    s.texts = {"first\r\n", "second\r\n"};
    s.result = 4;
    s.moreData = true;
    ASSERT_EQ(ZAN_InnerData_RegCallBack(host::Ctx(), "zanvrrp", Command, &s), 0u);

    host::CliResult r = host::RunCli("zanvrrp", "inst-base", std::string("0x10"), 3);
    EXPECT_TRUE(r.registered);
    EXPECT_EQ(r.result, 4u);
    EXPECT_EQ(s.item, "inst-base");
    EXPECT_EQ(s.pid, std::optional<std::string>("0x10"));
    EXPECT_EQ(s.pidGiven, 1u);
    EXPECT_EQ(s.cont, 3u);
    ASSERT_EQ(r.records.size(), 2u);
    EXPECT_EQ(r.records[0].size(), ZAN_INNERDATA_REC_LEN);
    EXPECT_EQ(r.records[0][0], 7u);
    EXPECT_EQ(r.records[1][0], 8u);
    EXPECT_EQ(r.text, "first\r\nsecond\r\n");
    EXPECT_EQ(r.optionDataCalls, 1u);
    EXPECT_EQ(r.retCodeCalls, 1u);

    s.texts.clear();
    s.moreData = false;
    r = host::RunCli("zanvrrp", "adp-base", std::nullopt, 0);
    EXPECT_TRUE(r.registered);
    EXPECT_EQ(s.pid, std::nullopt);
    EXPECT_EQ(s.pidGiven, 0u);
    EXPECT_TRUE(r.records.empty());
    EXPECT_EQ(r.text, "");
    EXPECT_EQ(r.optionDataCalls, 0u);
    EXPECT_EQ(s.calls, 2u);
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostCliTest, UnknownCommandIsNotRun)
{
    host::CliResult r = host::RunCli("zanvrrp", "adp-base", std::nullopt, 0);
    EXPECT_FALSE(r.registered);
    EXPECT_TRUE(r.records.empty());
}

TEST_F(HostCliTest, RecordsOutsideACommandAreAFault)
{
    ZAN_CLI_CMD_S cmd{};
    uint8_t rec[4] = {};
    EXPECT_NE(CLI_AddRec(&cmd, rec, sizeof(rec), 1), 0u);
    EXPECT_EQ(host::Faults(), 1u);
}

}  // namespace
