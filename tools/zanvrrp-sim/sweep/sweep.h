// `zanvrrp-sim script --sweep`: every fallible platform call a script makes the library do is
// made to fail, one call at a time and from that call on, with the application plain or
// re-entering the library from its callbacks; every such run must survive (no crash, no
// sanitizer report, no platform misuse) and, once the adapter is ended as `deinit` ends it,
// leave nothing held: no block, memory handle, message buffer, timer or registration.
//
// A script's run is the conformance runner's (runner.h) in sweep mode (see SweepHooks): its
// expectations are not checked. Each case runs in a child process, so a crash or a sanitizer
// report is told with its case and the sweep goes on with the next one.
#ifndef ZANVRRP_SIM_SWEEP_H
#define ZANVRRP_SIM_SWEEP_H

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace sim {

constexpr std::size_t kFailKinds = static_cast<std::size_t>(host::FailKind::Count);
using CallCounts = std::array<uint32_t, kFailKinds>;

// How the sweep's application re-enters the library from its callbacks, on top of whatever
// the script's own `on` reactions do.
enum class Reentry {
    Plain,      // nothing more
    AllocFail,  // pfnMsgAllocFail turns the work state off, the next one on again, and so on
    ItemDown,   // pfnItemDown subscribes the item again at once, and again at its group's next pfnRegAck
    Feed,       // pfnRegAck subscribes an item of its group, pfnProdBatchBegin sends two data of its
                // group, pfnRecvData sends a datum (the README's application, and more)
};
constexpr Reentry kAllReentries[] = {Reentry::Plain, Reentry::AllocFail, Reentry::ItemDown, Reentry::Feed};
const char *ReentryName(Reentry r);
std::optional<Reentry> ParseReentry(const std::string &name);

// Test seam: what a sweep run does, on purpose, at the first failure it injects, so that a test
// can prove that the sweep reports it.
enum class Sabotage {
    None,
    Leak,    // a block on the framework handle that nobody frees
    Lost,    // a block on the adapter's own handle that nobody frees (its end would free it unseen)
    Misuse,  // a message buffer freed that was never allocated
    Timer,   // a timer started that nobody stops
    Buffer,  // a message buffer allocated that is neither sent nor freed
    Handle,  // a memory handle made that nobody ends
    Reg,     // a message handler registered that nobody withdraws
    Acts,    // the adapter's message handler replaced by one that sends, still named by the
             // adapter context kept after the adapter's end
    Crash,   // a write through a null pointer
    Hang,    // never returns
};
std::optional<Sabotage> ParseSabotage(const std::string &name);

struct SweepCase {
    host::FailKind kind = host::FailKind::Count;  // Count: nothing fails (the counting run)
    uint32_t index = 0;                           // the kind's call that fails first (0-based)
    bool rest = false;                            // false: that call only; true: it and every later one
    Reentry mode = Reentry::Plain;
};
// "malloc #12 one, itemdown" / "no failure, plain".
std::string DescribeCase(const SweepCase &c);
// "malloc:12:one:itemdown", what --case takes.
std::string CaseId(const SweepCase &c);
std::optional<SweepCase> ParseCaseId(const std::string &id);

struct SweepOptions {
    std::vector<Reentry> modes{std::begin(kAllReentries), std::end(kAllReentries)};
    std::vector<host::FailKind> kinds;   // empty: all
    Sabotage sabotage = Sabotage::None;
    bool fork = true;                    // each case in a child process (false: in this one)
    double caseTimeoutSec = 60;          // a case that runs longer is reported as hanging
    std::size_t keepFailures = 5;        // failures kept per file for the report (0: all)
};

struct CaseOutcome {
    bool ok = true;
    std::string what;                    // what broke, when !ok
    CallCounts calls{};                  // fallible calls made, by kind (a completed run only)
    uint32_t events = 0;                 // kinds of application events seen (bit 1 << EvKind)
    bool completed = false;              // the child reported back (no crash, no hang)
};

// One case in this process: the script's run, the failure armed as the case says, the
// application's re-entry, then the end of the world and its checks. `out` gets the runner's log
// when verbose. `checked`: the script's lines were checked by an earlier run (skips that pass).
CaseOutcome RunCase(const std::string &path, const SweepCase &c, Sabotage sabotage, std::ostream &out,
                    bool verbose, bool checked = false);

struct SweepFailure {
    SweepCase c;
    std::string what;
};

struct SweepFileResult {
    std::string file;
    uint64_t cases = 0;        // run
    uint64_t same = 0;         // re-entry cases not run: their plain run saw no event the mode acts on
    uint64_t failed = 0;
    std::vector<SweepFailure> failures;                  // the first ones (SweepOptions::keepFailures)
    std::vector<std::pair<Reentry, CallCounts>> counts;  // per mode, from its counting run
};

// The whole sweep of one script: per mode a counting run, then two cases for every call of
// every kind that run made. The plain cases run first: a re-entry case whose plain case (same
// kind, index and span) saw no application event that the mode acts on is the same run, call for
// call, and is not run again.
SweepFileResult SweepFile(const std::string &path, const SweepOptions &opt);

// `zanvrrp-sim script --sweep ...` (args without "script"); the exit status.
int SweepMain(const std::vector<std::string> &args, std::ostream &out, std::ostream &err);
extern const char *const kSweepUsage;

}  // namespace sim

#endif
