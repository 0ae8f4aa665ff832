// Data records of received updates: what reaches pfnRecvData, and how a record that is broken
// or hostile is refused. The host hands the library a heap buffer of exactly the delivered size,
// so under the address sanitizer a read past it fails the test too.
#include "lib_fixture.h"

namespace {

struct Delivered {
    uint16_t keyType, keyLen;
    std::vector<uint8_t> key;
    uint16_t dataType, dataLen;
    std::vector<uint8_t> data;
};
std::vector<Delivered> g_recs;

void OnRecvData(const void *pKey, const void *pData, uint32_t)
{
    Delivered d{};
    const auto *k = static_cast<const uint8_t *>(pKey);
    const auto *v = static_cast<const uint8_t *>(pData);
    std::memcpy(&d.keyType, k, 2);
    std::memcpy(&d.keyLen, k + 2, 2);
    d.key.assign(k + 4, k + 4 + d.keyLen);
    std::memcpy(&d.dataType, v, 2);
    std::memcpy(&d.dataLen, v + 2, 2);
    d.data.assign(v + 4, v + 4 + d.dataLen);
    g_recs.push_back(d);
}

void Be16(std::vector<uint8_t> &b, uint32_t v)
{
    b.push_back(static_cast<uint8_t>(v >> 8));
    b.push_back(static_cast<uint8_t>(v));
}

// A record: type, length (of what follows unless given), unread bytes, key TLV, data TLV.
std::vector<uint8_t> Rec(uint16_t type, std::vector<uint8_t> key, std::vector<uint8_t> data, int recLen = -1,
                         uint16_t keyType = 3001, int keyLen = -1, int dataLen = -1)
{
    std::vector<uint8_t> inner(type == 3003 ? 4 : type == 3004 ? 8 : 0, 0xEE);
    Be16(inner, keyType);
    Be16(inner, keyLen < 0 ? key.size() : static_cast<uint32_t>(keyLen));
    inner.insert(inner.end(), key.begin(), key.end());
    Be16(inner, 1001);
    Be16(inner, dataLen < 0 ? data.size() : static_cast<uint32_t>(dataLen));
    inner.insert(inner.end(), data.begin(), data.end());
    std::vector<uint8_t> r;
    Be16(r, type);
    Be16(r, recLen < 0 ? inner.size() : static_cast<uint32_t>(recLen));
    r.insert(r.end(), inner.begin(), inner.end());
    return r;
}

std::vector<uint8_t> Cat(std::initializer_list<std::vector<uint8_t>> parts)
{
    std::vector<uint8_t> out;
    for (const auto &p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

// The record with another record type in its first word.
std::vector<uint8_t> Retyped(std::vector<uint8_t> rec, uint16_t type)
{
    rec[0] = static_cast<uint8_t>(type >> 8);
    rec[1] = static_cast<uint8_t>(type);
    return rec;
}

const std::vector<uint8_t> kKey1 = {10, 0, 0, 0, 1, 0, 0, 0};
const std::vector<uint8_t> kKey2 = {11, 0, 0, 0, 2, 0, 0, 0};
const std::vector<uint8_t> kKey3 = {12, 0, 0, 0, 3, 0, 0, 0};
const std::vector<uint8_t> kData = {1, 2, 3, 4};

struct Handed {
    std::vector<uint8_t> key;
    uint16_t dataLen;  // the data bytes start with kData
};

struct Case {
    const char *name;
    std::vector<uint8_t> body;
    int msgLen;                  // usMsgLen; -1: 20 + body
    std::vector<Handed> handed;  // records handed over, in order
    uint32_t genKey, errInfoNum, pastEnd;
};

class RecvRecords : public libtest::LibTest, public ::testing::WithParamInterface<Case> {
protected:
    void SetUp() override
    {
        libtest::LibTest::SetUp();
        ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
        cb.pfnRecvData = OnRecvData;
        ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
        ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
        host::Sent().clear();
        g_recs.clear();
    }
};

TEST_P(RecvRecords, HandsOverWellFormedRecordsAndRefusesTheRest)
{
    const Case &c = GetParam();
    for (uint8_t type : {ZAN_VRRP_MSG_RU_DATA, ZAN_VRRP_MSG_BU_BEGIN_END}) {
        SCOPED_TRACE(type);
        g_recs.clear();
        std::vector<uint8_t> m(20, 0);
        const uint32_t len = c.msgLen < 0 ? 20u + c.body.size() : static_cast<uint32_t>(c.msgLen);
        m[0] = static_cast<uint8_t>(len >> 8);
        m[1] = static_cast<uint8_t>(len);
        m[2] = 0x01;
        m[3] = type;
        m.insert(m.end(), c.body.begin(), c.body.end());
        ZAN_VRRP_INST_S before = *libtest::Inst(0x10);
        ASSERT_TRUE(host::DeliverMsg(0x10, m));
        const ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);

        // Acknowledged first, with the bytes as received, whatever the records hold.
        ASSERT_EQ(host::Sent().size(), 1u);
        std::vector<uint8_t> ack = m;
        ack.resize(len);
        ack[2] |= 0x80;
        EXPECT_EQ(host::Sent().front().bytes, ack);
        host::Sent().clear();

        ASSERT_EQ(g_recs.size(), c.handed.size());
        for (size_t i = 0; i < c.handed.size(); i++) {
            EXPECT_EQ(g_recs[i].keyType, 3001u);
            EXPECT_EQ(g_recs[i].keyLen, 8u);
            EXPECT_EQ(g_recs[i].key, c.handed[i].key);
            EXPECT_EQ(g_recs[i].dataType, 1001u);
            ASSERT_EQ(g_recs[i].dataLen, c.handed[i].dataLen);
            EXPECT_TRUE(std::equal(kData.begin(), kData.end(), g_recs[i].data.begin()));
        }
        EXPECT_EQ(inst->stErrStat.usGenKey - before.stErrStat.usGenKey, c.genKey);
        EXPECT_EQ(inst->stErrStat.usErrInfoNum - before.stErrStat.usErrInfoNum, c.errInfoNum);
        EXPECT_EQ(inst->stDropStat.ulRecPastEnd - before.stDropStat.ulRecPastEnd, c.pastEnd);
    }
}

const std::vector<uint8_t> kGood1 = Rec(3002, kKey1, kData);
const std::vector<uint8_t> kGood2 = Rec(3003, kKey2, kData);
const std::vector<uint8_t> kGood3 = Rec(3004, kKey3, kData);

const Handed k1{kKey1, 4};
const Handed k2{kKey2, 4};
const Handed k3{kKey3, 4};

// A record's length tells only where the next record starts; the message is the only bound.
INSTANTIATE_TEST_SUITE_P(
    Records, RecvRecords,
    ::testing::Values(
        Case{"NoBody", {}, -1, {}, 0, 0, 0},
        Case{"OneOfEachType", Cat({kGood1, kGood2, kGood3}), -1, {k1, k2, k3}, 0, 1, 0},
        Case{"LongerRecordSkipsItsTail", Cat({Rec(3002, kKey1, kData, 20 + 3), {9, 9, 9}, kGood2}), -1, {k1, k2}, 0, 1,
             0},
        Case{"KeyTypeNot3001AfterGoodOnes", Cat({kGood1, kGood2, kGood3, Rec(3002, kKey1, kData, -1, 3005)}), -1,
             {k1, k2, k3}, 1, 0, 0},
        Case{"KeyLengthNot8", Cat({Rec(3002, {1, 2, 3, 4}, kData), kGood2}), -1, {}, 1, 0, 0},
        // Records as long as the usual one but not of its form take the general path.
        Case{"UsualLengthKeyTypeNot3001", Rec(3002, kKey1, {1, 2, 3, 4, 5, 6, 7, 8}, -1, 3005), -1, {}, 1, 0, 0},
        Case{"UsualLengthDataNot8", Cat({Rec(3002, kKey1, kData, 24), {9, 9, 9, 9}, kGood2}), -1, {k1, k2}, 0, 1, 0},
        // The first record of an unknown type has its key where its own header is: that header,
        // converted twice, is no 3001/8 key TLV.
        Case{"UnknownTypeFirst", Cat({Rec(3001, kKey1, kData), kGood2}), -1, {}, 1, 0, 0},
        // A later one keeps the key position of the record before it.
        Case{"UnknownTypeKeepsThePreviousKeyPosition", Cat({kGood1, Rec(3005, kKey2, kData)}), -1, {k1, k2}, 0, 1, 0},
        Case{"UnknownTypeAfterA3003", Cat({kGood2, Retyped(Rec(3003, kKey3, kData), 3006)}), -1, {k2, k3}, 0, 1, 0},
        Case{"TrailingBytesShorterThanARecordHeader", Cat({kGood1, {0x0b, 0xba, 0}}), -1, {k1}, 1, 0, 1},
        Case{"RecordLengthRunsPastTheMessage", Rec(3002, kKey1, kData, 21), -1, {}, 1, 0, 1},
        Case{"RecordCutByTheMessageLength", Cat({kGood1, kGood2}), 20 + 24 + 10, {k1}, 1, 0, 1},
        // TLVs past the record's own length but inside the message are handed over; the next
        // record then starts inside this one, among words already converted, and what is read
        // there claims more than the message holds.
        Case{"RecordLengthZero", Cat({Rec(3002, kKey1, kData, 0), kGood2}), -1, {k1}, 1, 0, 1},
        Case{"RecordShorterThanItsKeyTlv", Rec(3004, kKey1, kData, 10), -1, {k1}, 1, 0, 1},
        Case{"RecordShorterThanItsDataTlv", Rec(3002, kKey1, kData, 14), -1, {k1}, 1, 0, 1},
        Case{"DataLengthRunsPastTheRecord", Cat({Rec(3002, kKey1, kData, -1, 3001, -1, 5), kGood2}), -1,
             {{kKey1, 5}, k2}, 0, 1, 0},
        Case{"DataLengthRunsPastTheMessage", Cat({kGood1, Rec(3002, kKey2, kData, -1, 3001, -1, 5)}), -1, {k1}, 1, 0,
             1},
        Case{"DataLengthFarPastRecordAndMessage", Rec(3002, kKey1, kData, 20, 3001, -1, 0xFFFF), -1, {}, 1, 0, 1},
        Case{"KeyTlvPastTheMessage", Cat({kGood1, {0x0b, 0xbc, 0x00, 0x06, 0xEE, 0xEE, 0xEE, 0xEE, 0x0b, 0xb9}}), -1,
             {k1}, 1, 0, 1},
        Case{"DataTlvHeaderPastTheMessage", Cat({kGood1, {0x0b, 0xba, 0x00, 0x0e, 0x0b, 0xb9, 0, 8, 1, 2, 3, 4, 5, 6, 7,
                                                          8, 0x03, 0xe9}}),
             -1, {k1}, 1, 0, 1}),
    [](const ::testing::TestParamInfo<Case> &p) { return std::string(p.param.name); });

class RecvValues : public libtest::LibTest {};

// The TLV words reach the application in host order, the value bytes exactly as received, even
// when they look like TLV words themselves; a data TLV may be empty.
TEST_F(RecvValues, ValueBytesAreHandedOverAsReceived)
{
    ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
    cb.pfnRecvData = OnRecvData;
    ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    g_recs.clear();
    std::vector<uint8_t> m(20, 0);
    m[1] = 20 + 28 + 20;
    m[2] = 0x01;
    m[3] = ZAN_VRRP_MSG_RU_DATA;
    const std::vector<uint8_t> body = Cat({Rec(3003, kKey2, kData), Rec(3002, {0x0b, 0xb9, 0, 8, 0x03, 0xe9, 0, 0}, {})});
    m.insert(m.end(), body.begin(), body.end());
    ASSERT_TRUE(host::DeliverMsg(0x10, m));
    ASSERT_EQ(g_recs.size(), 2u);
    EXPECT_EQ(g_recs[0].key, kKey2);
    EXPECT_EQ(g_recs[1].key, (std::vector<uint8_t>{0x0b, 0xb9, 0, 8, 0x03, 0xe9, 0, 0}));
    EXPECT_EQ(g_recs[1].dataLen, 0u);
    EXPECT_TRUE(g_recs[1].data.empty());
}

}  // namespace
