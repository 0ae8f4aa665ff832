// Message service of the host: flow-controlled allocation of library buffers, sending into
// the Sent() queue, and delivery of received messages to the registered handlers.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host_state.h"

namespace host {

namespace {

constexpr uint32_t kFcmPidOff = 8u;
constexpr uint32_t kFcmLen = 12u;

// Hands a heap buffer of exactly max(bytes, deliveredSize) bytes to handler, so that a read
// beyond the delivered bytes is caught by the address sanitizer; the buffer is the host's and is
// released after the handler returns.
bool Deliver(uint16_t msgClass, uint32_t pid, const std::vector<uint8_t> &bytes, uint32_t deliveredSize)
{
    auto it = W().frame.msgRegs.find(msgClass);
    if (it == W().frame.msgRegs.end() || it->second.pfnProc == nullptr) {
        return false;
    }
    const MsgReg reg = it->second;
    const size_t cap = std::max<size_t>(bytes.size(), deliveredSize);
    std::unique_ptr<uint8_t[]> buf(new uint8_t[cap]);
    std::fill(buf.get(), buf.get() + cap, 0);
    std::copy(bytes.begin(), bytes.end(), buf.get());
    W().msg.received[buf.get()] = InMsg{pid, deliveredSize};
    (void)reg.pfnProc(buf.get(), reg.pArg);
    W().msg.received.erase(buf.get());
    return true;
}

}  // namespace

void ResetMsg()
{
    MsgState &m = W().msg;
    for (auto &entry : m.outstanding) {
        std::free(entry.first);
    }
    m = MsgState{};
}

uint32_t MsgsOutstanding()
{
    return static_cast<uint32_t>(W().msg.outstanding.size());
}

std::deque<SentMsg> &Sent()
{
    return W().msg.sent;
}

void SetSendHook(std::function<void(const SentMsg &)> hook)
{
    W().msg.sendHook = std::move(hook);
}

// Every adapter base the host makes gets the same class; its handler stays registered until
// the world ends or a new registration replaces it.
uint16_t AdapterMsgClass()
{
    return W().frame.msgRegs.count(kAdapterMsgClass) != 0u ? kAdapterMsgClass : 0u;
}

bool DeliverMsg(uint32_t pid, const std::vector<uint8_t> &bytes, std::optional<uint32_t> deliveredSize)
{
    const uint16_t msgClass = AdapterMsgClass();
    if (msgClass == 0u) {
        return false;
    }
    return Deliver(msgClass, pid, bytes, deliveredSize.value_or(static_cast<uint32_t>(bytes.size())));
}

bool DeliverFcm(uint32_t pid, uint32_t deliveredSize)
{
    std::vector<uint8_t> bytes(kFcmLen, 0);
    std::memcpy(bytes.data() + kFcmPidOff, &pid, sizeof(pid));
    bytes.resize(std::min(deliveredSize, kFcmLen));
    return Deliver(kFcmMsgClass, 0u, bytes, deliveredSize);
}

bool RunFlush()
{
    const uint16_t msgClass = AdapterMsgClass();
    if (msgClass == 0u) {
        return false;
    }
    const MsgReg reg = W().frame.msgRegs[msgClass];
    if (reg.pfnFlush == nullptr) {
        return false;
    }
    (void)reg.pfnFlush(reg.pArg);
    return true;
}

}  // namespace host

using host::W;

extern "C" {

void *KOL_MsgFlowCtrlAlloc_F(uint32_t allocHandle, uint32_t destPid, uint32_t len, const char *file, uint32_t line)
{
    if (allocHandle != W().ctx.ulMsgAllocHandle) {
        host::Fault("KOL_MsgFlowCtrlAlloc_F with allocation handle " + std::to_string(allocHandle) + " at " +
                    std::string(file != nullptr ? file : "") + ":" + std::to_string(line));
    }
    if (host::ShouldFail(host::FailKind::MsgAlloc)) {
        return nullptr;
    }
    void *buf = std::malloc(len == 0u ? 1u : len);
    if (buf == nullptr) {
        return nullptr;
    }
    std::memset(buf, host::kFillByte, len);
    W().msg.outstanding[buf] = host::OutMsg{destPid, len};
    return buf;
}

uint32_t KOL_SEND_MSG(uint32_t destPid, uint32_t service, uint32_t port, void *buf, uint32_t len)
{
    (void)service;
    (void)port;
    host::MsgState &m = W().msg;
    auto it = m.outstanding.find(buf);
    if (it == m.outstanding.end()) {
        host::Fault("KOL_SEND_MSG of unknown buffer to pid " + std::to_string(destPid));
        return 1;
    }
    const host::OutMsg out = it->second;
    m.outstanding.erase(it);
    uint32_t ret = 0;
    if (len > out.len) {
        host::Fault("KOL_SEND_MSG of " + std::to_string(len) + " bytes from a buffer of " + std::to_string(out.len));
        ret = 1;
    } else if (host::ShouldFail(host::FailKind::Send)) {
        ret = 1;
    } else {
        const uint8_t *p = static_cast<const uint8_t *>(buf);
        m.sent.push_back(host::SentMsg{destPid, std::vector<uint8_t>(p, p + len)});
        if (m.sendHook) {
            m.sendHook(m.sent.back());
        }
    }
    std::free(buf);
    return ret;
}

void MSG_Free(uint32_t destPid, void *msg)
{
    host::MsgState &m = W().msg;
    auto it = m.outstanding.find(msg);
    if (it == m.outstanding.end()) {
        host::Fault("MSG_Free of unknown buffer for pid " + std::to_string(destPid));
        return;
    }
    if (it->second.destPid != destPid) {
        host::Fault("MSG_Free for pid " + std::to_string(destPid) + " of a buffer allocated for pid " +
                    std::to_string(it->second.destPid));
    }
    m.outstanding.erase(it);
    std::free(msg);
}

uint32_t MSG_SenderCidGet(const void *msg)
{
    auto it = W().msg.received.find(msg);
    if (it == W().msg.received.end()) {
        host::Fault("MSG_SenderCidGet of a buffer that is not a received message");
        return 0;
    }
    return it->second.senderPid;
}

uint32_t MSG_DataSizeGet(const void *msg)
{
    auto it = W().msg.received.find(msg);
    if (it == W().msg.received.end()) {
        host::Fault("MSG_DataSizeGet of a buffer that is not a received message");
        return 0;
    }
    return it->second.deliveredSize;
}

}  // extern "C"
