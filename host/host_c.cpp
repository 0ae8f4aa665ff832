// The C face of the host platform (zan_host.h), over the world that host_world.h drives.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host_state.h"
#include "host_world.h"
#include "zan_host.h"

namespace {

// The deploy relation table and its record, as the framework hands them to the library.
constexpr uint32_t kDeployTbl = 0xD30A6B7u;
constexpr uint32_t kDeployKind = 37u;
constexpr uint32_t kDeployRecLen = 36u;

}  // namespace

extern "C" {

ZAN_COMP_CTX *ZAN_Host_Reset(void)
{
    host::Reset();
    return host::Ctx();
}

ZAN_COMP_CTX *ZAN_Host_Ctx(void)
{
    return host::Ctx();
}

uint32_t ZAN_Host_Deploy(uint32_t ulPid, uint32_t ulIfGroupId, int bCreate)
{
    // Host order: kind, pid, three reserved words, interface group, three reserved words.
    std::vector<uint8_t> rec(kDeployRecLen, 0);
    std::memcpy(rec.data(), &kDeployKind, 4);
    std::memcpy(rec.data() + 4, &ulPid, 4);
    std::memcpy(rec.data() + 20, &ulIfGroupId, 4);
    const std::optional<uint32_t> result = host::DeliverCfg(kDeployTbl, bCreate != 0 ? 0u : 2u, rec);
    return result.value_or(ZAN_HOST_NONE);
}

int ZAN_Host_Deliver(uint32_t ulPid, const uint8_t *pucMsg, size_t ulLen)
{
    if (pucMsg == nullptr && ulLen != 0u) {
        return -1;
    }
    const std::vector<uint8_t> bytes(pucMsg, pucMsg + ulLen);
    return host::DeliverMsg(ulPid, bytes) ? 0 : -1;
}

int ZAN_Host_DeliverFcm(uint32_t ulPid)
{
    return host::DeliverFcm(ulPid) ? 0 : -1;
}

int ZAN_Host_Flush(void)
{
    return host::RunFlush() ? 0 : -1;
}

size_t ZAN_Host_TakeSent(uint8_t *pucBuf, size_t ulCap, uint32_t *pulPid)
{
    std::deque<host::SentMsg> &sent = host::Sent();
    if (sent.empty()) {
        return 0;
    }
    const host::SentMsg msg = sent.front();
    sent.pop_front();
    if (pucBuf != nullptr) {
        std::copy_n(msg.bytes.begin(), std::min(ulCap, msg.bytes.size()), pucBuf);
    }
    if (pulPid != nullptr) {
        *pulPid = msg.pid;
    }
    return msg.bytes.size();
}

void ZAN_Host_Advance(uint32_t ulMs)
{
    host::Advance(ulMs);
}

uint32_t ZAN_Host_Cli(const char *pcItem, const char *pcPid, char *pcOut, size_t ulCap)
{
    const std::optional<std::string> pid = pcPid != nullptr ? std::optional<std::string>(pcPid) : std::nullopt;
    const host::CliResult r = host::RunCli("zanvrrp", pcItem != nullptr ? pcItem : "", pid, 0u);
    if (pcOut != nullptr && ulCap != 0u) {
        const size_t n = std::min(ulCap - 1u, r.text.size());
        std::memcpy(pcOut, r.text.data(), n);
        pcOut[n] = '\0';
    }
    return r.registered ? r.result : ZAN_HOST_NONE;
}

uint32_t ZAN_Host_BlocksHeld(void)
{
    return static_cast<uint32_t>(host::W().mem.blocks.size());
}

uint32_t ZAN_Host_Faults(void)
{
    return host::Faults();
}

}  // extern "C"
