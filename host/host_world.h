// The host platform's control surface: what a test or the script runner uses to set up a
// component, deliver messages and configuration records, advance the virtual clock, arm
// failures and inspect what the library did with the platform. The library never includes
// this header.
#ifndef HOST_WORLD_H
#define HOST_WORLD_H

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../platform/zan_platform.h"

namespace host {

// Fallible operations that can be made to fail on demand.
enum class FailKind {
    Malloc, MsgAlloc, Timer, Send, MemInit, RegMsg, RegCfg, RegInner,
    // Framework and service calls that the real platform may refuse too.
    AdpInit, AddInst, DelInst, InstInit, StartWork, RbtAdd, CliAddRec, CliRetCode,
    // A bounded copy that fits refused all the same: a platform misbehaving. Only tests that
    // prove the library reports it arm it; the failure sweep leaves it out unless named.
    Copy,
    Count
};

struct SentMsg {
    uint32_t pid = 0;
    std::vector<uint8_t> bytes;
};

struct AssertRec {
    std::string file;
    uint32_t line = 0;
    uint32_t value = 0;
};

// Returns the world to its start: every block, buffer, timer, registration and instance table
// dropped; component context ulHandle 1, ulCid 0x100, usCompKind 0x21, start-inhibit 0, empty
// adapter slot; virtual time 0; no failure armed.
void Reset();

ZAN_COMP_CTX_S *Ctx();

// Failure injection: the (skip+1)-th next call of kind fails, count times in a row.
// For Malloc, handle narrows it to calls on that memory handle (0: any handle).
void ArmFail(FailKind kind, uint32_t skip, uint32_t count, uint32_t handle = 0);
void ClearFail();
// True while a failure of kind is armed and has not fired yet (a sweep ends when its position
// lies beyond the last call of the scenario).
bool FailArmed(FailKind kind);
// Fallible calls of kind made since the world's start (Reset), the failed ones included: the
// position ArmFail's skip counts (a failure armed at the start with skip i fails call i).
uint32_t Calls(FailKind kind);
// Called right after a call of any kind has been made to fail (empty: none); Reset drops it.
void SetFailHook(std::function<void(FailKind)> hook);

// Memory.
uint32_t BlocksOn(uint32_t memHandle);        // blocks held on a handle
uint64_t BytesOn(uint32_t memHandle);         // bytes requested by the blocks held on a handle
uint32_t LastCreatedHandle();                 // handle made by the last KOL_HandleInitialize (0: none)
uint32_t MsgsOutstanding();                   // allocated by the library, neither sent nor freed
std::vector<uint32_t> MemHandles();           // every memory handle in existence, the framework's too
struct HeldBlock {
    std::string file;                         // where the block was allocated
    uint32_t line = 0;
    uint32_t size = 0;
    bool instance = false;                    // FreedByFinalize: it held an instance of an adapter's table
};
std::vector<HeldBlock> HeldBlocks(uint32_t memHandle);  // ordered by file, line and size
// Blocks that were still held on a handle when KOL_HandleFinalize ended it (and freed them with
// it), since the world's start. `instance` marks a block holding an instance that was added to
// an adapter's table and never deleted from it (the adapter's end drops its table whole).
const std::vector<HeldBlock> &FreedByFinalize();
const std::vector<AssertRec> &Asserts();

// Misuse of the platform by the library (free of an unknown block, send of an unknown buffer,
// stop of an unknown timer, ...): counted and described, never fatal.
uint32_t Faults();
const std::vector<std::string> &FaultLog();

// Messages sent by the library, oldest first; consumers pop them.
std::deque<SentMsg> &Sent();
// Called for every message the library sends successfully, at the moment it is sent (a capture
// takes the virtual time from Now()); empty: none.
void SetSendHook(std::function<void(const SentMsg &)> hook);

// Delivers bytes from pid to the handler registered for the adapter's message class.
// deliveredSize (default: bytes.size()) is what MSG_DataSizeGet answers; the buffer holds
// max(bytes.size(), deliveredSize) bytes. Returns false when no handler is registered.
bool DeliverMsg(uint32_t pid, const std::vector<uint8_t> &bytes, std::optional<uint32_t> deliveredSize = {});
// Delivers a flow-control message (class 7) naming pid at byte offset 8, host order, in a
// buffer of deliveredSize bytes (fewer than 12 cut the pid off).
bool DeliverFcm(uint32_t pid, uint32_t deliveredSize = 12u);
// Runs the flush routine registered with the adapter's message class.
bool RunFlush();
// The message class the adapter registered its handler for (0: none).
uint16_t AdapterMsgClass();
// Every registration in force (the framework keeps one until the component ends, or until a new
// one for the same class, table and operation, or command replaces it): described as "message
// class N", "configuration table T op O" or "command NAME", with the argument it was made with.
struct Registration {
    std::string what;
    const void *arg = nullptr;
};
std::vector<Registration> Registrations();

// Configuration: calls the callback registered for (table, op) with the record.
// Returns the callback's result, or nullopt when none is registered.
std::optional<uint32_t> DeliverCfg(uint32_t tblId, uint32_t op, const std::vector<uint8_t> &rec);

// Framework instances.
ZAN_COMP_INST_S *FindInst(uint32_t pid);         // in the adapter's table
std::vector<uint32_t> InstPids();                // ascending
bool RunUp(uint32_t pid);                        // the instance's Up operation
bool RunDown(uint32_t pid);                      // the instance's Down operation
bool SetStatus(uint32_t pid, uint32_t value);

// Virtual clock and loop timers.
uint64_t Now();
void Advance(uint64_t ms);                       // fires every due expiry in time order
std::optional<uint64_t> NextTimerDue();          // time of the earliest expiry (none: no timer)
std::vector<uint32_t> RunningTimerPeriods();     // sorted ascending
std::vector<uint32_t> RunningTimerHandles();     // sorted ascending
uint32_t TimerPeriod(uint32_t handle);           // period of the running timer with handle (0: none)

// Diagnostics: runs the command registered as name (e.g. "zanvrrp") for item.
struct CliResult {
    bool registered = false;
    uint32_t result = 0;
    std::vector<std::vector<uint8_t>> records;   // copies made by CLI_AddRec
    std::string text;                            // text of every record (from byte 148), concatenated
    uint32_t optionDataCalls = 0;
    uint32_t retCodeCalls = 0;
};
CliResult RunCli(const std::string &name, const std::string &item, const std::optional<std::string> &pidText,
                 uint32_t cont);

}  // namespace host

#endif
