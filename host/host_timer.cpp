// Loop timers on a virtual clock: a timer started at t with period p expires at t + k*p;
// Advance fires every due expiry in time order, equal times in the order the timers started.
#include <algorithm>

#include "host_state.h"

namespace host {

void ResetTimers()
{
    W().timer = TimerState{};
}

uint64_t Now()
{
    return W().timer.now;
}

void Advance(uint64_t ms)
{
    TimerState &t = W().timer;
    const uint64_t target = t.now + ms;
    for (;;) {
        // The earliest expiry; the map is scanned afresh each time because callbacks may start
        // and stop timers (including the one that fires).
        auto next = t.timers.end();
        for (auto it = t.timers.begin(); it != t.timers.end(); ++it) {
            if (it->second.due > target) {
                continue;
            }
            if (next == t.timers.end() || it->second.due < next->second.due ||
                (it->second.due == next->second.due && it->second.startSeq < next->second.startSeq)) {
                next = it;
            }
        }
        if (next == t.timers.end()) {
            break;
        }
        const uint32_t handle = next->first;
        const Timer fired = next->second;
        t.now = fired.due;
        next->second.due += fired.periodMs;
        fired.pfn(fired.pParam, handle, fired.pCompCtx);
    }
    t.now = target;
}

std::vector<uint32_t> RunningTimerPeriods()
{
    std::vector<uint32_t> periods;
    for (const auto &entry : W().timer.timers) {
        periods.push_back(entry.second.periodMs);
    }
    std::sort(periods.begin(), periods.end());
    return periods;
}

std::optional<uint64_t> NextTimerDue()
{
    std::optional<uint64_t> due;
    for (const auto &entry : W().timer.timers) {
        if (!due || entry.second.due < *due) {
            due = entry.second.due;
        }
    }
    return due;
}

std::vector<uint32_t> RunningTimerHandles()
{
    // The map is ordered by handle.
    std::vector<uint32_t> handles;
    for (const auto &entry : W().timer.timers) {
        handles.push_back(entry.first);
    }
    return handles;
}

uint32_t TimerPeriod(uint32_t handle)
{
    auto it = W().timer.timers.find(handle);
    return it == W().timer.timers.end() ? 0u : it->second.periodMs;
}

}  // namespace host

using host::W;

extern "C" {

uint32_t ZAN_Frame_StartLoopTmr(ZAN_COMP_CTX_S *pCompCtx, ZAN_TMR_PF pfn, uint32_t ulPeriodMs, void *pParam)
{
    if (pfn == nullptr || ulPeriodMs == 0u) {
        host::Fault("ZAN_Frame_StartLoopTmr without callback or with period 0");
        return 0;
    }
    if (host::ShouldFail(host::FailKind::Timer)) {
        return 0;
    }
    host::TimerState &t = W().timer;
    uint32_t handle = t.nextHandle++;
    while (handle == 0u || t.timers.count(handle) != 0u) {
        handle = t.nextHandle++;
    }
    t.timers[handle] = host::Timer{pfn, ulPeriodMs, pParam, pCompCtx, t.nextSeq++, t.now + ulPeriodMs};
    return handle;
}

void ZAN_Frame_StopTmr(ZAN_COMP_CTX_S *pCompCtx, uint32_t ulHandle)
{
    (void)pCompCtx;
    if (W().timer.timers.erase(ulHandle) == 0u) {
        host::Fault("ZAN_Frame_StopTmr of unknown timer " + std::to_string(ulHandle));
    }
}

}  // extern "C"
