// The host world's state, shared by the platform services of the host: one singleton holding
// the component context, memory, messages, framework tables, timers, diagnostics registrations,
// armed failures and the record of platform misuse (faults).
#ifndef HOST_STATE_H
#define HOST_STATE_H

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host_world.h"

namespace host {

// Component values at the start of a world.
constexpr uint32_t kCtxHandle = 1u;
constexpr uint32_t kCtxCid = 0x100u;
constexpr uint16_t kCtxKind = 0x21u;
constexpr uint32_t kFwMemHandle = 0x7u;
constexpr uint32_t kMsgAllocHandle = 0x9u;
constexpr uint32_t kCfgObjId = 0x1u;
constexpr uint32_t kFirstMemHandle = 0x11u;
constexpr uint16_t kAdapterMsgClass = 0x35u;
constexpr uint16_t kFcmMsgClass = 7u;
constexpr uint32_t kFirstTimerHandle = 0x1001u;
constexpr uint32_t kFirstCliCmdId = 0x501u;
// Fill pattern of blocks and message buffers handed to the library: it must not rely on zeroing.
constexpr uint8_t kFillByte = 0xA5u;

struct MemBlock {
    uint32_t handle = 0;
    uint32_t size = 0;
    std::string file;
    uint32_t line = 0;
};

struct MemHandleInfo {
    uint32_t cid = 0;
    uint32_t id = 0;
    std::set<void *> blocks;
};

struct MemState {
    std::map<uint32_t, MemHandleInfo> handles;
    std::unordered_map<void *, MemBlock> blocks;
    uint32_t nextHandle = kFirstMemHandle;
    uint32_t lastCreated = 0;
    std::vector<AssertRec> asserts;
    std::vector<HeldBlock> freedByFinalize;
};

struct OutMsg {
    uint32_t destPid = 0;
    uint32_t len = 0;
};

struct InMsg {
    uint32_t senderPid = 0;
    uint32_t deliveredSize = 0;
};

struct MsgState {
    std::unordered_map<void *, OutMsg> outstanding;   // library buffers neither sent nor freed
    std::unordered_map<const void *, InMsg> received; // buffers being delivered right now
    std::deque<SentMsg> sent;
    std::function<void(const SentMsg &)> sendHook;
};

using InstTable = std::map<uint32_t, ZAN_COMP_INST_S *>;

struct MsgReg {
    ZAN_MSG_PROC_PF pfnProc = nullptr;
    void *pArg = nullptr;
    ZAN_FLUSH_PF pfnFlush = nullptr;
};

struct CfgReg {
    ZAN_CFG_PF pfn = nullptr;
    void *pArg = nullptr;
    uint32_t recLen = 0;
};

struct FrameState {
    std::map<ZAN_COMP_ADP_S *, std::unique_ptr<InstTable>> adapters;
    ZAN_COMP_ADP_S *current = nullptr;   // the adapter initialised on the world's context
    std::map<uint16_t, MsgReg> msgRegs;
    std::map<std::pair<uint32_t, uint32_t>, CfgReg> cfgRegs;
    std::set<const void *> addedInsts;   // added to a table and not deleted from it
};

struct Timer {
    ZAN_TMR_PF pfn = nullptr;
    uint32_t periodMs = 0;
    void *pParam = nullptr;
    ZAN_COMP_CTX_S *pCompCtx = nullptr;
    uint64_t startSeq = 0;
    uint64_t due = 0;
};

struct TimerState {
    uint64_t now = 0;
    std::map<uint32_t, Timer> timers;   // by handle
    uint32_t nextHandle = kFirstTimerHandle;
    uint64_t nextSeq = 0;
};

struct InnerReg {
    ZAN_INNERDATA_PF pfn = nullptr;
    void *pArg = nullptr;
};

struct CliState {
    std::map<std::string, InnerReg> commands;
    CliResult *current = nullptr;   // the answer being built by RunCli
    uint32_t nextCmdId = kFirstCliCmdId;
};

struct FailArm {
    bool armed = false;
    uint32_t skip = 0;
    uint32_t count = 0;
    uint32_t handle = 0;
};

struct World {
    ZAN_COMP_CTX_S ctx{};
    MemState mem;
    MsgState msg;
    FrameState frame;
    TimerState timer;
    CliState cli;
    std::array<FailArm, static_cast<size_t>(FailKind::Count)> fails{};
    std::array<uint32_t, static_cast<size_t>(FailKind::Count)> calls{};
    std::function<void(FailKind)> failHook;
    std::vector<std::string> faults;
};

World &W();

// Records a misuse of the platform by its caller.
void Fault(const std::string &what);

// Called once per fallible call of kind: true when this call is to fail. For Malloc, handle is
// the call's memory handle (an arm narrowed to another handle ignores the call).
bool ShouldFail(FailKind kind, uint32_t handle = 0);

// Per-concern release of everything the world holds, used by Reset.
void ResetMem();
void ResetMsg();
void ResetFrame();
void ResetTimers();
void ResetCli();

}  // namespace host

#endif
