// A host world with an adapter, a callback table of no-ops (pfnRecvData counts the records it is
// handed) and one instance of pid 0x10 serving interface group 1, for the benchmarks.
#ifndef BENCH_WORLD_H
#define BENCH_WORLD_H

#include <cstring>
#include <vector>

#include "adp/zan_vrrpadp.h"
#include "host/host_world.h"
#include "inst/zan_vrrpinst.h"

namespace bench {

inline uint32_t g_delivered = 0;

inline void Noop2(uint32_t, uint32_t) {}
inline void CountData(const void *, const void *, uint32_t) { g_delivered++; }
inline void NoopItem(const void *, uint32_t) {}

inline ZAN_VRRP_INST_S *MakeInstance()
{
    host::Reset();
    ZAN_VRRP_ADP_S *adp = ZAN_VrrpAdp_Get(host::Ctx());
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = Noop2;
    cb.pfnRecvData = CountData;
    cb.pfnItemDown = NoopItem;
    ZAN_VrrpAdp_RegCallBack(adp, &cb);
    ZAN_VRRP_DEPLOY_REC_S rec{};
    rec.ulKind = ZAN_VRRP_DEPLOY_KIND;
    rec.ulPid = 0x10;
    rec.ulIfGroupId = 1;
    std::vector<uint8_t> bytes(sizeof(rec));
    std::memcpy(bytes.data(), &rec, sizeof(rec));
    host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_CREATE, bytes);
    host::Sent().clear();
    return reinterpret_cast<ZAN_VRRP_INST_S *>(host::FindInst(0x10));
}

}  // namespace bench

#endif
