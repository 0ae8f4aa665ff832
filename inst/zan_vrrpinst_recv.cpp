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

// A header word (two 16-bit fields) as it lies in memory, read as a host-order word: on the
// wire (network order) or once converted (each field in host order).
consteval uint32_t ZAN_VrrpInst_WireWord_(uint16_t usHi, uint16_t usLo)
{
    const uint32_t ulBe = ((uint32_t)usHi << 16) | usLo;
    return (std::endian::native == std::endian::big) ? ulBe : __builtin_bswap32(ulBe);
}
consteval uint32_t ZAN_VrrpInst_HostWord_(uint16_t usHi, uint16_t usLo)
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
// read (none, 4 or 8 of them). A record of another type keeps the previous record's position
// (0 for the first record, whose own header is then read as the key TLV's).
uint32_t ZAN_VrrpInst_RecKeyOff_(uint16_t usRecType, uint32_t ulPrevKeyOff)
{
    switch (usRecType) {
        case ZAN_VRRP_REC_TYPE_PLAIN:
            return 4;
        case ZAN_VRRP_REC_TYPE_WORD:
            return 8;
        case ZAN_VRRP_REC_TYPE_DWORD:
            return 12;
        default:
            return ulPrevKeyOff;
    }
}

// A record that would run past the message is malformed: counted as one whose key TLV is not
// the 3001/8 key, and the rest of the message is dropped.
void ZAN_VrrpInst_PastEnd_(ZAN_VRRP_INST_S *pInst)
{
    pInst->stDropStat.ulRecPastEnd++;
    pInst->stErrStat.usGenKey++;
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

// Converts a header word (two 16-bit fields) in place from network to host order.
inline void ZAN_VrrpInst_ToHost16x2_(uint8_t *p)
{
    const uint32_t ulWord = ZAN_VrrpAdp_GetBe32(p);
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
        ZAN_VrrpInst_ParseDataMsg_(pInst, pMsg);
        pInst->BatchSeqNum++;
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
// subscribed, so a down the application makes from pfnRecvData does not stop the message.
// The only bound is the message: a record's length says where the next one starts, not how
// far its TLVs reach, and a record whose header, key TLV or data TLV would run past usMsgLen
// is malformed (nothing beyond it is read). The receive path has made sure usMsgLen does not
// exceed the delivered bytes.
void ZAN_VrrpInst_ParseDataMsg_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    const uint32_t ulMsgLen = ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN);
    if (ulMsgLen <= ZAN_VRRP_MSG_HDR_LEN) {
        return;
    }
    const uint32_t ulHandle = ZAN_VrrpInst_Ctx(pInst)->ulHandle;
    uint32_t ulKeyOff = 0;
    uint32_t ulPos = ZAN_VRRP_MSG_HDR_LEN;
    while (ulPos < ulMsgLen) {
        uint8_t *pucRec = pMsg + ulPos;
        const uint32_t ulRoom = ulMsgLen - ulPos;
        uint8_t *pucKey = pucRec + ZAN_VRRP_REC_HDR_LEN;
        uint8_t *pucData = pucRec + ZAN_VRRP_PLAIN_DATA_OFF;
        uint32_t ulRecSize = ZAN_VRRP_PLAIN_REC_SIZE;
        if (ulRoom >= ZAN_VRRP_PLAIN_REC_SIZE && ZAN_VrrpAdp_GetHost32(pucRec) == ZAN_VRRP_PLAIN_WIRE[0] &&
            ZAN_VrrpAdp_GetHost32(pucKey) == ZAN_VRRP_PLAIN_WIRE[1] &&
            ZAN_VrrpAdp_GetHost32(pucData) == ZAN_VRRP_PLAIN_WIRE[2]) {
            // The usual record, told by its three header words: it passes every check below.
            ZAN_VrrpAdp_PutHost32(pucRec, ZAN_VRRP_PLAIN_HOST[0]);
            ZAN_VrrpAdp_PutHost32(pucKey, ZAN_VRRP_PLAIN_HOST[1]);
            ZAN_VrrpAdp_PutHost32(pucData, ZAN_VRRP_PLAIN_HOST[2]);
            ulKeyOff = ZAN_VRRP_REC_HDR_LEN;
        } else {
            if (ulRoom < ZAN_VRRP_REC_HDR_LEN) {
                ZAN_VrrpInst_PastEnd_(pInst);
                return;
            }
            ZAN_VrrpInst_ToHost16x2_(pucRec);
            ulRecSize = (uint32_t)ZAN_VrrpAdp_GetHost16(pucRec + 2) + ZAN_VRRP_REC_HDR_LEN;
            ulKeyOff = ZAN_VrrpInst_RecKeyOff_(ZAN_VrrpAdp_GetHost16(pucRec), ulKeyOff);
            if (ulRecSize > ulRoom || ulKeyOff + ZAN_VRRP_TLV_HDR_LEN > ulRoom) {
                ZAN_VrrpInst_PastEnd_(pInst);
                return;
            }
            pucKey = pucRec + ulKeyOff;
            ZAN_VrrpInst_ToHost16x2_(pucKey);
            if (ZAN_VrrpAdp_GetHost16(pucKey) != ZAN_VRRP_KEY_TLV_TYPE ||
                ZAN_VrrpAdp_GetHost16(pucKey + 2) != ZAN_VRRP_KEY_TLV_LEN) {
                // The rest of the message is dropped; records already handed over stay handed over.
                pInst->stErrStat.usGenKey++;
                return;
            }
            const uint32_t ulDataOff = ulKeyOff + ZAN_VRRP_TLV_HDR_LEN + ZAN_VRRP_KEY_TLV_LEN;
            if (ulDataOff + ZAN_VRRP_TLV_HDR_LEN > ulRoom) {
                ZAN_VrrpInst_PastEnd_(pInst);
                return;
            }
            pucData = pucRec + ulDataOff;
            ZAN_VrrpInst_ToHost16x2_(pucData);
            if (ulDataOff + ZAN_VRRP_TLV_HDR_LEN + ZAN_VrrpAdp_GetHost16(pucData + 2) > ulRoom) {
                ZAN_VrrpInst_PastEnd_(pInst);
                return;
            }
        }
        // A required slot, read afresh for every record: the application may replace its table
        // from inside the callback. An empty slot is reported rather than called.
        void (*pfnRecvData)(const void *, const void *, uint32_t) = pInst->pAdp->stCallBack.pfnRecvData;
        if (pfnRecvData == nullptr) {
            KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_RECVDATA_CB, 0);
            return;
        }
        pfnRecvData(pucKey, pucData, ulHandle);
        ulPos += ulRecSize;
    }
    pInst->stErrStat.usErrInfoNum++;
}
