// The world driver: runs one script file against the library on the host platform, in a
// fresh host world with a fresh recording application, and reports the first failure.
#ifndef ZANVRRP_SIM_RUNNER_H
#define ZANVRRP_SIM_RUNNER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "args.h"
#include "host/host_world.h"
#include "lexer.h"
#include "pcap.h"
#include "recorder.h"

struct ZAN_VRRP_ADP;

namespace sim {

// An expectation that does not hold; `line` is set when it belongs to another line than
// the step being run (a reaction's failure belongs to its `on` line).
struct ExpectFail {
    std::string msg;
    std::optional<uint32_t> line;
};

// The failure kinds of the host as scripts and the sweep name them: malloc, msgalloc, timer,
// send, meminit, regmsg, regcfg, reginner, adpinit, addinst, delinst, instinit, startwork,
// rbtadd, cliaddrec, cliretcode (every kind has a name).
const char *FailKindName(host::FailKind kind);
// The pieces of text between separators (an empty text gives one empty piece).
std::vector<std::string> SplitText(const std::string &text, char sep);
std::optional<host::FailKind> ParseFailKind(const std::string &name);

// How a sweep run (sweep/sweep.cpp) changes a script's run: survival is checked, not conformance.
//  - `expect` lines are skipped and `expect=` arguments ignored;
//  - `fail` lines are skipped: the sweep arms the failures;
//  - a step that finds nothing to act on (no adapter after a failed get, no instance, no
//    handler registered) is skipped; errors of `on` reactions are ignored;
//  - platform misuse, a wrong callback argument or a runner fault still ends the run, failed.
struct SweepHooks {
    bool enabled = false;
    // The script's lines were checked by an earlier run of the same file: no check pass.
    bool checked = false;
    // Called once the run's world is fresh, before the first step (arm failures here).
    std::function<void()> worldReady;
    // Called for every application event, after the script's own reactions have run: the
    // sweep's application re-enters the library from here.
    std::function<void(const AppEvent &)> appEvent;
    // Called after each application call a step makes: subscribe/unsubscribe (key and
    // subscription TLVs, interface group).
    std::function<void(bool sub, const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &subTlv, uint32_t ifgroup)>
        subscribed;
};

class Runner {
public:
    Runner(std::ostream &out, bool verbose);
    ~Runner();
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    // Runs the script; true when it passed, else `failure` is "FILE:LINE: what".
    bool RunFile(const std::string &path, std::string &failure);
    // The first pass of RunFile on a script's content: splits it and checks every line without
    // running anything. True when it is well formed, else `failure` is "NAME:LINE: what".
    // *runnerFault (when given) tells that an exception other than ScriptError was caught.
    bool CheckScript(const std::string &name, const std::string &content, std::vector<ScriptLine> &lines,
                     std::string &failure, bool *runnerFault = nullptr);
    // Every message the library sends and every message a script delivers goes to the capture.
    void SetPcap(PcapWriter *pcap) { pcap_ = pcap; }

    // Test seam: called with the line number right after each top-level step has run,
    // before the step's checks.
    void SetStepHook(std::function<void(uint32_t line)> hook);

    // Sweep runs (see SweepHooks); a default SweepHooks{} returns to conformance runs.
    void SetSweep(SweepHooks hooks) { sweep_ = std::move(hooks); }
    // The script line being run (0 before the first).
    uint32_t CurrentLine() const { return curLine_; }

private:
    struct Step {
        uint32_t line = 0;
        std::string text;
        const std::vector<std::string> *block = nullptr;
    };
    struct Reaction {
        EvKind kind = EvKind::RegAck;
        std::optional<uint32_t> ifgroup;   // regack, batchbegin
        std::optional<uint32_t> pid;       // allocfail, fcm
        std::optional<uint32_t> timesLeft; // none: no limit
        std::string body;
        uint32_t line = 0;
    };

    void ResetWorld();
    void Exec(const Step &s, bool dry);
    void Log(const std::string &text);
    void ShowNewSent();
    void CheckPending();
    void CheckFaults(uint32_t before);
    void RunReactions(const AppEvent &e);
    void CheckResult(const char *what, std::optional<uint32_t> expected, uint32_t got);
    // True when CheckResult would neither log nor fail (its description need not be built).
    bool ResultQuiet(std::optional<uint32_t> expected, uint32_t got) const;

    ZAN_VRRP_ADP *Adp() const;
    ZAN_VRRP_ADP *NeedAdp() const;
    uint32_t AdpMemHandle() const;

    // setup and framework
    void CmdComponent(Args &a, bool dry);
    void CmdGet(Args &a, bool dry);
    void CmdDeinit(Args &a, bool dry);
    void CmdCallbacks(Args &a, bool dry);
    void CmdOnOff(Args &a, bool dry, const char *what, uint32_t &target);
    void CmdInhibit(Args &a, bool dry);
    void CmdDeploy(Args &a, bool dry);
    void CmdUpDown(Args &a, bool dry, bool up);
    void CmdStatus(Args &a, bool dry);
    void CmdRecv(Args &a, const LexedLine &l, bool dry);
    void CmdFcm(Args &a, bool dry);
    void CmdFlush(Args &a, bool dry);
    void CmdAdvance(Args &a, bool dry);
    void CmdFail(Args &a, bool dry);
    void CmdDrain(Args &a, bool dry);
    // application calls
    void CmdWork(Args &a, bool dry);
    void CmdSubscribe(Args &a, bool dry, bool sub);
    void CmdSendData(Args &a, bool dry);
    void CmdCli(Args &a, bool dry);
    void CmdOn(const Step &s, const LexedLine &l, bool dry);
    void CmdRepeat(const Step &s, const LexedLine &l, bool dry);

    // expectations (expect.cpp)
    void CmdExpect(const Step &s, const LexedLine &l, bool dry);
    void ExpectSent(Args &a, const LexedLine &l, bool dry);
    void ExpectEvent(Args &a, bool dry);
    void ExpectTrace(Args &a, bool dry, bool debug, bool negate);
    void ExpectValues(Args &a, bool dry, int target);
    void ExpectTimers(Args &a, bool dry);
    void ExpectBlocks(Args &a, bool dry);
    void ExpectAsserts(Args &a, bool dry);
    void ExpectOutput(Args &a, const Step &s, bool dry);
    void ExpectOutputHas(Args &a, bool dry);

    std::ostream &out_;
    bool verbose_;
    std::string file_;
    uint32_t curLine_ = 0;
    std::size_t sentShown_ = 0;
    std::vector<Reaction> reactions_;
    uint32_t reactionDepth_ = 0;
    std::optional<ExpectFail> pending_;
    std::optional<host::CliResult> lastCli_;
    PcapWriter *pcap_ = nullptr;
    std::function<void(uint32_t)> stepHook_;
    SweepHooks sweep_;
};

}  // namespace sim

#endif
