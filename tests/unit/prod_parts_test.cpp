// The producer's data part store: replacement by part key, time order, the wait-ack list and
// cursor walks that tolerate deletion of the returned part.
#include <map>
#include <random>

#include "lib_fixture.h"

namespace {

using libtest::Tlv;

class ProdParts : public libtest::LibTest {
protected:
    void SetUp() override
    {
        LibTest::SetUp();
        ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
        inst = libtest::Inst(0x10);
        ASSERT_NE(inst, nullptr);
        ASSERT_NE(inst->pProd, nullptr);
        ctx = host::Ctx();
        // Parts are stored only while a batch or real-time notification runs.
        inst->pProd->State = VRRP_PROD_STATE_BN_DATA;
    }

    static std::vector<uint8_t> KeyValue(uint32_t word, uint8_t b)
    {
        std::vector<uint8_t> v(8, 0);
        std::memcpy(v.data(), &word, 4);
        v[4] = b;
        return v;
    }

    uint32_t Send(uint32_t word, uint16_t dlen = 8, uint32_t dval = 0)
    {
        ZAN_VRRP_TLV_S key = Tlv(3001, 8, KeyValue(word, 7));
        std::vector<uint8_t> d(8, 0);
        std::memcpy(d.data(), &dval, 4);
        ZAN_VRRP_TLV_S data = Tlv(1001, dlen, d);
        return ZAN_VrrpProd_SendData(ctx, inst, &key, &data);
    }

    static uint32_t WordOf(ZAN_VRRP_PART_S *part)
    {
        uint32_t w;
        std::memcpy(&w, ZAN_VrrpProd_PartTlv(part) + 4, 4);
        return w;
    }

    static uint32_t DataOf(ZAN_VRRP_PART_S *part)
    {
        uint32_t w;
        std::memcpy(&w, ZAN_VrrpProd_PartTlv(part) + 16, 4);
        return w;
    }

    std::vector<uint32_t> TimeOrder()
    {
        std::vector<uint32_t> words;
        ZAN_LIST_LINK_S *cursor = nullptr;
        for (ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor); p != nullptr;
             p = ZAN_VrrpProd_GetNextPartByTime_(ctx, inst, &cursor)) {
            words.push_back(WordOf(p));
        }
        return words;
    }

    std::vector<uint32_t> WaitAckOrder()
    {
        std::vector<uint32_t> words;
        ZAN_LIST_LINK_S *cursor = nullptr;
        for (ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstWaitAckPart_(ctx, inst, &cursor); p != nullptr;
             p = ZAN_VrrpProd_GetNextWaitAckPart_(ctx, inst, &cursor)) {
            words.push_back(WordOf(p));
        }
        return words;
    }

    uint32_t TreeCount()
    {
        uint32_t n = 0;
        for (ZAN_RBT_NODE_S *node = WUX_RBT_FirstNode(&inst->pProd->stPartTree); node != nullptr;
             node = WUX_RBT_NextNode(&inst->pProd->stPartTree, node)) {
            n++;
        }
        return n;
    }

    ZAN_VRRP_INST_S *inst = nullptr;
    ZAN_COMP_CTX_S *ctx = nullptr;
};

TEST_F(ProdParts, WalkThatDeletesEveryPartVisitsEachOnceInTimeOrder)
{
    std::vector<uint32_t> sent;
    for (uint32_t i = 0; i < 50; i++) {
        const uint32_t word = (i * 7919u) % 1000u + 1u;  // stored out of key order
        ASSERT_EQ(Send(word), 0u);
        sent.push_back(word);
    }
    std::vector<uint32_t> visited;
    ZAN_LIST_LINK_S *cursor = nullptr;
    for (ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor); p != nullptr;
         p = ZAN_VrrpProd_GetNextPartByTime_(ctx, inst, &cursor)) {
        visited.push_back(WordOf(p));
        ZAN_VrrpProd_DelPart_(ctx, inst, p);
    }
    EXPECT_EQ(visited, sent);
    EXPECT_EQ(ZAN_VrrpProd_CountList_(&inst->pProd->stPartList), 0u);
    EXPECT_EQ(TreeCount(), 0u);
}

TEST_F(ProdParts, MovingEveryPartToWaitAckKeepsOrderAndHidesThemFromLookup)
{
    for (uint32_t w : {5u, 3u, 9u}) {
        ASSERT_EQ(Send(w), 0u);
    }
    ZAN_LIST_LINK_S *cursor = nullptr;
    for (ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor); p != nullptr;
         p = ZAN_VrrpProd_GetNextPartByTime_(ctx, inst, &cursor)) {
        EXPECT_EQ(ZAN_VrrpProd_MovePart2WaitAck_(ctx, inst, p), 0u);
    }
    EXPECT_TRUE(TimeOrder().empty());
    EXPECT_EQ(WaitAckOrder(), (std::vector<uint32_t>{5, 3, 9}));
    EXPECT_EQ(TreeCount(), 0u);

    // A part that already waits cannot move again, and nothing changes.
    ZAN_VRRP_PART_S *first = ZAN_VrrpProd_GetFirstWaitAckPart_(ctx, inst, &cursor);
    ASSERT_NE(first, nullptr);
    libtest::Rec().debug.clear();
    EXPECT_EQ(ZAN_VrrpProd_MovePart2WaitAck_(ctx, inst, first), ZAN_VRRP_ALL_ONES);
    EXPECT_EQ(WaitAckOrder(), (std::vector<uint32_t>{5, 3, 9}));
    ASSERT_FALSE(libtest::Rec().debug.empty());
    EXPECT_EQ(libtest::Rec().debug.back(), "vrrp prod, MovePart2WaitAck_ ng, 5, 7, 1");

    // A new version of a waiting datum is stored beside it.
    ASSERT_EQ(Send(3), 0u);
    EXPECT_EQ(TimeOrder(), (std::vector<uint32_t>{3}));
    EXPECT_EQ(ZAN_VrrpProd_CountList_(&inst->pProd->stWaitAckList), 3u);
}

TEST_F(ProdParts, ReplacementAndPartKeyIncludeTheDataLength)
{
    ASSERT_EQ(Send(1, 8, 100), 0u);
    ASSERT_EQ(Send(2, 8, 200), 0u);
    ASSERT_EQ(Send(1, 8, 101), 0u);  // replaces the unsent datum and goes to the tail
    EXPECT_EQ(TimeOrder(), (std::vector<uint32_t>{2, 1}));
    ZAN_LIST_LINK_S *cursor = nullptr;
    ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor);
    ZAN_VRRP_PART_S *tail = ZAN_VrrpProd_GetNextPartByTime_(ctx, inst, &cursor);
    ASSERT_NE(tail, nullptr);
    EXPECT_EQ(DataOf(tail), 101u);

    ASSERT_EQ(Send(1, 0), 0u);  // same key TLV without data: another part
    EXPECT_EQ(TimeOrder(), (std::vector<uint32_t>{2, 1, 1}));
    EXPECT_EQ(TreeCount(), 3u);
}

struct InvalidDatum {
    uint16_t ktype, klen, dtype, dlen;
    const char *text;
};

TEST_F(ProdParts, InvalidDataIsRefusedWithItsTrace)
{
    const InvalidDatum cases[] = {
        {3001, 4, 1001, 8, "vrrp prod, SendData, data is invalid, (3001, 4), (1001, 8)"},
        {3000, 8, 1001, 8, "vrrp prod, SendData, data is invalid, (3000, 8), (1001, 8)"},
        {3001, 8, 1000, 0, "vrrp prod, SendData, data is invalid, (3001, 8), (1000, 0)"},
        {3001, 8, 1001, 4, "vrrp prod, SendData, data is invalid, (3001, 8), (1001, 4)"},
        {3001, 12, 1001, 8, "vrrp prod, SendData, data is invalid, (3001, 12), (1001, 8)"},
    };
    for (const InvalidDatum &c : cases) {
        SCOPED_TRACE(c.text);
        ZAN_VRRP_TLV_S key = Tlv(c.ktype, c.klen, std::vector<uint8_t>(12, 1));
        ZAN_VRRP_TLV_S data = Tlv(c.dtype, c.dlen, std::vector<uint8_t>(8, 2));
        libtest::Rec().debug.clear();
        EXPECT_EQ(ZAN_VrrpProd_SendData(ctx, inst, &key, &data), ZAN_VRRP_ALL_ONES);
        ASSERT_EQ(libtest::Rec().debug.size(), 1u);
        EXPECT_EQ(libtest::Rec().debug[0], c.text);
    }
    EXPECT_TRUE(TimeOrder().empty());
}

TEST_F(ProdParts, DataOutsideTheBatchStatesIsDropped)
{
    for (uint8_t state : {1, 2, 3}) {
        inst->pProd->State = state;
        EXPECT_EQ(Send(4), 0u);
        EXPECT_TRUE(TimeOrder().empty());
    }
    inst->pProd->State = VRRP_PROD_STATE_RN_DATA;
    EXPECT_EQ(Send(4), 0u);
    EXPECT_EQ(TimeOrder(), (std::vector<uint32_t>{4}));
}

TEST_F(ProdParts, AllocationFailureStoresNothingAndStillAnswersZero)
{
    ASSERT_EQ(Send(1, 8, 1), 0u);
    host::ArmFail(host::FailKind::Malloc, 0, 1, host::Ctx()->ulFwMemHandle);
    libtest::Rec().debug.clear();
    EXPECT_EQ(Send(1, 8, 2), 0u);
    EXPECT_TRUE(TimeOrder().empty());  // the older version was deleted before the allocation
    ASSERT_FALSE(libtest::Rec().debug.empty());
    EXPECT_EQ(libtest::Rec().debug.back(), "vrrp prod, AddPart_, malloc ng, 1, 7");
}

TEST_F(ProdParts, ResetFreesBothListsAndIsHarmlessTwice)
{
    for (uint32_t w = 1; w <= 6; w++) {
        ASSERT_EQ(Send(w), 0u);
    }
    ZAN_LIST_LINK_S *cursor = nullptr;
    ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor);
    ASSERT_EQ(ZAN_VrrpProd_MovePart2WaitAck_(ctx, inst, p), 0u);
    const uint32_t before = host::BlocksOn(host::Ctx()->ulFwMemHandle);
    EXPECT_EQ(ZAN_VrrpProd_Reset_(ctx, inst), 0u);
    EXPECT_EQ(host::BlocksOn(host::Ctx()->ulFwMemHandle), before - 6u);
    EXPECT_EQ(ZAN_VrrpProd_Reset_(ctx, inst), 0u);
    EXPECT_EQ(inst->pProd->State, VRRP_PROD_STATE_INIT);
    EXPECT_EQ(inst->pProd->seq, 1u);
    EXPECT_TRUE(TimeOrder().empty());
    EXPECT_TRUE(WaitAckOrder().empty());
}

TEST_F(ProdParts, ComparisonIsByHostOrderWordsInKeyOrder)
{
    ASSERT_EQ(Send(0x100), 0u);
    ZAN_LIST_LINK_S *cursor = nullptr;
    ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor);
    uint8_t key[16];
    std::memcpy(key, ZAN_VrrpProd_PartTlv(p), 16);
    EXPECT_EQ(ZAN_VrrpProd_CmpPart_(&p->stTreeNode, key), 0u);
    uint32_t w = 0x0FF;
    std::memcpy(key + 4, &w, 4);
    EXPECT_EQ(ZAN_VrrpProd_CmpPart_(&p->stTreeNode, key), 1u);
    w = 0x101;
    std::memcpy(key + 4, &w, 4);
    EXPECT_EQ(ZAN_VrrpProd_CmpPart_(&p->stTreeNode, key), 2u);
    EXPECT_EQ(ZAN_VrrpProd_FindPart_(ctx, inst, key), nullptr);
}

// Random stores, moves and deletions against a plain model of the three containers.
TEST_F(ProdParts, RandomOperationsMatchAModel)
{
    std::mt19937 rng(12345);
    std::vector<std::pair<uint32_t, uint32_t>> timeList;  // (word, dlen)
    std::vector<std::pair<uint32_t, uint32_t>> waitList;
    for (int step = 0; step < 3000; step++) {
        const uint32_t op = rng() % 10;
        if (op < 6) {
            const uint32_t word = rng() % 40;
            const uint16_t dlen = (rng() % 2) ? 8 : 0;
            ASSERT_EQ(Send(word, dlen), 0u);
            std::erase(timeList, std::make_pair(word, (uint32_t)dlen));
            timeList.emplace_back(word, dlen);
        } else if (op < 8 && !timeList.empty()) {
            const size_t idx = rng() % timeList.size();
            ZAN_LIST_LINK_S *cursor = nullptr;
            ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstPartByTime_(ctx, inst, &cursor);
            for (size_t i = 0; i < idx; i++) {
                p = ZAN_VrrpProd_GetNextPartByTime_(ctx, inst, &cursor);
            }
            ASSERT_EQ(ZAN_VrrpProd_MovePart2WaitAck_(ctx, inst, p), 0u);
            waitList.push_back(timeList[idx]);
            timeList.erase(timeList.begin() + (long)idx);
        } else if (!waitList.empty()) {
            ZAN_LIST_LINK_S *cursor = nullptr;
            ZAN_VRRP_PART_S *p = ZAN_VrrpProd_GetFirstWaitAckPart_(ctx, inst, &cursor);
            ZAN_VrrpProd_DelPart_(ctx, inst, p);
            waitList.erase(waitList.begin());
        }
        if (step % 100 == 0) {
            std::vector<uint32_t> words;
            for (auto &e : timeList) {
                words.push_back(e.first);
            }
            ASSERT_EQ(TimeOrder(), words);
            ASSERT_EQ(TreeCount(), timeList.size());
            ASSERT_EQ(ZAN_VrrpProd_CountList_(&inst->pProd->stWaitAckList), waitList.size());
        }
    }
}

}  // namespace
