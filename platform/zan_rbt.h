/* Ordered trees: intrusive red-black trees ordered by the caller's compare function. */
#ifndef ZAN_RBT_H
#define ZAN_RBT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZAN_RBT_RED 0u
#define ZAN_RBT_BLACK 1u

typedef struct ZAN_RBT_NODE {
    struct ZAN_RBT_NODE *pLeft;
    struct ZAN_RBT_NODE *pRight;
    struct ZAN_RBT_NODE *pParent;
    uint32_t ulColor;
} ZAN_RBT_NODE_S;

/* Tree head. Empty: pRoot points at stNil, whose links are NULL and colour ZAN_RBT_BLACK;
 * the two trailing words are 0. The tree uses stNil as its leaf sentinel. */
typedef struct ZAN_RBT_HEAD {
    ZAN_RBT_NODE_S *pRoot;
    ZAN_RBT_NODE_S stNil;
    uint32_t ulCount;
    uint32_t ulRsv;
} ZAN_RBT_HEAD_S;

/* Compares a node with a key: 0 equal, 1 the node is greater, 2 the node is smaller. */
typedef uint32_t (*ZAN_RBT_CMP_PF)(const ZAN_RBT_NODE_S *pNode, const void *pKey);

/* Inserts pNode under pKey: 0, or non-zero when a node with an equal key is already there. */
uint32_t ZAN_RBT_AddNode(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode, const void *pKey, ZAN_RBT_CMP_PF pfnCmp);
ZAN_RBT_NODE_S *ZAN_RBT_LookupNode(ZAN_RBT_HEAD_S *pTree, const void *pKey, ZAN_RBT_CMP_PF pfnCmp);
/* Smallest node, or NULL when empty. */
ZAN_RBT_NODE_S *WUX_RBT_FirstNode(ZAN_RBT_HEAD_S *pTree);
/* The node after pNode in tree order, or NULL. */
ZAN_RBT_NODE_S *WUX_RBT_NextNode(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode);
void WUX_RBT_RemoveNode(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode);
/* Makes the head empty again; the nodes themselves are the caller's. */
void WUX_RBT_ClearTree(ZAN_RBT_HEAD_S *pTree);

#ifdef __cplusplus
}
#endif
#endif
