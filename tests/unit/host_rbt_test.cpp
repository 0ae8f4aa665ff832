// The host's red-black tree against std::map under random operations: insert (equal keys
// refused), lookup, remove (also while walking), First/Next order and clear, with the head's
// empty form checked after every step.
#include <gtest/gtest.h>

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

uint32_t KeyOf(const ZAN_RBT_NODE_S *n) { return reinterpret_cast<const Item *>(n)->key; }

uint32_t CmpItem(const ZAN_RBT_NODE_S *pNode, const void *pKey)
{
    const uint32_t key = *static_cast<const uint32_t *>(pKey);
    return KeyOf(pNode) == key ? 0u : (KeyOf(pNode) > key ? 1u : 2u);
}

TEST(HostRbtTest, RandomOperationsMatchStdMap)
{
    host::Reset();
    ZAN_RBT_HEAD_S head{};   // the empty form an owner gives its head
    head.pRoot = &head.stNil;
    head.stNil.ulColor = ZAN_RBT_BLACK;
    std::vector<std::unique_ptr<Item>> items;
    std::map<uint32_t, Item *> ref;
    std::mt19937 rng(20240611u);
    for (int step = 0; step < 6000; step++) {
        const uint32_t op = rng() % 100u;
        const uint32_t key = rng() % 700u;
        SCOPED_TRACE(testing::Message() << "step " << step << ", op " << op << ", key " << key);
        if (op < 50) {   // insert; an equal key is refused and the first node stays
            items.push_back(std::make_unique<Item>(Item{{}, key}));
            const bool present = ref.count(key) != 0u;
            ASSERT_EQ(ZAN_RBT_AddNode(&head, &items.back()->node, &key, CmpItem) != 0u, present);
            ref.emplace(key, items.back().get());
        } else if (op < 80) {   // remove the first node at or after key
            if (auto it = ref.lower_bound(key); it != ref.end()) {
                WUX_RBT_RemoveNode(&head, &it->second->node);
                ref.erase(it);
            }
        } else if (op < 98) {   // lookup
            auto it = ref.find(key);
            ASSERT_EQ(ZAN_RBT_LookupNode(&head, &key, CmpItem), it == ref.end() ? nullptr : &it->second->node);
        } else if (op < 99) {   // walk and remove every node whose key is a multiple of m
            const uint32_t m = 1u + rng() % 4u;
            for (ZAN_RBT_NODE_S *n = WUX_RBT_FirstNode(&head), *next = nullptr; n != nullptr; n = next) {
                next = WUX_RBT_NextNode(&head, n);
                if (KeyOf(n) % m == 0u) {
                    ref.erase(KeyOf(n));
                    WUX_RBT_RemoveNode(&head, n);
                }
            }
        } else {
            WUX_RBT_ClearTree(&head);
            ref.clear();
        }
        // The sentinel rests in the form the owner gave it; an empty tree's root is the sentinel.
        ASSERT_TRUE(head.stNil.pLeft == nullptr && head.stNil.pRight == nullptr && head.stNil.pParent == nullptr &&
                    head.stNil.ulColor == ZAN_RBT_BLACK);
        ASSERT_EQ(ref.empty(), head.pRoot == &head.stNil);
        ASSERT_EQ(head.ulCount, ref.size());
        auto it = ref.begin();
        for (ZAN_RBT_NODE_S *n = WUX_RBT_FirstNode(&head); n != nullptr; n = WUX_RBT_NextNode(&head, n), ++it) {
            ASSERT_TRUE(it != ref.end() && n == &it->second->node) << "walk at key " << KeyOf(n);
        }
        ASSERT_TRUE(it == ref.end()) << "walk ends before key " << it->first;
    }
    EXPECT_EQ(host::Faults(), 0u);
}

}  // namespace
