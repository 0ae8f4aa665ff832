#include "sweep.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <functional>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

#include "adp/zan_vrrpadp.h"
#include "labels.h"
#include "lexer.h"
#include "recorder.h"
#include "runner.h"
#include "zan_vrrp_lib.h"

#if defined(__SANITIZE_ADDRESS__)
#define ZAN_SWEEP_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZAN_SWEEP_ASAN 1
#endif
#endif

namespace sim {

namespace {

using ItemKey = std::array<uint8_t, 32>;

// Nesting of the sweep application's own calls into the library (a call it makes may report
// an event that makes it call again).
constexpr uint32_t kMaxAppDepth = 4;
// Excerpt of a crashed child's diagnostics kept in the report.
constexpr std::size_t kExcerptLines = 60;

ZAN_VRRP_ADP_S *CurrentAdp()
{
    return LiveAdp();
}

// The 32-byte item key the library reports in pfnItemDown: the key TLV and the subscription
// TLV as the application passed them (type and length in host order, the value), each in a
// zero-filled 16-byte area. A TLV longer than its area makes no item.
std::optional<ItemKey> ItemOf(const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &sub)
{
    if (key.usLen + 4u > 16u || sub.usLen + 4u > 16u) {
        return std::nullopt;
    }
    ItemKey item{};
    std::memcpy(item.data(), &key, key.usLen + 4u);
    std::memcpy(item.data() + 16, &sub, sub.usLen + 4u);
    return item;
}

// The application of a sweep run: re-enters the library from its callbacks as the mode says.
class ReentryApp {
public:
    ReentryApp(Reentry mode, std::function<void(const std::string &)> log) : mode_(mode), log_(std::move(log)) {}

    // Every subscription the script (or this application) made, to find an item's group again.
    void Remember(const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &sub, uint32_t ifgroup)
    {
        if (std::optional<ItemKey> item = ItemOf(key, sub)) {
            groups_[*item] = ifgroup;
        }
        lastGroup_ = ifgroup;
    }

    uint32_t Seen() const { return seen_; }

    void OnEvent(const AppEvent &e)
    {
        seen_ |= 1u << static_cast<uint32_t>(e.kind);
        ZAN_VRRP_ADP_S *adp = CurrentAdp();
        if (mode_ == Reentry::Plain || adp == nullptr || depth_ >= kMaxAppDepth) {
            return;
        }
        ++depth_;
        switch (mode_) {
        case Reentry::AllocFail:
            if (e.kind == EvKind::AllocFail) {
                const uint32_t on = workOff_ ? 1u : 0u;
                workOff_ = !workOff_;
                Log("ZAN_VrrpAdp_SetWorkState(" + std::to_string(on) + ")", ZAN_VrrpAdp_SetWorkState(adp, on));
            }
            break;
        case Reentry::ItemDown:
            OnItemDownMode(adp, e);
            break;
        case Reentry::Feed:
            OnFeedMode(adp, e);
            break;
        case Reentry::Plain:
            break;
        }
        --depth_;
    }

private:
    void Log(const std::string &call, uint32_t result)
    {
        if (log_) {
            log_("sweep application (" + std::string(ReentryName(mode_)) + "): " + call + " -> " +
                 (result > 0xFFFFu ? HexNum(result) : std::to_string(result)));
        }
    }

    static std::string Tlv(const ZAN_VRRP_TLV_S &t)
    {
        const std::size_t n = std::min<std::size_t>(t.usLen, sizeof(t.aucValue));
        return std::to_string(t.usType) + "/" + std::to_string(t.usLen) + "/" +
               HexCompact(std::vector<uint8_t>(t.aucValue, t.aucValue + n));
    }

    void Subscribe(ZAN_VRRP_ADP_S *adp, const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &sub, uint32_t ifgroup)
    {
        Remember(key, sub, ifgroup);
        const uint32_t r = ZAN_VrrpAdp_Subscribe(adp, &key, &sub, ifgroup);
        Log("ZAN_VrrpAdp_Subscribe(key " + Tlv(key) + ", sub " + Tlv(sub) + ", ifgroup " + std::to_string(ifgroup) + ")",
            r);
    }

    void SendData(ZAN_VRRP_ADP_S *adp, uint32_t ifgroup, const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &data)
    {
        const uint32_t r = ZAN_VrrpAdp_SendData(adp, ifgroup, &key, &data);
        Log("ZAN_VrrpAdp_SendData(ifgroup " + std::to_string(ifgroup) + ", key " + Tlv(key) + ", data " + Tlv(data) +
                ")",
            r);
    }

    void OnItemDownMode(ZAN_VRRP_ADP_S *adp, const AppEvent &e)
    {
        if (e.kind == EvKind::ItemDown && e.itemPresent) {
            ZAN_VRRP_TLV_S key;
            ZAN_VRRP_TLV_S sub;
            std::memcpy(&key, e.item.data(), sizeof(key));
            std::memcpy(&sub, e.item.data() + 16, sizeof(sub));
            auto it = groups_.find(e.item);
            std::optional<uint32_t> group = it != groups_.end() ? std::optional<uint32_t>(it->second) : lastGroup_;
            if (!group) {
                return;
            }
            downed_[*group].insert(e.item);
            Subscribe(adp, key, sub, *group);
        } else if (e.kind == EvKind::RegAck) {
            auto it = downed_.find(e.ifgroup);
            if (it == downed_.end()) {
                return;
            }
            const std::set<ItemKey> items = it->second;
            downed_.erase(it);
            for (const ItemKey &item : items) {
                ZAN_VRRP_TLV_S key;
                ZAN_VRRP_TLV_S sub;
                std::memcpy(&key, item.data(), sizeof(key));
                std::memcpy(&sub, item.data() + 16, sizeof(sub));
                Subscribe(adp, key, sub, e.ifgroup);
            }
        }
    }

    void OnFeedMode(ZAN_VRRP_ADP_S *adp, const AppEvent &e)
    {
        if (e.kind == EvKind::RegAck) {
            // The README's application: an item of the group once it is registered.
            ZAN_VRRP_TLV_S key{1, 5, {static_cast<uint8_t>(0xF0u + (e.ifgroup & 0xFu)), 0, 0, 0, 1}};
            ZAN_VRRP_TLV_S sub{2, 1, {1}};
            Subscribe(adp, key, sub, e.ifgroup);
        } else if (e.kind == EvKind::BatchBegin) {
            // Two data of the group, the second replacing a datum of the script's usual keys.
            ZAN_VRRP_TLV_S key{ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN,
                               {0xF0, 0, 0, static_cast<uint8_t>(e.ifgroup), 1, 0, 0, 0}};
            ZAN_VRRP_TLV_S data{ZAN_VRRP_DATA_TLV_TYPE, 8, {1, 2, 3, 4, 5, 6, 7, static_cast<uint8_t>(fed_++)}};
            SendData(adp, e.ifgroup, key, data);
            ZAN_VRRP_TLV_S key2{ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN, {1, 0, 0, 0, 1, 0, 0, 0}};
            ZAN_VRRP_TLV_S none{ZAN_VRRP_DATA_TLV_TYPE, 0, {}};
            SendData(adp, e.ifgroup, key2, none);
        } else if (e.kind == EvKind::RecvData && e.keyPresent) {
            // A real-time datum of the application's own once a record arrives.
            if (lastGroup_) {
                ZAN_VRRP_TLV_S key{ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN, {0xF1, 0, 0, 0, 1, 0, 0, 0}};
                ZAN_VRRP_TLV_S data{ZAN_VRRP_DATA_TLV_TYPE, 8, {8, 7, 6, 5, 4, 3, 2, static_cast<uint8_t>(fed_++)}};
                SendData(adp, *lastGroup_, key, data);
            }
        }
    }

    Reentry mode_;
    std::function<void(const std::string &)> log_;
    uint32_t seen_ = 0;
    uint32_t depth_ = 0;
    bool workOff_ = false;
    uint32_t fed_ = 0;
    std::map<ItemKey, uint32_t> groups_;
    std::map<uint32_t, std::set<ItemKey>> downed_;
    std::optional<uint32_t> lastGroup_;
};

void NoopTimer(void *, uint32_t, ZAN_COMP_CTX_S *) {}
uint32_t NoopMsgProc(void *, void *) { return 0; }

// Sends one 20-byte message: a handler that acts.
uint32_t ActingMsgProc(void *, void *)
{
    void *buf = KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, 0x77, 20, "sweep-sabotage", 4);
    if (buf != nullptr) {
        std::memset(buf, 0, 20);
        static_cast<uint8_t *>(buf)[1] = 20;
        (void)KOL_SEND_MSG(0x77, 6, 853, buf, 20);
    }
    return 0;
}

int *volatile g_nowhere = nullptr;
uint8_t g_notABuffer = 0;

void DoSabotage(Sabotage s)
{
    switch (s) {
    case Sabotage::None:
        break;
    case Sabotage::Leak:
        (void)KOL_Malloc_F(host::Ctx()->ulFwMemHandle, g_aucKolMemPt[0], 24, "sweep-sabotage", 1);
        break;
    case Sabotage::Lost:
        if (host::LastCreatedHandle() != 0u) {
            (void)KOL_Malloc_F(host::LastCreatedHandle(), g_aucKolMemPt[0], 40, "sweep-sabotage", 2);
        }
        break;
    case Sabotage::Misuse:
        MSG_Free(0, &g_notABuffer);
        break;
    case Sabotage::Timer:
        (void)ZAN_Frame_StartLoopTmr(host::Ctx(), NoopTimer, 1234, nullptr);
        break;
    case Sabotage::Buffer:
        (void)KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, 0x77, 20, "sweep-sabotage", 3);
        break;
    case Sabotage::Handle: {
        uint32_t handle = 0;
        (void)KOL_HandleInitialize(host::Ctx()->ulCid, 0x77, &handle);
        break;
    }
    case Sabotage::Reg:
        (void)ZAN_Frame_RegMsgProc(host::Ctx(), 0x7777, NoopMsgProc, &g_notABuffer, nullptr);
        break;
    case Sabotage::Acts:
        if (host::AdapterMsgClass() != 0u) {
            (void)ZAN_Frame_RegMsgProc(host::Ctx(), host::AdapterMsgClass(), ActingMsgProc, host::Ctx()->pAdpSlot,
                                       nullptr);
        }
        break;
    case Sabotage::Crash:
        *g_nowhere = 1;
        break;
    case Sabotage::Hang:
        for (;;) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
    }
}

// The application events a mode acts on (its application makes no call on any other).
uint32_t Triggers(Reentry r)
{
    auto bit = [](EvKind k) { return 1u << static_cast<uint32_t>(k); };
    switch (r) {
    case Reentry::Plain: return 0;
    case Reentry::AllocFail: return bit(EvKind::AllocFail);
    case Reentry::ItemDown: return bit(EvKind::ItemDown);
    case Reentry::Feed: return bit(EvKind::RegAck) | bit(EvKind::BatchBegin) | bit(EvKind::RecvData);
    }
    return ~0u;
}

std::string Join(const std::vector<std::string> &parts, const char *sep)
{
    std::string s;
    for (const std::string &p : parts) {
        s += (s.empty() ? "" : sep) + p;
    }
    return s;
}

std::string DescribeHeld(const std::vector<host::HeldBlock> &held)
{
    // Blocks allocated at the same place are counted together.
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < held.size();) {
        std::size_t j = i;
        uint64_t bytes = 0;
        while (j < held.size() && held[j].file == held[i].file && held[j].line == held[i].line) {
            bytes += held[j].size;
            ++j;
        }
        parts.push_back(held[i].file + ":" + std::to_string(held[i].line) + " x" + std::to_string(j - i) + " (" +
                        std::to_string(bytes) + " bytes)");
        i = j;
    }
    return Join(parts, ", ");
}

// What a poke of the kept registrations could change.
struct WorldMark {
    std::size_t sent = 0, events = 0, traces = 0;
    uint32_t faults = 0, msgs = 0;
    uint64_t blocks = 0;
    std::vector<uint32_t> timers;
    bool operator==(const WorldMark &) const = default;
};

WorldMark MarkWorld()
{
    WorldMark m;
    m.sent = host::Sent().size();
    m.events = Recorder::Instance().events.size();
    m.traces = Recorder::Instance().traces.size();
    m.faults = host::Faults();
    m.msgs = host::MsgsOutstanding();
    for (uint32_t h : host::MemHandles()) {
        m.blocks += host::BlocksOn(h);
    }
    m.timers = host::RunningTimerHandles();
    return m;
}

// An ended adapter stays in the component's slot, and the framework keeps what it registered
// with it: each of those registrations is run once more (a message, a flow-control message, the
// flush, both deploy operations, the command) and must do nothing at all. Empty: so it did.
std::string PokeKeptRegistrations()
{
    const WorldMark before = MarkWorld();
    std::vector<uint8_t> msg(20, 0);
    msg[1] = 20;
    msg[2] = 0x81;
    msg[3] = 7;
    ZAN_VRRP_DEPLOY_REC_S rec{};
    rec.ulKind = ZAN_VRRP_DEPLOY_KIND;
    rec.ulPid = 0x10;
    rec.ulIfGroupId = 1;
    std::vector<uint8_t> recBytes(sizeof(rec));
    std::memcpy(recBytes.data(), &rec, sizeof(rec));
    (void)host::DeliverMsg(0x10, msg);
    (void)host::DeliverFcm(0x10);
    (void)host::RunFlush();
    (void)host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_CREATE, recBytes);
    (void)host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_DELETE, recBytes);
    const host::CliResult cli = host::RunCli("zanvrrp", "adp-base", std::nullopt, 0);
    if (!(MarkWorld() == before) || !cli.records.empty()) {
        return "a registration of the ended adapter still acts";
    }
    return "";
}

// The end of a run: the adapter ended as `deinit` ends it, then everything the world still
// holds. Empty: nothing.
std::string EndWorld(bool &inDeinit)
{
    std::vector<std::string> problems;
    const uint32_t faults = host::Faults();
    if (CurrentAdp() != nullptr) {
        inDeinit = true;
        ZAN_VrrpAdp_DeInit(host::Ctx());
        inDeinit = false;
    }
    const std::vector<std::string> &log = host::FaultLog();
    if (log.size() > faults) {
        problems.push_back("platform misuse at the final deinit: " + log[faults] +
                           (log.size() > faults + 1 ? " (and " + std::to_string(log.size() - faults - 1) + " more)"
                                                    : std::string()));
    }
    Recorder &rec = Recorder::Instance();
    if (!rec.callbackFault.empty()) {
        problems.push_back("at the final deinit: " + rec.callbackFault);
    }
    // Ending a memory handle frees what is on it, which would hide a block the library lost
    // track of: but for the records of the instances the adapter still had when it ended, the
    // library frees every block itself before it ends its handle.
    std::vector<host::HeldBlock> finalized;
    for (const host::HeldBlock &b : host::FreedByFinalize()) {
        if (!b.instance) {
            finalized.push_back(b);
        }
    }
    if (!finalized.empty()) {
        std::sort(finalized.begin(), finalized.end(), [](const host::HeldBlock &a, const host::HeldBlock &b) {
            return std::tie(a.file, a.line, a.size) < std::tie(b.file, b.line, b.size);
        });
        problems.push_back(std::to_string(finalized.size()) +
                           " block(s) still held on a memory handle when the library ended it: " +
                           DescribeHeld(finalized));
    }
    for (uint32_t h : host::MemHandles()) {
        if (h == host::Ctx()->ulFwMemHandle) {
            const std::vector<host::HeldBlock> held = FwBlocksBesideKeptContext();
            if (!held.empty()) {
                problems.push_back(std::to_string(held.size()) + " block(s) held on the framework handle: " +
                                   DescribeHeld(held));
            }
        } else {
            const std::vector<host::HeldBlock> held = host::HeldBlocks(h);
            problems.push_back("memory handle " + HexNum(h) + " not finalised" +
                               (held.empty() ? std::string()
                                             : ", " + std::to_string(held.size()) + " block(s) on it: " +
                                                   DescribeHeld(held)));
        }
    }
    if (host::MsgsOutstanding() != 0u) {
        problems.push_back(std::to_string(host::MsgsOutstanding()) + " message buffer(s) neither sent nor freed");
    }
    const std::vector<uint32_t> periods = host::RunningTimerPeriods();
    if (!periods.empty()) {
        std::vector<std::string> p;
        for (uint32_t ms : periods) {
            p.push_back(std::to_string(ms) + " ms");
        }
        problems.push_back("timer(s) still running: " + Join(p, ", "));
    }
    const void *kept = host::Ctx()->pAdpSlot;
    std::vector<std::string> regs;
    bool keptRegs = false;
    for (const host::Registration &r : host::Registrations()) {
        if (kept != nullptr && r.arg == kept) {
            keptRegs = true;
        } else {
            regs.push_back(r.what);
        }
    }
    if (!regs.empty()) {
        problems.push_back("registration(s) left: " + Join(regs, ", "));
    }
    if (keptRegs) {
        const std::string acted = PokeKeptRegistrations();
        if (!acted.empty()) {
            problems.push_back(acted);
        }
    }
    return Join(problems, "; ");
}

std::string OneLine(std::string s)
{
    std::replace(s.begin(), s.end(), '\n', ' ');
    std::replace(s.begin(), s.end(), '\t', ' ');
    return s;
}

// ---- children -------------------------------------------------------------------------------

#ifndef ZAN_SWEEP_ASAN
// Without the address sanitizer nothing tells where a child crashed: it prints its own stack.
void CrashHandler(int sig)
{
    static const char kMsg[] = "zanvrrp-sim sweep: fatal signal, stack:\n";
    (void)!write(2, kMsg, sizeof(kMsg) - 1);
    void *frames[64];
    const int n = backtrace(frames, 64);
    backtrace_symbols_fd(frames, n, 2);
    signal(sig, SIG_DFL);
    raise(sig);
}

void InstallCrashHandlers()
{
    static std::vector<char> altStack(1 << 16);
    stack_t ss{};
    ss.ss_sp = altStack.data();
    ss.ss_size = altStack.size();
    (void)sigaltstack(&ss, nullptr);
    void *warm[1];
    (void)backtrace(warm, 1);  // loads what backtrace needs before anything can crash
    struct sigaction sa{};
    sa.sa_handler = CrashHandler;
    sa.sa_flags = SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        (void)sigaction(sig, &sa, nullptr);
    }
}
#else
void InstallCrashHandlers() {}
#endif

// A coverage build writes a process's profile at its exit, which _exit skips: a child writes it
// first (the function exists only when the profile runtime is linked).
extern "C" int __llvm_profile_write_file(void) __attribute__((weak));

[[noreturn]] void ChildExit(int code)
{
    if (__llvm_profile_write_file != nullptr) {
        (void)__llvm_profile_write_file();
    }
    _exit(code);
}

void WriteAll(int fd, const std::string &s)
{
    const char *p = s.data();
    std::size_t left = s.size();
    while (left > 0) {
        const ssize_t n = write(fd, p, left);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ChildExit(3);
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
}

// Child: runs cases[from..] and reports each one on fd: "B i" before, "R i OK C0..C7 WHAT" after.
[[noreturn]] void ChildLoop(int fd, const std::string &path, const std::vector<SweepCase> &cases, std::size_t from,
                            Sabotage sabotage)
{
    std::ostream none(nullptr);
    for (std::size_t i = from; i < cases.size(); ++i) {
        WriteAll(fd, "B " + std::to_string(i) + "\n");
        const CaseOutcome o = RunCase(path, cases[i], sabotage, none, false, cases[i].kind != host::FailKind::Count);
        std::string line = "R " + std::to_string(i) + " " + (o.ok ? "1" : "0") + " " + std::to_string(o.events);
        for (uint32_t c : o.calls) {
            line += " " + std::to_string(c);
        }
        line += " " + OneLine(o.what) + "\n";
        WriteAll(fd, line);
    }
    ChildExit(0);
}

std::string ReadAllFrom(FILE *f)
{
    std::string s;
    std::rewind(f);
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) {
        s.append(buf, n);
    }
    return s;
}

// "binary(_ZN4host10ShouldFailENS_8FailKindEj+0x12d)[0x...]" with the symbol demangled.
std::string Demangled(const std::string &line)
{
    const std::size_t open = line.find('(');
    const std::size_t plus = line.find('+', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || plus == std::string::npos || plus == open + 1) {
        return line;
    }
    const std::string sym = line.substr(open + 1, plus - open - 1);
    int status = 0;
    char *name = abi::__cxa_demangle(sym.c_str(), nullptr, nullptr, &status);
    if (name == nullptr) {
        return line;
    }
    std::string out = line.substr(0, open + 1) + name + line.substr(plus);
    std::free(name);
    return out;
}

// The part of a crashed child's diagnostics that tells what and where: from the sanitizer's or
// the crash handler's first line on, blank lines and shadow-memory maps left out.
std::string Excerpt(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string l;
    while (std::getline(in, l)) {
        lines.push_back(l);
    }
    std::size_t start = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string &s = lines[i];
        if (s.find("ERROR: AddressSanitizer") != std::string::npos ||
            s.find("ERROR: LeakSanitizer") != std::string::npos || s.find("runtime error:") != std::string::npos ||
            s.find("zanvrrp-sim sweep: fatal signal") != std::string::npos) {
            start = i;
            break;
        }
    }
    std::vector<std::string> kept;
    for (std::size_t i = start; i < lines.size() && kept.size() < kExcerptLines; ++i) {
        const std::string &s = lines[i];
        if (s.find("Shadow bytes") != std::string::npos || s.find("==ABORTING") != std::string::npos) {
            break;
        }
        if (s.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        kept.push_back(Demangled(s));
    }
    return Join(kept, "\n");
}

std::string DescribeDeath(int status, const std::string &diag)
{
    std::string what;
    const bool sanitizer = diag.find("Sanitizer") != std::string::npos || diag.find("runtime error:") != std::string::npos;
    if (WIFSIGNALED(status)) {
        const int sig = WTERMSIG(status);
        what = std::string("crashed: signal ") + std::to_string(sig) + " (" + strsignal(sig) + ")";
    } else if (WIFEXITED(status)) {
        what = sanitizer ? "sanitizer report" : "the run ended with exit status " + std::to_string(WEXITSTATUS(status));
    } else {
        what = "the run ended abnormally";
    }
    const std::string ex = Excerpt(diag);
    if (!ex.empty()) {
        what += "\n" + ex;
    }
    return what;
}

// Runs every case, each child taking the cases from the first one without a result on; a child
// that crashes or hangs loses its case only.
void RunInChildren(const std::string &path, const std::vector<SweepCase> &cases, const SweepOptions &opt,
                   std::vector<CaseOutcome> &results)
{
    results.assign(cases.size(), CaseOutcome{});
    std::size_t next = 0;
    while (next < cases.size()) {
        FILE *diag = std::tmpfile();
        int fds[2];
        if (diag == nullptr || pipe(fds) != 0) {
            for (std::size_t i = next; i < cases.size(); ++i) {
                results[i] = CaseOutcome{false, "sweep fault: no pipe or temporary file for a child", {}, false};
            }
            if (diag != nullptr) {
                std::fclose(diag);
            }
            return;
        }
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            (void)dup2(fileno(diag), 2);
            InstallCrashHandlers();
            ChildLoop(fds[1], path, cases, next, opt.sabotage);
        }
        close(fds[1]);
        if (pid < 0) {
            close(fds[0]);
            std::fclose(diag);
            for (std::size_t i = next; i < cases.size(); ++i) {
                results[i] = CaseOutcome{false, "sweep fault: fork failed", {}, false};
            }
            return;
        }
        constexpr std::size_t kNone = SIZE_MAX;
        std::size_t running = kNone;  // the case the child has begun and not reported
        bool hung = false;
        std::string buf;
        const int timeoutMs = static_cast<int>(std::min(opt.caseTimeoutSec * 1000.0, double(INT_MAX)));
        for (;;) {
            pollfd p{fds[0], POLLIN, 0};
            const int r = poll(&p, 1, timeoutMs);
            if (r < 0 && errno == EINTR) {
                continue;
            }
            if (r == 0) {
                hung = true;
                kill(pid, SIGKILL);
                break;
            }
            char chunk[4096];
            const ssize_t n = read(fds[0], chunk, sizeof(chunk));
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                break;
            }
            buf.append(chunk, static_cast<std::size_t>(n));
            std::size_t nl;
            while ((nl = buf.find('\n')) != std::string::npos) {
                const std::string line = buf.substr(0, nl);
                buf.erase(0, nl + 1);
                std::istringstream ls(line);
                char tag = 0;
                std::size_t i = 0;
                ls >> tag >> i;
                if (tag == 'B') {
                    running = i;
                } else if (tag == 'R' && i < results.size()) {
                    CaseOutcome &o = results[i];
                    int ok = 0;
                    ls >> ok >> o.events;
                    for (uint32_t &c : o.calls) {
                        ls >> c;
                    }
                    std::getline(ls, o.what);
                    if (!o.what.empty() && o.what[0] == ' ') {
                        o.what.erase(0, 1);
                    }
                    o.ok = ok == 1;
                    o.completed = true;
                    running = kNone;
                    next = i + 1;
                }
            }
        }
        close(fds[0]);
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        const std::string diagText = ReadAllFrom(diag);
        std::fclose(diag);
        if (running != kNone) {
            CaseOutcome &o = results[running];
            o.ok = false;
            o.completed = false;
            o.what = hung ? "hangs: no end after " + std::to_string(static_cast<int>(opt.caseTimeoutSec)) + " s"
                          : DescribeDeath(status, diagText);
            next = running + 1;
        } else if (next < cases.size()) {
            results[next] = CaseOutcome{false, "the child ended between cases: " + DescribeDeath(status, diagText), {},
                                        false};
            ++next;
        }
    }
}

void RunAll(const std::string &path, const std::vector<SweepCase> &cases, const SweepOptions &opt,
            std::vector<CaseOutcome> &results)
{
    if (opt.fork) {
        RunInChildren(path, cases, opt, results);
        return;
    }
    std::ostream none(nullptr);
    results.clear();
    for (const SweepCase &c : cases) {
        results.push_back(RunCase(path, c, opt.sabotage, none, false, c.kind != host::FailKind::Count));
    }
}

// Every kind but a refused copy that fits, which only a misbehaving platform makes: swept when
// named (--kinds copy).
std::vector<host::FailKind> AllKinds()
{
    std::vector<host::FailKind> kinds;
    for (std::size_t k = 0; k < kFailKinds; ++k) {
        if (static_cast<host::FailKind>(k) != host::FailKind::Copy) {
            kinds.push_back(static_cast<host::FailKind>(k));
        }
    }
    return kinds;
}


}  // namespace

const char *ReentryName(Reentry r)
{
    switch (r) {
    case Reentry::Plain: return "plain";
    case Reentry::AllocFail: return "allocfail";
    case Reentry::ItemDown: return "itemdown";
    case Reentry::Feed: return "feed";
    }
    return "?";
}

std::optional<Reentry> ParseReentry(const std::string &name)
{
    for (Reentry r : kAllReentries) {
        if (name == ReentryName(r)) {
            return r;
        }
    }
    return std::nullopt;
}

std::optional<Sabotage> ParseSabotage(const std::string &name)
{
    static const std::pair<const char *, Sabotage> kNames[] = {
        {"leak", Sabotage::Leak},   {"lost", Sabotage::Lost},     {"misuse", Sabotage::Misuse}, {"timer", Sabotage::Timer},
        {"buffer", Sabotage::Buffer}, {"handle", Sabotage::Handle}, {"reg", Sabotage::Reg}, {"acts", Sabotage::Acts},
        {"crash", Sabotage::Crash}, {"hang", Sabotage::Hang},
    };
    for (const auto &p : kNames) {
        if (name == p.first) {
            return p.second;
        }
    }
    return std::nullopt;
}

std::string DescribeCase(const SweepCase &c)
{
    if (c.kind == host::FailKind::Count) {
        return std::string("no failure, ") + ReentryName(c.mode);
    }
    return std::string(FailKindName(c.kind)) + " #" + std::to_string(c.index) + (c.rest ? " on" : " one") + ", " +
           ReentryName(c.mode);
}

std::string CaseId(const SweepCase &c)
{
    if (c.kind == host::FailKind::Count) {
        return std::string("none:0:one:") + ReentryName(c.mode);
    }
    return std::string(FailKindName(c.kind)) + ":" + std::to_string(c.index) + ":" + (c.rest ? "on" : "one") + ":" +
           ReentryName(c.mode);
}

std::optional<SweepCase> ParseCaseId(const std::string &id)
{
    const std::vector<std::string> parts = SplitText(id, ':');
    if (parts.size() != 4) {
        return std::nullopt;
    }
    SweepCase c;
    if (parts[0] != "none") {
        std::optional<host::FailKind> k = ParseFailKind(parts[0]);
        if (!k) {
            return std::nullopt;
        }
        c.kind = *k;
    }
    try {
        c.index = ParseU32(parts[1]);
    } catch (const ScriptError &) {
        return std::nullopt;
    }
    if (parts[2] != "one" && parts[2] != "on") {
        return std::nullopt;
    }
    c.rest = parts[2] == "on";
    std::optional<Reentry> m = ParseReentry(parts[3]);
    if (!m) {
        return std::nullopt;
    }
    c.mode = *m;
    return c;
}

CaseOutcome RunCase(const std::string &path, const SweepCase &c, Sabotage sabotage, std::ostream &out, bool verbose,
                    bool checked)
{
    CaseOutcome o;
    Runner runner(out, verbose);
    ReentryApp app(c.mode, verbose ? std::function<void(const std::string &)>(
                                         [&out](const std::string &text) { out << "    " << text << "\n"; })
                                   : nullptr);
    bool fired = false;
    bool sabotaged = false;
    bool inDeinit = false;
    std::string firedAt;
    SweepHooks h;
    h.enabled = true;
    h.checked = checked;
    h.worldReady = [&] {
        if (c.kind != host::FailKind::Count) {
            host::ArmFail(c.kind, c.index, c.rest ? UINT32_MAX : 1u);
        }
        host::SetFailHook([&](host::FailKind) {
            if (!fired) {
                fired = true;
                firedAt = inDeinit ? "at the final deinit" : "at line " + std::to_string(runner.CurrentLine());
            }
            if (sabotage != Sabotage::None && !sabotaged) {
                sabotaged = true;
                DoSabotage(sabotage);
            }
        });
    };
    h.appEvent = [&](const AppEvent &e) { app.OnEvent(e); };
    h.subscribed = [&](bool sub, const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &subTlv, uint32_t ifgroup) {
        if (sub) {
            app.Remember(key, subTlv, ifgroup);
        }
    };
    runner.SetSweep(h);
    std::string failure;
    if (!runner.RunFile(path, failure)) {
        o.ok = false;
        // "FILE:LINE: what" -> "line LINE: what"
        o.what = failure.rfind(path + ":", 0) == 0 ? "line " + failure.substr(path.size() + 1) : failure;
    } else {
        o.what = EndWorld(inDeinit);
        o.ok = o.what.empty();
    }
    for (std::size_t k = 0; k < kFailKinds; ++k) {
        o.calls[k] = host::Calls(static_cast<host::FailKind>(k));
    }
    o.events = app.Seen();
    if (!o.ok && fired) {
        o.what += " [first failure injected " + firedAt + "]";
    }
    o.completed = true;
    if (verbose) {
        out << DescribeCase(c) << ": " << (o.ok ? "ok" : o.what) << "\n";
        out << "calls:";
        for (std::size_t k = 0; k < kFailKinds; ++k) {
            out << " " << FailKindName(static_cast<host::FailKind>(k)) << " " << o.calls[k];
        }
        out << "\n";
    }
    return o;
}

SweepFileResult SweepFile(const std::string &path, const SweepOptions &opt)
{
    SweepFileResult res;
    res.file = path;
    const std::vector<host::FailKind> kinds = opt.kinds.empty() ? AllKinds() : opt.kinds;
    auto note = [&](const SweepCase &c, const CaseOutcome &o) {
        ++res.cases;
        if (!o.ok) {
            ++res.failed;
            if (opt.keepFailures == 0 || res.failures.size() < opt.keepFailures) {
                res.failures.push_back(SweepFailure{c, o.what});
            }
        }
    };

    // The counting runs, one per mode: nothing fails.
    std::vector<SweepCase> base;
    for (Reentry m : opt.modes) {
        SweepCase c;
        c.mode = m;
        base.push_back(c);
    }
    std::vector<CaseOutcome> outcomes;
    RunAll(path, base, opt, outcomes);
    std::vector<SweepCase> plain;
    std::vector<SweepCase> reentry;
    for (std::size_t b = 0; b < base.size(); ++b) {
        note(base[b], outcomes[b]);
        if (!outcomes[b].completed) {
            continue;  // crashed without failures: nothing to count on
        }
        res.counts.emplace_back(base[b].mode, outcomes[b].calls);
        for (host::FailKind k : kinds) {
            const uint32_t n = outcomes[b].calls[static_cast<std::size_t>(k)];
            for (uint32_t i = 0; i < n; ++i) {
                for (bool rest : {false, true}) {
                    (base[b].mode == Reentry::Plain ? plain : reentry).push_back(SweepCase{k, i, rest, base[b].mode});
                }
            }
        }
    }
    // The plain cases first: what each of them saw decides which re-entry cases can differ.
    RunAll(path, plain, opt, outcomes);
    std::map<std::tuple<host::FailKind, uint32_t, bool>, uint32_t> seen;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        note(plain[i], outcomes[i]);
        if (outcomes[i].completed) {
            seen[{plain[i].kind, plain[i].index, plain[i].rest}] = outcomes[i].events;
        }
    }
    std::vector<SweepCase> differ;
    for (const SweepCase &c : reentry) {
        auto it = seen.find({c.kind, c.index, c.rest});
        if (it != seen.end() && (it->second & Triggers(c.mode)) == 0u) {
            ++res.same;
        } else {
            differ.push_back(c);
        }
    }
    RunAll(path, differ, opt, outcomes);
    for (std::size_t i = 0; i < differ.size(); ++i) {
        note(differ[i], outcomes[i]);
    }
    return res;
}

const char *const kSweepUsage =
    "       zanvrrp-sim script --sweep [--verbose] [--modes M,...] [--kinds K,...] [--case ID] [--no-fork]\n"
    "                          [--case-timeout S] [--sabotage leak|lost|misuse|timer|buffer|handle|reg|acts|crash|hang] FILE...\n";

int SweepMain(const std::vector<std::string> &args, std::ostream &out, std::ostream &err)
{
    SweepOptions opt;
    bool verbose = false;
    std::optional<SweepCase> only;
    std::vector<std::string> files;
    auto bad = [&](const std::string &what) {
        err << "zanvrrp-sim script --sweep: " << what << "\nusage:\n" << kSweepUsage;
        return 2;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--sweep") {
            continue;
        }
        if (a == "--verbose" || a == "-v") {
            verbose = true;
        } else if (a == "--no-fork") {
            opt.fork = false;
        } else if (a == "--modes" && hasValue) {
            opt.modes.clear();
            for (const std::string &m : SplitText(args[++i], ',')) {
                std::optional<Reentry> r = ParseReentry(m);
                if (!r) {
                    return bad("unknown mode '" + m + "' (plain, allocfail, itemdown, feed)");
                }
                opt.modes.push_back(*r);
            }
        } else if (a == "--kinds" && hasValue) {
            opt.kinds.clear();
            for (const std::string &k : SplitText(args[++i], ',')) {
                std::optional<host::FailKind> f = ParseFailKind(k);
                if (!f) {
                    return bad("unknown failure kind '" + k + "'");
                }
                opt.kinds.push_back(*f);
            }
        } else if (a == "--case" && hasValue) {
            only = ParseCaseId(args[++i]);
            if (!only) {
                return bad("--case KIND:INDEX:one|on:MODE expected, got '" + args[i] + "'");
            }
        } else if (a == "--case-timeout" && hasValue) {
            try {
                opt.caseTimeoutSec = ParseU32(args[++i]);
            } catch (const ScriptError &) {
                return bad("--case-timeout takes whole seconds");
            }
        } else if (a == "--sabotage" && hasValue) {
            std::optional<Sabotage> s = ParseSabotage(args[++i]);
            if (!s) {
                return bad("unknown sabotage '" + args[i] + "'");
            }
            opt.sabotage = *s;
        } else if (!a.empty() && a[0] == '-') {
            return bad("unknown option '" + a + "'");
        } else {
            files.push_back(a);
        }
    }
    if (files.empty()) {
        return bad("no script given");
    }
    if (opt.modes.empty()) {
        return bad("no mode left");
    }

    if (only) {
        // One case in this process, with the script's log when verbose: to look at a failure.
        unsigned failed = 0;
        for (const std::string &file : files) {
            out << "== " << file << ": " << DescribeCase(*only) << "\n";
            const CaseOutcome o = RunCase(file, *only, opt.sabotage, out, verbose);
            if (!verbose) {
                out << (o.ok ? "ok" : "FAIL " + o.what) << "\n";
            }
            failed += o.ok ? 0u : 1u;
        }
        out << files.size() - failed << " passed, " << failed << " failed\n";
        return failed == 0 ? 0 : 1;
    }

    opt.keepFailures = verbose ? 0 : 5;
    const auto t0 = std::chrono::steady_clock::now();
    unsigned filesFailed = 0;
    uint64_t allCases = 0;
    uint64_t allSame = 0;
    uint64_t allFailed = 0;
    for (const std::string &file : files) {
        const auto f0 = std::chrono::steady_clock::now();
        const SweepFileResult r = SweepFile(file, opt);
        const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - f0).count();
        allCases += r.cases;
        allSame += r.same;
        allFailed += r.failed;
        filesFailed += r.failed != 0 ? 1u : 0u;
        char took[32];
        std::snprintf(took, sizeof(took), "%.1f s", secs);
        out << (r.failed == 0 ? "ok" : "FAIL") << " sweep " << file << ": " << r.cases << " cases, " << r.failed
            << " failed (" << took << "; " << r.same << " re-entry cases the same as their plain run)\n";
        if (verbose) {
            for (const auto &mc : r.counts) {
                out << "  calls, " << ReentryName(mc.first) << ":";
                for (std::size_t k = 0; k < kFailKinds; ++k) {
                    out << " " << FailKindName(static_cast<host::FailKind>(k)) << " " << mc.second[k];
                }
                out << "\n";
            }
        }
        for (const SweepFailure &f : r.failures) {
            std::string what = f.what;
            std::string::size_type at = 0;
            while ((at = what.find('\n', at)) != std::string::npos) {
                what.replace(at, 1, "\n      ");
                at += 7;
            }
            out << "  " << DescribeCase(f.c) << ": " << what << "\n"
                << "    again: zanvrrp-sim script --sweep --case " << CaseId(f.c) << " --verbose " << file << "\n";
        }
        if (r.failed > r.failures.size()) {
            out << "  ... and " << r.failed - r.failures.size() << " more failed case(s) (--verbose lists them all)\n";
        }
        out.flush();
    }
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    char took[32];
    std::snprintf(took, sizeof(took), "%.1f s", secs);
    out << "sweep: " << allCases << " cases, " << allFailed << " failed, " << took << " (" << allSame
        << " re-entry cases not run: the same as their plain run)\n";
    out << files.size() - filesFailed << " passed, " << filesFailed << " failed\n";
    return filesFailed == 0 ? 0 : 1;
}

}  // namespace sim
