// Tracing convention and byte-order helpers shared by every module of the library.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "zan_vrrpadp.h"

void ZAN_VrrpAdp_TraceV(const ZAN_VRRP_ADP_S *pAdp, const char *pcModule, uint32_t ulLine, const char *pcFmt,
                        va_list ap)
{
    if (pAdp == nullptr) {
        return;
    }
    const ZAN_COMP_CTX_S *pCompCtx = pAdp->stAdpBase.pCompCtx;
    const uint32_t ulHandle = (pCompCtx != nullptr) ? pCompCtx->ulHandle : 0u;
    const ZAN_VRRP_CALLBACK_S *pCb = &pAdp->stCallBack;

    if (pCb->pfnTracePoint != nullptr) {
        pCb->pfnTracePoint(pcModule, ulLine, ulHandle);
    }
    if (pcFmt == nullptr || pCb->pfnIsDebugOn == nullptr || pCb->pfnIsDebugOn(ulHandle) == 0u) {
        return;
    }
    char acText[256];
    (void)vsnprintf(acText, sizeof(acText), pcFmt, ap);
    if (pCb->pfnDebugOut != nullptr) {
        pCb->pfnDebugOut(acText, ulHandle);
    }
}

void ZAN_VrrpAdp_Trace(const ZAN_VRRP_ADP_S *pAdp, const char *pcModule, uint32_t ulLine, const char *pcFmt, ...)
{
    va_list ap;
    va_start(ap, pcFmt);
    ZAN_VrrpAdp_TraceV(pAdp, pcModule, ulLine, pcFmt, ap);
    va_end(ap);
}

uint16_t ZAN_VrrpAdp_GetBe16(const uint8_t *p)
{
    return (uint16_t)((uint16_t)(p[0] << 8) | p[1]);
}

uint32_t ZAN_VrrpAdp_GetBe32(const uint8_t *p)
{
    return ((uint32_t)p[0] << 24) | ((uint32_t)p[1] << 16) | ((uint32_t)p[2] << 8) | (uint32_t)p[3];
}

void ZAN_VrrpAdp_PutBe16(uint8_t *p, uint16_t v)
{
    p[0] = (uint8_t)(v >> 8);
    p[1] = (uint8_t)v;
}

void ZAN_VrrpAdp_PutBe32(uint8_t *p, uint32_t v)
{
    p[0] = (uint8_t)(v >> 24);
    p[1] = (uint8_t)(v >> 16);
    p[2] = (uint8_t)(v >> 8);
    p[3] = (uint8_t)v;
}

uint16_t ZAN_VrrpAdp_GetHost16(const uint8_t *p)
{
    uint16_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

uint32_t ZAN_VrrpAdp_GetHost32(const uint8_t *p)
{
    uint32_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

void ZAN_VrrpAdp_PutHost16(uint8_t *p, uint16_t v)
{
    std::memcpy(p, &v, sizeof(v));
}

void ZAN_VrrpAdp_PutHost32(uint8_t *p, uint32_t v)
{
    std::memcpy(p, &v, sizeof(v));
}

// Network order is big-endian; on the little-endian targets this swaps, and applying it
// twice gives the original bytes back. The receive path and the acknowledgement echo both
// go through here, so they convert exactly the same five fields.
void ZAN_VrrpAdp_SwapHdrFields(uint8_t *pMsg)
{
    static const uint32_t aul16[] = {ZAN_VRRP_HDR_WORD8, ZAN_VRRP_HDR_WORD10, ZAN_VRRP_HDR_WORD16,
                                     ZAN_VRRP_HDR_ENTRYCNT};
    for (uint32_t ulOff : aul16) {
        ZAN_VrrpAdp_PutHost16(pMsg + ulOff, ZAN_VrrpAdp_GetBe16(pMsg + ulOff));
    }
    ZAN_VrrpAdp_PutHost32(pMsg + ZAN_VRRP_HDR_SEQNUM, ZAN_VrrpAdp_GetBe32(pMsg + ZAN_VRRP_HDR_SEQNUM));
}
