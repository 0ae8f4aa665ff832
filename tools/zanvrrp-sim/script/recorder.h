// The recording application: the nine callbacks of the application's table, each of which
// records what the library handed it, in two ordered streams (application events; trace
// points and debug texts). Reactions (`on KIND ... do`) are run through a hook after each
// application event is recorded.
#ifndef ZANVRRP_SIM_RECORDER_H
#define ZANVRRP_SIM_RECORDER_H

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "zan_vrrp_lib.h"

namespace sim {

enum class EvKind { RegAck, RecvData, AllocFail, Fcm, BatchBegin, ItemDown };

const char *EvKindName(EvKind k);

struct AppEvent {
    EvKind kind = EvKind::RegAck;
    uint32_t ifgroup = 0;   // regack, batchbegin
    uint32_t pid = 0;       // allocfail, fcm
    uint32_t n = 0;         // allocfail
    // recvdata: the TLVs as handed over, header host order, then the value bytes
    bool keyPresent = false;
    uint16_t keyType = 0, keyLen = 0;
    std::vector<uint8_t> keyValue;
    bool dataPresent = false;
    uint16_t dataType = 0, dataLen = 0;
    std::vector<uint8_t> dataValue;
    // itemdown: the 32-byte item key
    bool itemPresent = false;
    std::array<uint8_t, 32> item{};
};

std::string DescribeEvent(const AppEvent &e);

struct TraceEvent {
    bool debug = false;     // debug text, else trace point
    std::string module;
    uint32_t line = 0;
    std::string text;
};

std::string DescribeTrace(const TraceEvent &t);

// Slot names without the pfn prefix, in table order.
extern const char *const kSlotNames[9];

class Recorder {
public:
    static Recorder &Instance();

    // A fresh application: no events, debug answer 1, no reactions, no callback fault.
    void Reset();

    // The callback table: all nine slots, or the required three; `except` names slots left empty.
    // Throws ScriptError for an unknown slot name.
    static ZAN_VRRP_CALLBACK_S Table(bool all, const std::set<std::string> &except);

    std::deque<AppEvent> events;
    std::deque<TraceEvent> traces;
    uint32_t debugAnswer = 1;
    uint32_t expectedHandle = 1;     // the ulHandle every callback must carry
    std::string callbackFault;       // the first wrong callback argument seen (reported once)

    // Run inside the callback after an application event was recorded.
    std::function<void(const AppEvent &)> reaction;
    // Verbose log of a callback; empty when not verbose.
    std::function<void(const std::string &)> log;

    // Records the event, then runs the reaction hook.
    void Record(const AppEvent &e);
    void RecordTrace(TraceEvent t);
    void CheckHandle(const char *slot, uint32_t handle);
};

}  // namespace sim

#endif
