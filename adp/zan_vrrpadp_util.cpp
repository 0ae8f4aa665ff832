// Tracing convention and byte-order helpers shared by every module of the library.
#include <cstdarg>
#include <cstdio>

#include "zan_vrrpadp.h"

void ZAN_VrrpAdp_TraceV(const ZAN_VRRP_ADP_S *pAdp, const char *pcModule, uint32_t ulLine, const char *pcFmt,
                        va_list ap)
{
    const uint32_t ulHandle = pAdp->stAdpBase.pCompCtx->ulHandle;
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
