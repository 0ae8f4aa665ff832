// Batch and real-time update reception: the batch's sequence numbers are checked, and every data
// record of BUData, BUBeginEnd and RUData is converted in place and handed to the application.
#include <bit>

#include "zan_vrrpinst.h"

namespace {

constexpr uint32_t LINE_ASSERT_RECVDATA_CB = 330;
constexpr uint16_t ZAN_VRRP_REC_HDR_LEN = 4;   // record type, record length
constexpr uint16_t ZAN_VRRP_TLV_HDR_LEN = 4;   // TLV type, TLV length
constexpr uint16_t ZAN_VRRP_REC_TYPE_PLAIN = 3002;
constexpr uint16_t ZAN_VRRP_REC_TYPE_WORD = 3003;
constexpr uint16_t ZAN_VRRP_REC_TYPE_DWORD = 3004;
constexpr uint32_t ZAN_VRRP_KEY_HEAD_WORD = ((uint32_t)ZAN_VRRP_KEY_TLV_TYPE << 16) | ZAN_VRRP_KEY_TLV_LEN;

// A header word (two 16-bit fields) as it lies in memory, read as a host-order word: on the
// wire (network order) or once converted (each field in host order).
constexpr uint32_t ZAN_VrrpInst_WireWord_(uint16_t usHi, uint16_t usLo)
{
    const uint32_t ulBe = ((uint32_t)usHi << 16) | usLo;
    return (std::endian::native == std::endian::big) ? ulBe : __builtin_bswap32(ulBe);
}
constexpr uint32_t ZAN_VrrpInst_HostWord_(uint16_t usHi, uint16_t usLo)
{
    return (std::endian::native == std::endian::big) ? (((uint32_t)usHi << 16) | usLo)
                                                     : (((uint32_t)usLo << 16) | usHi);
}

// The usual record: type 3002, key TLV 3001/8, data TLV 1001 with 8 value bytes, nothing more.
constexpr uint32_t ZAN_VRRP_PLAIN_REC_SIZE = 28;
constexpr uint32_t ZAN_VRRP_PLAIN_DATA_OFF = 16;
constexpr uint32_t ZAN_VRRP_PLAIN_WIRE[3] = {
    ZAN_VrrpInst_WireWord_(ZAN_VRRP_REC_TYPE_PLAIN, ZAN_VRRP_PLAIN_REC_SIZE - ZAN_VRRP_REC_HDR_LEN),
    ZAN_VrrpInst_WireWord_(ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN),
    ZAN_VrrpInst_WireWord_(ZAN_VRRP_DATA_TLV_TYPE, 8)};
constexpr uint32_t ZAN_VRRP_PLAIN_HOST[3] = {
    ZAN_VrrpInst_HostWord_(ZAN_VRRP_REC_TYPE_PLAIN, ZAN_VRRP_PLAIN_REC_SIZE - ZAN_VRRP_REC_HDR_LEN),
    ZAN_VrrpInst_HostWord_(ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN),
    ZAN_VrrpInst_HostWord_(ZAN_VRRP_DATA_TLV_TYPE, 8)};

// Where a record's key TLV starts: after the record header and the bytes the consumer does not
// read (none, 4 or 8 of them). 0 for a record type the consumer does not know.
uint32_t ZAN_VrrpInst_RecKeyOff_(uint16_t usRecType)
{
    switch (usRecType) {
        case ZAN_VRRP_REC_TYPE_PLAIN:
            return 4;
        case ZAN_VRRP_REC_TYPE_WORD:
            return 8;
        case ZAN_VRRP_REC_TYPE_DWORD:
            return 12;
        default:
            return 0;
    }
}

// The bounds of a record are checked before any of it is converted or handed over. A record
// that fails them is malformed: its reason is counted, and the parser counts GenKey and drops
// the rest of the message as for a record whose key TLV is not the 3001/8 key.
// - The record, its key TLV or its data TLV would run past usMsgLen: nothing beyond the
//   received message is read.
// - A record type other than 3002, 3003, 3004: where its key lies is unknown.
// - A record length too short for the record's own TLVs: the next record would start inside
//   this one, among words already converted in place.

// The record header at pucRec, with ulRoom bytes left up to usMsgLen, and the key TLV header
// lie within the message and the record. 0: *pulKeyOff and *pulRecSize (header included) set.
uint32_t ZAN_VrrpInst_CheckRecHead_(ZAN_VRRP_INST_S *pInst, const uint8_t *pucRec, uint32_t ulRoom,
                                    uint32_t *pulKeyOff, uint32_t *pulRecSize)
{
    if (ulRoom < ZAN_VRRP_REC_HDR_LEN) {
        pInst->stDropStat.ulRecPastEnd++;
        return 1;
    }
    const uint32_t ulKeyOff = ZAN_VrrpInst_RecKeyOff_(ZAN_VrrpAdp_GetBe16(pucRec));
    if (ulKeyOff == 0u) {
        pInst->stDropStat.ulRecType++;
        return 1;
    }
    const uint32_t ulRecSize = (uint32_t)ZAN_VrrpAdp_GetBe16(pucRec + 2) + ZAN_VRRP_REC_HDR_LEN;
    if (ulRecSize > ulRoom) {
        pInst->stDropStat.ulRecPastEnd++;
        return 1;
    }
    // From here on whatever lies within the record lies within the message.
    if (ulKeyOff + ZAN_VRRP_TLV_HDR_LEN > ulRecSize) {
        pInst->stDropStat.ulRecLen++;
        return 1;
    }
    *pulKeyOff = ulKeyOff;
    *pulRecSize = ulRecSize;
    return 0;
}

// The data TLV at ulDataOff (still in network order) lies within the record.
uint32_t ZAN_VrrpInst_CheckRecData_(ZAN_VRRP_INST_S *pInst, const uint8_t *pucRec, uint32_t ulDataOff,
                                    uint32_t ulRecSize)
{
    if (ulDataOff + ZAN_VRRP_TLV_HDR_LEN > ulRecSize ||
        ulDataOff + ZAN_VRRP_TLV_HDR_LEN + ZAN_VrrpAdp_GetBe16(pucRec + ulDataOff + 2) > ulRecSize) {
        pInst->stDropStat.ulRecLen++;
        return 1;
    }
    return 0;
}

// A sequence error: traced, then reported by a notify event, unless the application took the
// instance down from the trace, which ended the batch and any notify exchange.
void ZAN_VrrpInst_SeqErr_(ZAN_VRRP_INST_S *pInst, uint32_t ulLine, uint32_t ulSeqNum)
{
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VRRP_INST_TRACE(pInst, ulLine, "vrrp-inst BB data, except seqid[%u] but[%u].", pInst->BatchSeqNum, ulSeqNum);
    if (pInst->ulDownCnt == ulDownCnt) {
        ZAN_VrrpInst_NotifyEvent_SeqErr_(pInst, ulSeqNum);
    }
}

// Writes a header word read in network order back as its two 16-bit fields in host order.
inline void ZAN_VrrpInst_ToHost16x2_(uint8_t *p, uint32_t ulWord)
{
    ZAN_VrrpAdp_PutHost16(p, (uint16_t)(ulWord >> 16));
    ZAN_VrrpAdp_PutHost16(p + 2, (uint16_t)ulWord);
}

}  // namespace

uint32_t ZAN_VrrpInst_ProcBatchBegin(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pMsg;
    pInst->aulRcvReqCnt[ZAN_VRRP_MSG_BU_BEGIN]++;
    pInst->BatchSeqNum = pDecode->ulSeqNum + 1u;
    return 0;
}

void ZAN_VrrpInst_ProcBatchData(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    pInst->aulRcvReqCnt[ZAN_VRRP_MSG_BU_DATA]++;
    if (pDecode->ulSeqNum == pInst->BatchSeqNum) {
        // Advanced before the records are handed over: a down made from inside pfnRecvData
        // clears the batch, and that must not be undone afterwards.
        pInst->BatchSeqNum++;
        ZAN_VrrpInst_ParseDataMsg_(pInst, pMsg);
        return;
    }
    // The batch is broken: its records are dropped and the VRRP component is asked to start again.
    pInst->stErrStat.usBDErrSeq++;
    ZAN_VrrpInst_SeqErr_(pInst, 341, pDecode->ulSeqNum);
}

uint32_t ZAN_VrrpInst_ProcBatchEnd(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pMsg;
    pInst->aulRcvReqCnt[ZAN_VRRP_MSG_BU_END]++;
    if (pDecode->ulSeqNum == pInst->BatchSeqNum) {
        return 0;
    }
    // Left unacknowledged: the VRRP component sees the batch end unconfirmed.
    pInst->stErrStat.usBEErrSeq++;
    ZAN_VrrpInst_SeqErr_(pInst, 361, pDecode->ulSeqNum);
    return ZAN_VRRP_ALL_ONES;
}

void ZAN_VrrpInst_ProcBatchBeginEnd(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pDecode;
    pInst->aulRcvReqCnt[ZAN_VRRP_MSG_BU_BEGIN_END]++;
    ZAN_VrrpInst_ParseDataMsg_(pInst, pMsg);
}

void ZAN_VrrpInst_ProcRealUpdate(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pDecode;
    pInst->aulRcvReqCnt[ZAN_VRRP_MSG_RU_DATA]++;
    ZAN_VrrpInst_ParseDataMsg_(pInst, pMsg);
}

// Records are handed over in any consumer state and whether or not a matching item is
// subscribed. The receive path has made sure usMsgLen does not exceed the delivered bytes.
// Each header (record, key TLV, data TLV) is read as one big-endian word and written back as
// two host-order halves: the one pass over a record that converts it also checks it.
void ZAN_VrrpInst_ParseDataMsg_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    const uint32_t ulMsgLen = ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN);
    if (ulMsgLen <= ZAN_VRRP_MSG_HDR_LEN) {
        return;
    }
    const uint32_t ulHandle = ZAN_VrrpInst_Ctx(pInst)->ulHandle;
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    uint32_t ulPos = ZAN_VRRP_MSG_HDR_LEN;
    while (ulPos < ulMsgLen) {
        uint8_t *pucRec = pMsg + ulPos;
        uint8_t *pucKey = pucRec + ZAN_VRRP_REC_HDR_LEN;
        uint8_t *pucData = pucRec + ZAN_VRRP_PLAIN_DATA_OFF;
        uint32_t ulRecSize = ZAN_VRRP_PLAIN_REC_SIZE;
        if (ulMsgLen - ulPos >= ZAN_VRRP_PLAIN_REC_SIZE && ZAN_VrrpAdp_GetHost32(pucRec) == ZAN_VRRP_PLAIN_WIRE[0] &&
            ZAN_VrrpAdp_GetHost32(pucKey) == ZAN_VRRP_PLAIN_WIRE[1] &&
            ZAN_VrrpAdp_GetHost32(pucData) == ZAN_VRRP_PLAIN_WIRE[2]) {
            // The usual record, told by its three header words: it passes every check below.
            ZAN_VrrpAdp_PutHost32(pucRec, ZAN_VRRP_PLAIN_HOST[0]);
            ZAN_VrrpAdp_PutHost32(pucKey, ZAN_VRRP_PLAIN_HOST[1]);
            ZAN_VrrpAdp_PutHost32(pucData, ZAN_VRRP_PLAIN_HOST[2]);
        } else {
            uint32_t ulKeyOff = 0;
            if (ZAN_VrrpInst_CheckRecHead_(pInst, pucRec, ulMsgLen - ulPos, &ulKeyOff, &ulRecSize) != 0u) {
                pInst->stErrStat.usGenKey++;
                return;
            }
            pucKey = pucRec + ulKeyOff;
            const uint32_t ulKeyHead = ZAN_VrrpAdp_GetBe32(pucKey);
            ZAN_VrrpInst_ToHost16x2_(pucRec, ZAN_VrrpAdp_GetBe32(pucRec));
            ZAN_VrrpInst_ToHost16x2_(pucKey, ulKeyHead);
            const uint32_t ulDataOff = ulKeyOff + ZAN_VRRP_TLV_HDR_LEN + ZAN_VRRP_KEY_TLV_LEN;
            if (ulKeyHead != ZAN_VRRP_KEY_HEAD_WORD ||
                ZAN_VrrpInst_CheckRecData_(pInst, pucRec, ulDataOff, ulRecSize) != 0u) {
                // The rest of the message is dropped; records already handed over stay handed over.
                pInst->stErrStat.usGenKey++;
                return;
            }
            pucData = pucRec + ulDataOff;
            ZAN_VrrpInst_ToHost16x2_(pucData, ZAN_VrrpAdp_GetBe32(pucData));
        }
        // A required slot, read afresh for every record: the application may replace its table
        // from inside the callback. An empty slot is reported rather than called.
        void (*pfnRecvData)(const void *, const void *, uint32_t) = pInst->pAdp->stCallBack.pfnRecvData;
        if (pfnRecvData == nullptr) {
            KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_RECVDATA_CB, 0);
            return;
        }
        pfnRecvData(pucKey, pucData, ulHandle);
        if (pInst->ulDownCnt != ulDownCnt) {
            // The application took the instance down from inside the callback and has been told
            // that its items are down: the rest of a message received before that is not handed over.
            return;
        }
        ulPos += ulRecSize;
    }
    pInst->stErrStat.usErrInfoNum++;
}
