// The producer's data part store: replacement by part key, time order, the wait-ack list and
// cursor walks that tolerate moving or deleting the returned part. (Traces, refused allocations
// and the release of everything held are checked by the prod_*.zvs scripts.)
#include <functional>
#include <random>
#include <tuple>

#include "lib_fixture.h"

namespace {

using Entry = std::tuple<uint32_t, uint16_t, uint32_t>;  // key word, data length, first data word

class ProdParts : public libtest::LibTest {
protected:
    void SetUp() override
    {
        LibTest::SetUp();
        ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
        inst = libtest::Inst(0x10);
        ASSERT_TRUE(inst != nullptr && inst->pProd != nullptr);
        inst->pProd->State = VRRP_PROD_STATE_BN_DATA;  // parts are stored in states 4 and 5 only
    }

    uint32_t Send(uint32_t word, uint16_t dlen = 8, uint32_t dval = 0, uint16_t ktype = 3001, uint16_t klen = 8,
                  uint16_t dtype = 1001)
    {
        std::vector<uint8_t> k(12, 7), d(8, 0);
        std::memcpy(k.data(), &word, 4);
        std::memcpy(d.data(), &dval, 4);
        const ZAN_VRRP_TLV_S key = libtest::Tlv(ktype, klen, k), data = libtest::Tlv(dtype, dlen, d);
        return ZAN_VrrpProd_SendData(host::Ctx(), inst, &key, &data);
    }

    // Walks the time list or the wait-ack list, calling act on each part after reading it.
    std::vector<Entry> Walk(bool waitAck, const std::function<void(ZAN_VRRP_PART_S *)> &act = nullptr)
    {
        auto first = waitAck ? ZAN_VrrpProd_GetFirstWaitAckPart_ : ZAN_VrrpProd_GetFirstPartByTime_;
        auto next = waitAck ? ZAN_VrrpProd_GetNextWaitAckPart_ : ZAN_VrrpProd_GetNextPartByTime_;
        std::vector<Entry> out;
        ZAN_LIST_LINK_S *cursor = nullptr;
        for (auto *p = first(host::Ctx(), inst, &cursor); p != nullptr; p = next(host::Ctx(), inst, &cursor)) {
            const uint8_t *tlv = ZAN_VrrpProd_PartTlv(p);
            Entry e{0, 0, 0};
            std::memcpy(&std::get<0>(e), tlv + 4, 4);
            std::memcpy(&std::get<1>(e), tlv + 14, 2);
            if (std::get<1>(e) == 8) std::memcpy(&std::get<2>(e), tlv + 16, 4);
            out.push_back(e);
            if (act) act(p);
        }
        return out;
    }
    void Del(ZAN_VRRP_PART_S *p) { ZAN_VrrpProd_DelPart_(host::Ctx(), inst, p); }
    uint32_t Move(ZAN_VRRP_PART_S *p) { return ZAN_VrrpProd_MovePart2WaitAck_(host::Ctx(), inst, p); }
    size_t TreeCount()
    {
        size_t n = 0;
        ZAN_RBT_HEAD_S *tree = &inst->pProd->stPartTree;
        for (ZAN_RBT_NODE_S *node = WUX_RBT_FirstNode(tree); node != nullptr; node = WUX_RBT_NextNode(tree, node)) n++;
        return n;
    }

    ZAN_VRRP_INST_S *inst = nullptr;
};

TEST_F(ProdParts, SameKeyAndDataLengthReplacesAndGoesToTheTail)
{
    ASSERT_EQ(Send(1, 8, 100), 0u);
    ASSERT_EQ(Send(2, 8, 200), 0u);
    ASSERT_EQ(Send(1, 8, 101), 0u);
    ASSERT_EQ(Send(1, 0), 0u);  // no data: another part
    EXPECT_EQ(Walk(false), (std::vector<Entry>{{2, 8, 200}, {1, 8, 101}, {1, 0, 0}}));
}

TEST_F(ProdParts, InvalidDataIsRefusedAndNotStored)
{
    const uint16_t cases[][4] = {{3001, 4, 1001, 8}, {3001, 12, 1001, 8}, {3000, 8, 1001, 8},
                                 {3001, 8, 1000, 0}, {3001, 8, 1001, 4},  {3001, 8, 1001, 9}};
    for (const auto &[ktype, klen, dtype, dlen] : cases) {
        EXPECT_EQ(Send(1, dlen, 0, ktype, klen, dtype), ZAN_VRRP_ALL_ONES) << ktype << " " << klen << " " << dtype;
    }
    EXPECT_TRUE(Walk(false).empty());
}

TEST_F(ProdParts, DataIsStoredOnlyDuringTheBatchAndTheRealTimeNotification)
{
    for (const uint8_t state : {1, 2, 3, 4, 5}) {
        inst->pProd->State = state;
        EXPECT_EQ(Send(state), 0u);
    }
    EXPECT_EQ(Walk(false), (std::vector<Entry>{{4, 8, 0}, {5, 8, 0}}));
}

// A part waiting for its acknowledgement leaves the lookup: the same datum again is stored beside
// it. Walks that delete every part visit each once, in time order.
TEST_F(ProdParts, WaitingPartsStayBesideNewVersionsAndWalksDeleteThemAll)
{
    std::vector<Entry> sent;
    for (uint32_t i = 0; i < 50; i++) {
        sent.emplace_back((i * 7919u) % 1000u + 1u, 8, i);  // stored out of key order
        ASSERT_EQ(Send(std::get<0>(sent.back()), 8, i), 0u);
    }
    Walk(false, [&](ZAN_VRRP_PART_S *p) { EXPECT_EQ(Move(p), 0u); });
    Walk(true, [&](ZAN_VRRP_PART_S *p) { EXPECT_EQ(Move(p), ZAN_VRRP_ALL_ONES); });  // waits already
    EXPECT_EQ(TreeCount(), 0u);
    for (const auto &[word, dlen, dval] : sent) ASSERT_EQ(Send(word, dlen, dval), 0u);
    for (const bool waitAck : {false, true}) {
        EXPECT_EQ(Walk(waitAck, [&](ZAN_VRRP_PART_S *p) { Del(p); }), sent);
        EXPECT_TRUE(Walk(waitAck).empty());
    }
    EXPECT_EQ(TreeCount(), 0u);
}

// Keys that differ in one value byte only, at every position, or in the data length alone are
// all distinct parts; sending each again replaces only its own part. The tree is in the order of
// ZAN_VrrpProd_CmpPart_.
TEST_F(ProdParts, EveryKeyByteAndTheDataLengthTellPartsApart)
{
    struct Key {
        std::vector<uint8_t> value;
        uint16_t dlen;
    };
    std::vector<Key> keys;
    for (uint32_t pos = 0; pos < 8; pos++) {
        for (const uint8_t b : {0x00, 0x01, 0x80, 0xff}) {
            for (const uint16_t dlen : {0, 8}) {
                std::vector<uint8_t> v(8, 0x55);
                v[pos] = b;
                keys.push_back({v, dlen});
            }
        }
    }
    auto send = [&](const Key &k, uint32_t dval) {
        std::vector<uint8_t> d(8, 0);
        std::memcpy(d.data(), &dval, 4);
        const ZAN_VRRP_TLV_S key = libtest::Tlv(3001, 8, k.value), data = libtest::Tlv(1001, k.dlen, d);
        return ZAN_VrrpProd_SendData(host::Ctx(), inst, &key, &data);
    };
    for (uint32_t i = 0; i < keys.size(); i++) ASSERT_EQ(send(keys[i], i), 0u);
    const size_t distinct = keys.size();  // no byte above is 0x55: every key differs
    EXPECT_EQ(Walk(false).size(), distinct);
    EXPECT_EQ(TreeCount(), distinct);
    for (uint32_t i = 0; i < keys.size(); i++) ASSERT_EQ(send(keys[i], 1000 + i), 0u);
    EXPECT_EQ(Walk(false).size(), distinct);
    ZAN_RBT_HEAD_S *tree = &inst->pProd->stPartTree;
    ZAN_RBT_NODE_S *prev = nullptr;
    for (ZAN_RBT_NODE_S *node = WUX_RBT_FirstNode(tree); node != nullptr; node = WUX_RBT_NextNode(tree, node)) {
        if (prev != nullptr) {
            auto *part = reinterpret_cast<ZAN_VRRP_PART_S *>(reinterpret_cast<uint8_t *>(node) -
                                                              offsetof(ZAN_VRRP_PART_S, stTreeNode));
            const uint8_t *key = ZAN_VrrpProd_PartTlv(part);
            EXPECT_EQ(ZAN_VrrpProd_CmpPart_(prev, key), 2u) << "tree out of order";
        }
        prev = node;
    }
}

// Random stores and walks that move or delete parts, against a model of the two lists.
TEST_F(ProdParts, RandomOperationsMatchAModel)
{
    std::mt19937 rng(12345);
    std::vector<Entry> timeList, waitList;
    for (int step = 0; step < 3000; step++) {
        const uint32_t op = rng() % 10;
        if (op < 7) {
            const uint32_t word = rng() % 40, dlen = rng() % 2 * 8, dval = dlen == 8 ? rng() : 0;
            ASSERT_EQ(Send(word, uint16_t(dlen), dval), 0u);
            std::erase_if(timeList, [&](const Entry &e) { return std::get<0>(e) == word && std::get<1>(e) == dlen; });
            timeList.emplace_back(word, dlen, dval);
        } else {  // a walk of the time list moving or deleting parts, or of the wait-ack list deleting some
            const bool waitAck = op == 9;
            std::vector<Entry> &list = waitAck ? waitList : timeList;
            std::vector<Entry> kept;
            size_t i = 0;
            Walk(waitAck, [&](ZAN_VRRP_PART_S *p) {
                const uint32_t what = rng() % 3;
                if (what == 0) {
                    Del(p);
                } else if (what == 1 && !waitAck) {
                    EXPECT_EQ(Move(p), 0u);
                    waitList.push_back(list[i]);
                } else {
                    kept.push_back(list[i]);
                }
                i++;
            });
            list = kept;
        }
        ASSERT_EQ(Walk(false), timeList) << "step " << step;
        ASSERT_EQ(Walk(true), waitList) << "step " << step;
        ASSERT_EQ(TreeCount(), timeList.size());
    }
}

}  // namespace
