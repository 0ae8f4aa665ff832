// Data parts: one block per datum holding its key and data TLVs, kept in the part tree (by
// part key) and the time list until sent, then on the wait-ack list until acknowledged.
#include <cstddef>

#include "zan_vrrp_prod.h"

namespace {

enum : uint32_t {
    LINE_ADDPART_MALLOC = 300,
    LINE_ADDPART_MALLOC_NG = 302,
    LINE_ADDPART_INSERT_NG = 316,
    LINE_ADDPART_FREE = 317,
    LINE_ADDPART_COPY = 310,
    LINE_DELPART_FREE = 345,
    LINE_MOVE_NG = 380,
    LINE_SENDDATA_NG = 420,
    LINE_SENDDATA_INVALID = 428,
    LINE_SENDDATA = 433,
};

constexpr uint32_t ZAN_VRRP_DATA_MAX_LEN = 8u;
constexpr uint32_t ZAN_VRRP_KEY_TYPE_LEN_WORD = (ZAN_VRRP_KEY_TLV_TYPE << 16) | ZAN_VRRP_KEY_TLV_LEN;

ZAN_VRRP_PART_S *ZAN_VrrpProd_PartOfTreeNode_(const ZAN_RBT_NODE_S *pNode)
{
    return reinterpret_cast<ZAN_VRRP_PART_S *>(reinterpret_cast<uintptr_t>(pNode) - offsetof(ZAN_VRRP_PART_S, stTreeNode));
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_PartOfLink_(ZAN_LIST_LINK_S *pLink)
{
    return reinterpret_cast<ZAN_VRRP_PART_S *>(reinterpret_cast<uintptr_t>(pLink) - offsetof(ZAN_VRRP_PART_S, stListNode));
}

void ZAN_VrrpProd_ListAppend_(ZAN_LIST_LINK_S *pHead, ZAN_LIST_LINK_S *pLink)
{
    pLink->pNext = pHead;
    pLink->pPrev = pHead->pPrev;
    pHead->pPrev->pNext = pLink;
    pHead->pPrev = pLink;
}

void ZAN_VrrpProd_ListUnlink_(ZAN_LIST_LINK_S *pLink)
{
    pLink->pPrev->pNext = pLink->pNext;
    pLink->pNext->pPrev = pLink->pPrev;
    pLink->pNext = pLink;
    pLink->pPrev = pLink;
}

// Cursor walk: the cursor already points past the part it returns, so the caller may delete
// or move that part before asking for the next one.
ZAN_VRRP_PART_S *ZAN_VrrpProd_WalkFirst_(ZAN_LIST_LINK_S *pHead, ZAN_LIST_LINK_S **ppCursor)
{
    if (pHead->pNext == pHead) {
        *ppCursor = nullptr;
        return nullptr;
    }
    ZAN_LIST_LINK_S *pLink = pHead->pNext;
    *ppCursor = (pLink->pNext == pHead) ? nullptr : pLink->pNext;
    return ZAN_VrrpProd_PartOfLink_(pLink);
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_WalkNext_(ZAN_LIST_LINK_S *pHead, ZAN_LIST_LINK_S **ppCursor)
{
    ZAN_LIST_LINK_S *pLink = *ppCursor;
    if (pLink == nullptr) {
        return nullptr;
    }
    *ppCursor = (pLink->pNext == pHead) ? nullptr : pLink->pNext;
    return ZAN_VrrpProd_PartOfLink_(pLink);
}

// The key TLV's 32-bit value word and its fifth value byte, as the traces print them.
uint32_t ZAN_VrrpProd_KeyWord_(const uint8_t *pucKeyTlv)
{
    return ZAN_VrrpAdp_GetHost32(pucKeyTlv + 4);
}

uint32_t ZAN_VrrpProd_KeyByte_(const uint8_t *pucKeyTlv)
{
    return pucKeyTlv[8];
}

// Compares a part's key with a key as unsigned 32-bit words in host order, taken at the given
// offsets in turn; the first word that differs decides (part greater 1, smaller 2, all equal 0).
uint32_t ZAN_VrrpProd_CmpWords_(const ZAN_RBT_NODE_S *pNode, const void *pKey, const uint32_t (&aulOrder)[4])
{
    const uint8_t *pucPartKey = ZAN_VrrpProd_PartTlv(ZAN_VrrpProd_PartOfTreeNode_(pNode));
    const uint8_t *pucKey = static_cast<const uint8_t *>(pKey);
    for (const uint32_t ulOff : aulOrder) {
        const uint32_t ulPart = ZAN_VrrpAdp_GetHost32(pucPartKey + ulOff);
        const uint32_t ulKey = ZAN_VrrpAdp_GetHost32(pucKey + ulOff);
        if (ulPart != ulKey) {
            return (ulPart > ulKey) ? 1u : 2u;
        }
    }
    return 0;
}

constexpr uint32_t g_aulPartKeyOrder[4] = {0u, 4u, 8u, 12u};
constexpr uint32_t g_aulStoredPartOrder[4] = {4u, 8u, 12u, 0u};

}  // namespace

uint32_t ZAN_VrrpProd_CmpPart_(const ZAN_RBT_NODE_S *pNode, const void *pKey)
{
    return ZAN_VrrpProd_CmpWords_(pNode, pKey, g_aulPartKeyOrder);
}

namespace {

// The compare that the part tree is kept with. Every stored part and every key looked up went
// through SendData's check, so their first word (the key TLV's type and length) is the same;
// comparing the value words first settles a descent in one word per level instead of two. The
// first word still decides last, so two different keys never compare equal, and for keys
// that pass the check the order is the one of ZAN_VrrpProd_CmpPart_.
uint32_t ZAN_VrrpProd_CmpStoredPart_(const ZAN_RBT_NODE_S *pNode, const void *pKey)
{
    return ZAN_VrrpProd_CmpWords_(pNode, pKey, g_aulStoredPartOrder);
}

}  // namespace

ZAN_VRRP_PART_S *ZAN_VrrpProd_AddPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey,
                                       const ZAN_VRRP_TLV_S *pData)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint8_t *pucKeyTlv = reinterpret_cast<const uint8_t *>(pKey);
    const uint32_t ulKeySize = (uint32_t)pKey->usLen + 4u;
    const uint32_t ulDataSize = (uint32_t)pData->usLen + 4u;
    const uint32_t ulSize = (uint32_t)sizeof(ZAN_VRRP_PART_S) + ulKeySize + ulDataSize;
    ZAN_VRRP_PART_S *pPart = static_cast<ZAN_VRRP_PART_S *>(
        KOL_Malloc_F(pCompCtx->ulFwMemHandle, g_aucKolMemPt[0], ulSize, ZAN_VRRP_PROD_FILE, LINE_ADDPART_MALLOC));
    if (pPart == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_ADDPART_MALLOC_NG, "vrrp prod, AddPart_, malloc ng, %u, %u",
                            ZAN_VrrpProd_KeyWord_(pucKeyTlv), ZAN_VrrpProd_KeyByte_(pucKeyTlv));
        return nullptr;
    }
    (void)memset_s(pPart, ulSize, 0, ulSize);
    pPart->bWaitAck = 0;
    uint8_t *pucTlv = ZAN_VrrpProd_PartTlv(pPart);
    const uint32_t ulRoom = ulKeySize + ulDataSize;
    uint32_t ulRet = memcpy_s(pucTlv, ulRoom, pKey, ulKeySize);
    ulRet |= memcpy_s(pucTlv + ulKeySize, ulRoom - ulKeySize, pData, ulDataSize);
    if (ulRet != 0u) {
        KOL_Assert(ZAN_VRRP_PROD_FILE, LINE_ADDPART_COPY, 0);
    }
    if (ZAN_RBT_AddNode(&pProd->stPartTree, &pPart->stTreeNode, pucTlv, ZAN_VrrpProd_CmpStoredPart_) != 0u) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_ADDPART_INSERT_NG, "vrrp prod, AddPart_, insert 2rbt ng, %u, %u",
                            ZAN_VrrpProd_KeyWord_(pucKeyTlv), ZAN_VrrpProd_KeyByte_(pucKeyTlv));
        KOL_Free_F(pPart, ZAN_VRRP_PROD_FILE, LINE_ADDPART_FREE);
        return nullptr;
    }
    ZAN_VrrpProd_ListAppend_(&pProd->stPartList, &pPart->stListNode);
    return pPart;
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_FindPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const uint8_t *pucKey)
{
    (void)pCompCtx;
    ZAN_RBT_NODE_S *pNode = ZAN_RBT_LookupNode(&pInst->pProd->stPartTree, pucKey, ZAN_VrrpProd_CmpStoredPart_);
    return (pNode != nullptr) ? ZAN_VrrpProd_PartOfTreeNode_(pNode) : nullptr;
}

void ZAN_VrrpProd_DelPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart)
{
    (void)pCompCtx;
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pPart->bWaitAck == 0u) {
        WUX_RBT_RemoveNode(&pProd->stPartTree, &pPart->stTreeNode);
    }
    ZAN_VrrpProd_ListUnlink_(&pPart->stListNode);
    if (pPart == pProd->pPinned) {
        pProd->bPinnedGone = 1;  // being packed: the packer frees it when it is done
        return;
    }
    KOL_Free_F(pPart, ZAN_VRRP_PROD_FILE, LINE_DELPART_FREE);
}

uint32_t ZAN_VrrpProd_MovePart2WaitAck_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pPart->bWaitAck == 1u) {
        const uint8_t *pucKeyTlv = ZAN_VrrpProd_PartTlv(pPart);
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_MOVE_NG, "vrrp prod, MovePart2WaitAck_ ng, %u, %u, %u",
                            ZAN_VrrpProd_KeyWord_(pucKeyTlv), ZAN_VrrpProd_KeyByte_(pucKeyTlv), pPart->bWaitAck);
        return ZAN_VRRP_ALL_ONES;
    }
    WUX_RBT_RemoveNode(&pProd->stPartTree, &pPart->stTreeNode);
    ZAN_VrrpProd_ListUnlink_(&pPart->stListNode);
    ZAN_VrrpProd_ListAppend_(&pProd->stWaitAckList, &pPart->stListNode);
    pPart->bWaitAck = 1;
    return 0;
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_GetFirstPartByTime_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                  ZAN_LIST_LINK_S **ppCursor)
{
    (void)pCompCtx;
    return ZAN_VrrpProd_WalkFirst_(&pInst->pProd->stPartList, ppCursor);
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_GetNextPartByTime_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                 ZAN_LIST_LINK_S **ppCursor)
{
    (void)pCompCtx;
    return ZAN_VrrpProd_WalkNext_(&pInst->pProd->stPartList, ppCursor);
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_GetFirstWaitAckPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                   ZAN_LIST_LINK_S **ppCursor)
{
    (void)pCompCtx;
    return ZAN_VrrpProd_WalkFirst_(&pInst->pProd->stWaitAckList, ppCursor);
}

ZAN_VRRP_PART_S *ZAN_VrrpProd_GetNextWaitAckPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                  ZAN_LIST_LINK_S **ppCursor)
{
    (void)pCompCtx;
    return ZAN_VrrpProd_WalkNext_(&pInst->pProd->stWaitAckList, ppCursor);
}

uint32_t ZAN_VrrpProd_CountList_(const ZAN_LIST_LINK_S *pHead)
{
    uint32_t ulCount = 0;
    for (const ZAN_LIST_LINK_S *pLink = pHead->pNext; pLink != pHead; pLink = pLink->pNext) {
        ulCount++;
    }
    return ulCount;
}

uint32_t ZAN_VrrpProd_SendData(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey,
                               const ZAN_VRRP_TLV_S *pData)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_SENDDATA_NG, "vrrp prod, SendData, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    const uint32_t ulKeyWord = ((uint32_t)pKey->usType << 16) | pKey->usLen;
    if (ulKeyWord != ZAN_VRRP_KEY_TYPE_LEN_WORD || pData->usType != ZAN_VRRP_DATA_TLV_TYPE ||
        (pData->usLen != 0u && pData->usLen != ZAN_VRRP_DATA_MAX_LEN)) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_SENDDATA_INVALID, "vrrp prod, SendData, data is invalid, (%u, %u), (%u, %u)",
                            (uint32_t)pKey->usType, (uint32_t)pKey->usLen, (uint32_t)pData->usType,
                            (uint32_t)pData->usLen);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_SENDDATA, "vrrp prod, SendData, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    if (pProd->State != VRRP_PROD_STATE_BN_DATA && pProd->State != VRRP_PROD_STATE_RN_DATA) {
        return 0;
    }
    // Part key: 16 bytes, the key TLV's three words and the data TLV's type and length word,
    // copied a word at a time. A datum replaces a stored, not yet sent one of the same key: the older part
    // is deleted, and the datum is stored as a new part at the tail of the time order. When
    // the new part cannot be stored, the older one is gone all the same.
    uint8_t aucKey[ZAN_VRRP_PART_KEY_LEN];
    const uint8_t *pucKeyTlv = reinterpret_cast<const uint8_t *>(pKey);
    ZAN_VrrpAdp_PutHost32(aucKey, ZAN_VrrpAdp_GetHost32(pucKeyTlv));
    ZAN_VrrpAdp_PutHost32(aucKey + 4, ZAN_VrrpAdp_GetHost32(pucKeyTlv + 4));
    ZAN_VrrpAdp_PutHost32(aucKey + 8, ZAN_VrrpAdp_GetHost32(pucKeyTlv + 8));
    ZAN_VrrpAdp_PutHost32(aucKey + 12, ZAN_VrrpAdp_GetHost32(reinterpret_cast<const uint8_t *>(pData)));
    ZAN_VRRP_PART_S *pOld = ZAN_VrrpProd_FindPart_(pCompCtx, pInst, aucKey);
    if (pOld != nullptr) {
        ZAN_VrrpProd_DelPart_(pCompCtx, pInst, pOld);
    }
    (void)ZAN_VrrpProd_AddPart_(pCompCtx, pInst, pKey, pData);
    return 0;
}
