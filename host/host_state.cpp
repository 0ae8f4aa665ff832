// The world singleton, its reset, failure injection and the fault record.
#include "host_state.h"

namespace host {

World &W()
{
    static World world = [] {
        World w;
        w.ctx.ulHandle = kCtxHandle;
        w.ctx.ulCid = kCtxCid;
        w.ctx.usCompKind = kCtxKind;
        w.ctx.ulFwMemHandle = kFwMemHandle;
        w.ctx.ulMsgAllocHandle = kMsgAllocHandle;
        w.ctx.stCfgObj.ulObjId = kCfgObjId;
        w.mem.handles[kFwMemHandle] = MemHandleInfo{kCtxCid, 0, {}};
        return w;
    }();
    return world;
}

void Fault(const std::string &what)
{
    W().faults.push_back(what);
}

bool ShouldFail(FailKind kind, uint32_t handle)
{
    World &w = W();
    w.calls[static_cast<size_t>(kind)]++;
    FailArm &arm = w.fails[static_cast<size_t>(kind)];
    if (!arm.armed) {
        return false;
    }
    if (kind == FailKind::Malloc && arm.handle != 0u && arm.handle != handle) {
        return false;
    }
    if (arm.skip > 0u) {
        arm.skip--;
        return false;
    }
    if (arm.count > 0u) {
        arm.count--;
    }
    if (arm.count == 0u) {
        arm.armed = false;
    }
    if (w.failHook) {
        const std::function<void(FailKind)> hook = w.failHook;
        hook(kind);
    }
    return true;
}

void Reset()
{
    // Each concern releases the real memory it holds before the state is rebuilt.
    ResetCli();
    ResetTimers();
    ResetFrame();
    ResetMsg();
    ResetMem();

    World &w = W();
    w.ctx = ZAN_COMP_CTX_S{};
    w.ctx.ulHandle = kCtxHandle;
    w.ctx.ulCid = kCtxCid;
    w.ctx.usCompKind = kCtxKind;
    w.ctx.usStartInhibit = 0;
    w.ctx.ulFwMemHandle = kFwMemHandle;
    w.ctx.ulMsgAllocHandle = kMsgAllocHandle;
    w.ctx.pAdpSlot = nullptr;
    w.ctx.stCfgObj.ulObjId = kCfgObjId;
    w.mem.handles[kFwMemHandle] = MemHandleInfo{kCtxCid, 0, {}};
    ClearFail();
    w.calls = {};
    w.failHook = nullptr;
    w.faults.clear();
}

ZAN_COMP_CTX_S *Ctx()
{
    return &W().ctx;
}

void ArmFail(FailKind kind, uint32_t skip, uint32_t count, uint32_t handle)
{
    if (kind == FailKind::Count) {
        return;
    }
    FailArm &arm = W().fails[static_cast<size_t>(kind)];
    arm.armed = count > 0u;
    arm.skip = skip;
    arm.count = count;
    arm.handle = (kind == FailKind::Malloc) ? handle : 0u;
}

bool FailArmed(FailKind kind)
{
    return W().fails[static_cast<size_t>(kind)].armed;
}

uint32_t Calls(FailKind kind)
{
    return kind == FailKind::Count ? 0u : W().calls[static_cast<size_t>(kind)];
}

void SetFailHook(std::function<void(FailKind)> hook)
{
    W().failHook = std::move(hook);
}

void ClearFail()
{
    for (FailArm &arm : W().fails) {
        arm = FailArm{};
    }
}

uint32_t Faults()
{
    return static_cast<uint32_t>(W().faults.size());
}

const std::vector<std::string> &FaultLog()
{
    return W().faults;
}

}  // namespace host
