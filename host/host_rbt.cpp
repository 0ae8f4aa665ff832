// Intrusive red-black trees with the head's stNil as the shared leaf sentinel. Leaves and the
// root's parent point at the sentinel; between operations the sentinel's own links are NULL
// and its colour black, so an empty tree keeps exactly the form the owner initialised.
#include "host_state.h"

namespace {

using Node = ZAN_RBT_NODE_S;
using Head = ZAN_RBT_HEAD_S;

Node *Nil(Head *t)
{
    return &t->stNil;
}

Node *Root(Head *t)
{
    if (t->pRoot == nullptr) {
        t->pRoot = Nil(t);
    }
    return t->pRoot;
}

// The sentinel's parent link is borrowed during removal; it is put back afterwards.
void RestoreNil(Head *t)
{
    t->stNil.pLeft = nullptr;
    t->stNil.pRight = nullptr;
    t->stNil.pParent = nullptr;
    t->stNil.ulColor = ZAN_RBT_BLACK;
}

Node *Minimum(Head *t, Node *x)
{
    while (x->pLeft != Nil(t)) {
        x = x->pLeft;
    }
    return x;
}

void RotateLeft(Head *t, Node *x)
{
    Node *y = x->pRight;
    x->pRight = y->pLeft;
    if (y->pLeft != Nil(t)) {
        y->pLeft->pParent = x;
    }
    y->pParent = x->pParent;
    if (x->pParent == Nil(t)) {
        t->pRoot = y;
    } else if (x == x->pParent->pLeft) {
        x->pParent->pLeft = y;
    } else {
        x->pParent->pRight = y;
    }
    y->pLeft = x;
    x->pParent = y;
}

void RotateRight(Head *t, Node *x)
{
    Node *y = x->pLeft;
    x->pLeft = y->pRight;
    if (y->pRight != Nil(t)) {
        y->pRight->pParent = x;
    }
    y->pParent = x->pParent;
    if (x->pParent == Nil(t)) {
        t->pRoot = y;
    } else if (x == x->pParent->pRight) {
        x->pParent->pRight = y;
    } else {
        x->pParent->pLeft = y;
    }
    y->pRight = x;
    x->pParent = y;
}

void InsertFixup(Head *t, Node *z)
{
    while (z->pParent->ulColor == ZAN_RBT_RED) {
        Node *g = z->pParent->pParent;
        if (z->pParent == g->pLeft) {
            Node *y = g->pRight;
            if (y->ulColor == ZAN_RBT_RED) {
                z->pParent->ulColor = ZAN_RBT_BLACK;
                y->ulColor = ZAN_RBT_BLACK;
                g->ulColor = ZAN_RBT_RED;
                z = g;
            } else {
                if (z == z->pParent->pRight) {
                    z = z->pParent;
                    RotateLeft(t, z);
                }
                z->pParent->ulColor = ZAN_RBT_BLACK;
                z->pParent->pParent->ulColor = ZAN_RBT_RED;
                RotateRight(t, z->pParent->pParent);
            }
        } else {
            Node *y = g->pLeft;
            if (y->ulColor == ZAN_RBT_RED) {
                z->pParent->ulColor = ZAN_RBT_BLACK;
                y->ulColor = ZAN_RBT_BLACK;
                g->ulColor = ZAN_RBT_RED;
                z = g;
            } else {
                if (z == z->pParent->pLeft) {
                    z = z->pParent;
                    RotateRight(t, z);
                }
                z->pParent->ulColor = ZAN_RBT_BLACK;
                z->pParent->pParent->ulColor = ZAN_RBT_RED;
                RotateLeft(t, z->pParent->pParent);
            }
        }
    }
    t->pRoot->ulColor = ZAN_RBT_BLACK;
}

void Transplant(Head *t, Node *u, Node *v)
{
    if (u->pParent == Nil(t)) {
        t->pRoot = v;
    } else if (u == u->pParent->pLeft) {
        u->pParent->pLeft = v;
    } else {
        u->pParent->pRight = v;
    }
    v->pParent = u->pParent;
}

void DeleteFixup(Head *t, Node *x)
{
    while (x != t->pRoot && x->ulColor == ZAN_RBT_BLACK) {
        if (x == x->pParent->pLeft) {
            Node *w = x->pParent->pRight;
            if (w->ulColor == ZAN_RBT_RED) {
                w->ulColor = ZAN_RBT_BLACK;
                x->pParent->ulColor = ZAN_RBT_RED;
                RotateLeft(t, x->pParent);
                w = x->pParent->pRight;
            }
            if (w->pLeft->ulColor == ZAN_RBT_BLACK && w->pRight->ulColor == ZAN_RBT_BLACK) {
                w->ulColor = ZAN_RBT_RED;
                x = x->pParent;
            } else {
                if (w->pRight->ulColor == ZAN_RBT_BLACK) {
                    w->pLeft->ulColor = ZAN_RBT_BLACK;
                    w->ulColor = ZAN_RBT_RED;
                    RotateRight(t, w);
                    w = x->pParent->pRight;
                }
                w->ulColor = x->pParent->ulColor;
                x->pParent->ulColor = ZAN_RBT_BLACK;
                w->pRight->ulColor = ZAN_RBT_BLACK;
                RotateLeft(t, x->pParent);
                x = t->pRoot;
            }
        } else {
            Node *w = x->pParent->pLeft;
            if (w->ulColor == ZAN_RBT_RED) {
                w->ulColor = ZAN_RBT_BLACK;
                x->pParent->ulColor = ZAN_RBT_RED;
                RotateRight(t, x->pParent);
                w = x->pParent->pLeft;
            }
            if (w->pRight->ulColor == ZAN_RBT_BLACK && w->pLeft->ulColor == ZAN_RBT_BLACK) {
                w->ulColor = ZAN_RBT_RED;
                x = x->pParent;
            } else {
                if (w->pLeft->ulColor == ZAN_RBT_BLACK) {
                    w->pRight->ulColor = ZAN_RBT_BLACK;
                    w->ulColor = ZAN_RBT_RED;
                    RotateLeft(t, w);
                    w = x->pParent->pLeft;
                }
                w->ulColor = x->pParent->ulColor;
                x->pParent->ulColor = ZAN_RBT_BLACK;
                w->pLeft->ulColor = ZAN_RBT_BLACK;
                RotateRight(t, x->pParent);
                x = t->pRoot;
            }
        }
    }
    x->ulColor = ZAN_RBT_BLACK;
}

// True when pNode hangs in tree t: its parent chain ends at t's root.
bool InTree(Head *t, Node *n)
{
    Node *nil = Nil(t);
    if (n == nullptr || n == nil) {
        return false;
    }
    for (uint32_t depth = 0; depth < 128u; depth++) {
        if (n->pParent == nullptr || n->pLeft == nullptr || n->pRight == nullptr) {
            return false;
        }
        if (n->pParent == nil) {
            return n == t->pRoot;
        }
        n = n->pParent;
    }
    return false;
}

}  // namespace

extern "C" {

uint32_t ZAN_RBT_AddNode(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode, const void *pKey, ZAN_RBT_CMP_PF pfnCmp)
{
    if (pTree == nullptr || pNode == nullptr || pfnCmp == nullptr) {
        host::Fault("ZAN_RBT_AddNode without tree, node or compare function");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::RbtAdd)) {
        return 1;
    }
    Node *nil = Nil(pTree);
    Node *parent = nil;
    Node *x = Root(pTree);
    uint32_t side = 0;
    while (x != nil) {
        side = pfnCmp(x, pKey);
        parent = x;
        if (side == 0u) {
            return 1;
        }
        if (side == 1u) {
            x = x->pLeft;
        } else if (side == 2u) {
            x = x->pRight;
        } else {
            host::Fault("ZAN_RBT_AddNode: compare function answered " + std::to_string(side));
            return 1;
        }
    }
    pNode->pParent = parent;
    pNode->pLeft = nil;
    pNode->pRight = nil;
    pNode->ulColor = ZAN_RBT_RED;
    if (parent == nil) {
        pTree->pRoot = pNode;
    } else if (side == 1u) {
        parent->pLeft = pNode;
    } else {
        parent->pRight = pNode;
    }
    InsertFixup(pTree, pNode);
    RestoreNil(pTree);
    pTree->ulCount++;
    return 0;
}

ZAN_RBT_NODE_S *ZAN_RBT_LookupNode(ZAN_RBT_HEAD_S *pTree, const void *pKey, ZAN_RBT_CMP_PF pfnCmp)
{
    if (pTree == nullptr || pfnCmp == nullptr) {
        return nullptr;
    }
    Node *nil = Nil(pTree);
    Node *x = Root(pTree);
    while (x != nil) {
        const uint32_t side = pfnCmp(x, pKey);
        if (side == 0u) {
            return x;
        }
        if (side == 1u) {
            x = x->pLeft;
        } else if (side == 2u) {
            x = x->pRight;
        } else {
            host::Fault("ZAN_RBT_LookupNode: compare function answered " + std::to_string(side));
            return nullptr;
        }
    }
    return nullptr;
}

ZAN_RBT_NODE_S *WUX_RBT_FirstNode(ZAN_RBT_HEAD_S *pTree)
{
    if (pTree == nullptr || Root(pTree) == Nil(pTree)) {
        return nullptr;
    }
    return Minimum(pTree, pTree->pRoot);
}

ZAN_RBT_NODE_S *WUX_RBT_NextNode(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode)
{
    if (pTree == nullptr || pNode == nullptr) {
        return nullptr;
    }
    Node *nil = Nil(pTree);
    if (pNode->pRight != nil) {
        return Minimum(pTree, pNode->pRight);
    }
    Node *x = pNode;
    Node *y = x->pParent;
    while (y != nil && x == y->pRight) {
        x = y;
        y = y->pParent;
    }
    return y == nil ? nullptr : y;
}

void WUX_RBT_RemoveNode(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode)
{
    if (pTree == nullptr || !InTree(pTree, pNode)) {
        host::Fault("WUX_RBT_RemoveNode of a node that is not in the tree");
        return;
    }
    Node *nil = Nil(pTree);
    Node *z = pNode;
    Node *y = z;
    Node *x = nullptr;
    uint32_t yColor = y->ulColor;
    if (z->pLeft == nil) {
        x = z->pRight;
        Transplant(pTree, z, z->pRight);
    } else if (z->pRight == nil) {
        x = z->pLeft;
        Transplant(pTree, z, z->pLeft);
    } else {
        y = Minimum(pTree, z->pRight);
        yColor = y->ulColor;
        x = y->pRight;
        if (y->pParent == z) {
            x->pParent = y;
        } else {
            Transplant(pTree, y, y->pRight);
            y->pRight = z->pRight;
            y->pRight->pParent = y;
        }
        Transplant(pTree, z, y);
        y->pLeft = z->pLeft;
        y->pLeft->pParent = y;
        y->ulColor = z->ulColor;
    }
    if (yColor == ZAN_RBT_BLACK) {
        DeleteFixup(pTree, x);
    }
    RestoreNil(pTree);
    z->pLeft = nullptr;
    z->pRight = nullptr;
    z->pParent = nullptr;
    pTree->ulCount--;
}

void WUX_RBT_ClearTree(ZAN_RBT_HEAD_S *pTree)
{
    if (pTree == nullptr) {
        return;
    }
    pTree->pRoot = Nil(pTree);
    RestoreNil(pTree);
    pTree->ulCount = 0;
    pTree->ulRsv = 0;
}

}  // extern "C"
