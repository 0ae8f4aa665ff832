// The host's red-black tree against std::map under random operations, with a full invariant
// check after every change.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "host/host_world.h"

namespace {

struct Item {
    ZAN_RBT_NODE_S node;   // first member: the item's address is the node's
    uint32_t key;
};

uint32_t CmpItem(const ZAN_RBT_NODE_S *pNode, const void *pKey)
{
    const uint32_t nodeKey = reinterpret_cast<const Item *>(pNode)->key;
    const uint32_t key = *static_cast<const uint32_t *>(pKey);
    if (nodeKey == key) {
        return 0;
    }
    return nodeKey > key ? 1u : 2u;
}

uint32_t KeyOf(const ZAN_RBT_NODE_S *n)
{
    return reinterpret_cast<const Item *>(n)->key;
}

void InitHead(ZAN_RBT_HEAD_S *h)
{
    h->pRoot = &h->stNil;
    h->stNil.pLeft = nullptr;
    h->stNil.pRight = nullptr;
    h->stNil.pParent = nullptr;
    h->stNil.ulColor = ZAN_RBT_BLACK;
    h->ulCount = 0;
    h->ulRsv = 0;
}

// Checks one subtree; returns its black height (sentinel counts 1), or -1 after a failure.
int CheckSubtree(const ZAN_RBT_HEAD_S *h, const ZAN_RBT_NODE_S *n, const ZAN_RBT_NODE_S *parent, const uint32_t *lo,
                 const uint32_t *hi, uint32_t &count)
{
    const ZAN_RBT_NODE_S *nil = &h->stNil;
    if (n == nil) {
        return 1;
    }
    count++;
    EXPECT_NE(n, nullptr);
    if (n == nullptr) {
        return -1;
    }
    EXPECT_EQ(n->pParent, parent) << "parent link of key " << KeyOf(n);
    EXPECT_TRUE(n->ulColor == ZAN_RBT_RED || n->ulColor == ZAN_RBT_BLACK);
    if (lo != nullptr) {
        EXPECT_GT(KeyOf(n), *lo);
    }
    if (hi != nullptr) {
        EXPECT_LT(KeyOf(n), *hi);
    }
    if (n->ulColor == ZAN_RBT_RED) {
        EXPECT_EQ(n->pLeft->ulColor, ZAN_RBT_BLACK) << "red-red at key " << KeyOf(n);
        EXPECT_EQ(n->pRight->ulColor, ZAN_RBT_BLACK) << "red-red at key " << KeyOf(n);
    }
    const uint32_t key = KeyOf(n);
    const int left = CheckSubtree(h, n->pLeft, n, lo, &key, count);
    const int right = CheckSubtree(h, n->pRight, n, &key, hi, count);
    EXPECT_EQ(left, right) << "black height differs below key " << key;
    if (left < 0 || right < 0 || left != right) {
        return -1;
    }
    return left + (n->ulColor == ZAN_RBT_BLACK ? 1 : 0);
}

// Every red-black property, the sentinel's resting form, the count, and the in-order walk
// (First/Next) against the reference map.
void CheckTree(ZAN_RBT_HEAD_S *h, const std::map<uint32_t, Item *> &ref)
{
    ASSERT_NE(h->pRoot, nullptr);
    EXPECT_EQ(h->stNil.pLeft, nullptr);
    EXPECT_EQ(h->stNil.pRight, nullptr);
    EXPECT_EQ(h->stNil.pParent, nullptr);
    EXPECT_EQ(h->stNil.ulColor, ZAN_RBT_BLACK);
    EXPECT_EQ(h->pRoot->ulColor, ZAN_RBT_BLACK);
    uint32_t count = 0;
    const int bh = CheckSubtree(h, h->pRoot, &h->stNil, nullptr, nullptr, count);
    EXPECT_GT(bh, 0);
    EXPECT_EQ(count, ref.size());
    EXPECT_EQ(h->ulCount, ref.size());

    std::vector<uint32_t> walked;
    for (ZAN_RBT_NODE_S *n = WUX_RBT_FirstNode(h); n != nullptr; n = WUX_RBT_NextNode(h, n)) {
        walked.push_back(KeyOf(n));
        if (walked.size() > ref.size()) {
            break;
        }
    }
    std::vector<uint32_t> expected;
    for (const auto &e : ref) {
        expected.push_back(e.first);
    }
    EXPECT_EQ(walked, expected);
}

class HostRbtTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::Reset();
        InitHead(&head);
    }

    Item *NewItem(uint32_t key)
    {
        items.push_back(std::make_unique<Item>());
        items.back()->key = key;
        return items.back().get();
    }

    ZAN_RBT_HEAD_S head{};
    std::vector<std::unique_ptr<Item>> items;
};

TEST_F(HostRbtTest, EmptyHeadAsTheOwnerInitialisesIt)
{
    const uint32_t key = 5;
    EXPECT_EQ(WUX_RBT_FirstNode(&head), nullptr);
    EXPECT_EQ(ZAN_RBT_LookupNode(&head, &key, CmpItem), nullptr);
    CheckTree(&head, {});
}

TEST_F(HostRbtTest, AddRefusesEqualKeyAndKeepsTheFirstNode)
{
    Item *a = NewItem(7);
    Item *b = NewItem(7);
    EXPECT_EQ(ZAN_RBT_AddNode(&head, &a->node, &a->key, CmpItem), 0u);
    EXPECT_NE(ZAN_RBT_AddNode(&head, &b->node, &b->key, CmpItem), 0u);
    EXPECT_EQ(head.ulCount, 1u);
    const uint32_t key = 7;
    EXPECT_EQ(ZAN_RBT_LookupNode(&head, &key, CmpItem), &a->node);
    CheckTree(&head, {{7, a}});
}

TEST_F(HostRbtTest, ClearTreeReturnsTheHeadToItsEmptyForm)
{
    std::map<uint32_t, Item *> ref;
    for (uint32_t k = 0; k < 50; k++) {
        Item *it = NewItem(k * 3);
        ASSERT_EQ(ZAN_RBT_AddNode(&head, &it->node, &it->key, CmpItem), 0u);
        ref[k * 3] = it;
    }
    CheckTree(&head, ref);
    WUX_RBT_ClearTree(&head);
    EXPECT_EQ(head.pRoot, &head.stNil);
    EXPECT_EQ(head.ulCount, 0u);
    EXPECT_EQ(head.ulRsv, 0u);
    EXPECT_EQ(WUX_RBT_FirstNode(&head), nullptr);
    CheckTree(&head, {});
    // The items can go into the cleared tree again.
    Item *again = ref[9];
    EXPECT_EQ(ZAN_RBT_AddNode(&head, &again->node, &again->key, CmpItem), 0u);
    CheckTree(&head, {{9, again}});
}

TEST_F(HostRbtTest, RemovingANodeNotInTheTreeIsAFaultAndChangesNothing)
{
    Item *a = NewItem(1);
    Item *b = NewItem(2);
    ASSERT_EQ(ZAN_RBT_AddNode(&head, &a->node, &a->key, CmpItem), 0u);
    ASSERT_EQ(ZAN_RBT_AddNode(&head, &b->node, &b->key, CmpItem), 0u);
    WUX_RBT_RemoveNode(&head, &b->node);
    EXPECT_EQ(host::Faults(), 0u);
    WUX_RBT_RemoveNode(&head, &b->node);
    EXPECT_EQ(host::Faults(), 1u);

    ZAN_RBT_HEAD_S other{};
    InitHead(&other);
    Item *c = NewItem(3);
    ASSERT_EQ(ZAN_RBT_AddNode(&other, &c->node, &c->key, CmpItem), 0u);
    WUX_RBT_RemoveNode(&head, &c->node);
    EXPECT_EQ(host::Faults(), 2u);
    CheckTree(&head, {{1, a}});
    CheckTree(&other, {{3, c}});
}

TEST_F(HostRbtTest, AscendingAndDescendingInsertionsStayBalanced)
{
    for (bool ascending : {true, false}) {
        InitHead(&head);
        std::map<uint32_t, Item *> ref;
        const uint32_t n = 1000;
        for (uint32_t i = 0; i < n; i++) {
            const uint32_t k = ascending ? i : n - i;
            Item *it = NewItem(k);
            ASSERT_EQ(ZAN_RBT_AddNode(&head, &it->node, &it->key, CmpItem), 0u);
            ref[k] = it;
        }
        CheckTree(&head, ref);
        // Height bound of a red-black tree: 2*log2(n+1).
        uint32_t height = 0;
        for (const auto &e : ref) {
            uint32_t depth = 1;
            for (const ZAN_RBT_NODE_S *p = &e.second->node; p->pParent != &head.stNil; p = p->pParent) {
                depth++;
            }
            height = std::max(height, depth);
        }
        EXPECT_LE(height, static_cast<uint32_t>(2.0 * std::log2(n + 1.0)));
    }
}

TEST_F(HostRbtTest, RandomOperationsMatchStdMap)
{
    std::mt19937 rng(20240611u);
    std::map<uint32_t, Item *> ref;
    std::uniform_int_distribution<uint32_t> keyDist(0, 700);
    std::uniform_int_distribution<int> opDist(0, 9);
    for (int step = 0; step < 6000; step++) {
        const int op = opDist(rng);
        const uint32_t key = keyDist(rng);
        if (op < 5) {
            Item *it = NewItem(key);
            const uint32_t ret = ZAN_RBT_AddNode(&head, &it->node, &it->key, CmpItem);
            const bool present = ref.count(key) != 0u;
            ASSERT_EQ(ret != 0u, present) << "step " << step;
            if (!present) {
                ref[key] = it;
            }
        } else if (op < 8) {
            auto found = ref.lower_bound(key);
            if (found == ref.end()) {
                continue;
            }
            WUX_RBT_RemoveNode(&head, &found->second->node);
            EXPECT_EQ(found->second->node.pParent, nullptr);
            ref.erase(found);
        } else {
            ZAN_RBT_NODE_S *n = ZAN_RBT_LookupNode(&head, &key, CmpItem);
            auto found = ref.find(key);
            ASSERT_EQ(n, found == ref.end() ? nullptr : &found->second->node) << "step " << step;
        }
        CheckTree(&head, ref);
        if (HasFailure()) {
            FAIL() << "after step " << step;
        }
    }
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostRbtTest, RemovalDuringIterationVisitsEveryNodeOnce)
{
    struct Case {
        const char *name;
        bool (*removeIt)(uint32_t key);
    };
    const Case cases[] = {
        {"every node", [](uint32_t) { return true; }},
        {"odd keys", [](uint32_t k) { return (k % 2u) == 1u; }},
        {"every third", [](uint32_t k) { return (k % 3u) == 0u; }},
        {"none", [](uint32_t) { return false; }},
    };
    std::mt19937 rng(77u);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        InitHead(&head);
        std::map<uint32_t, Item *> ref;
        while (ref.size() < 500u) {
            const uint32_t k = rng() % 100000u;
            if (ref.count(k) != 0u) {
                continue;
            }
            Item *it = NewItem(k);
            ASSERT_EQ(ZAN_RBT_AddNode(&head, &it->node, &it->key, CmpItem), 0u);
            ref[k] = it;
        }
        std::vector<uint32_t> visited;
        ZAN_RBT_NODE_S *n = WUX_RBT_FirstNode(&head);
        while (n != nullptr) {
            ZAN_RBT_NODE_S *next = WUX_RBT_NextNode(&head, n);
            const uint32_t k = KeyOf(n);
            visited.push_back(k);
            if (c.removeIt(k)) {
                WUX_RBT_RemoveNode(&head, n);
                ref.erase(k);
            }
            n = next;
        }
        EXPECT_EQ(visited.size(), 500u);
        EXPECT_TRUE(std::is_sorted(visited.begin(), visited.end()));
        CheckTree(&head, ref);
    }
}

}  // namespace
