#include "runner.h"

#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <unordered_map>

#include "adp/zan_vrrpadp.h"
#include "labels.h"
#include "msgform.h"
#include "zan_vrrp_lib.h"

namespace sim {

namespace {

// Reactions may call the library, which may call back; this bounds the nesting.
constexpr uint32_t kMaxReactionDepth = 8;

std::string FmtResult(uint32_t v)
{
    return v > 0xFFFFu ? HexNum(v) : std::to_string(v);
}

// on|off or a number.
uint32_t OnOffValue(const Word &w)
{
    if (!w.quoted && w.text == "on") {
        return 1;
    }
    if (!w.quoted && w.text == "off") {
        return 0;
    }
    return ParseU32(w.text);
}

Word NeedPositional(Args &a, const char *what)
{
    std::optional<Word> w = a.NextPositional();
    if (!w) {
        throw ScriptError(std::string("missing ") + what);
    }
    return *w;
}


ZAN_VRRP_TLV_S MakeTlv(uint32_t type, std::optional<uint32_t> len, const std::vector<uint8_t> &value,
                       const char *what)
{
    if (type > 0xFFFFu) {
        throw ScriptError(std::string(what) + " type does not fit 16 bits");
    }
    if (len && *len > 0xFFFFu) {
        throw ScriptError(std::string(what) + " length does not fit 16 bits");
    }
    ZAN_VRRP_TLV_S t;
    std::memset(&t, 0, sizeof(t));
    if (value.size() > sizeof(t.aucValue)) {
        throw ScriptError(std::string(what) + " value longer than " + std::to_string(sizeof(t.aucValue)) + " bytes");
    }
    t.usType = static_cast<uint16_t>(type);
    t.usLen = static_cast<uint16_t>(len ? *len : value.size());
    if (!value.empty()) {
        std::memcpy(t.aucValue, value.data(), value.size());
    }
    return t;
}

std::string DescribeTlv(const ZAN_VRRP_TLV_S &t)
{
    std::size_t n = t.usLen < sizeof(t.aucValue) ? t.usLen : sizeof(t.aucValue);
    return std::to_string(t.usType) + "/" + std::to_string(t.usLen) + "/" +
           HexCompact(std::vector<uint8_t>(t.aucValue, t.aucValue + n));
}

constexpr std::pair<const char *, host::FailKind> kFailKinds[] = {
    {"malloc", host::FailKind::Malloc},   {"msgalloc", host::FailKind::MsgAlloc}, {"timer", host::FailKind::Timer},
    {"send", host::FailKind::Send},       {"meminit", host::FailKind::MemInit},   {"regmsg", host::FailKind::RegMsg},
    {"regcfg", host::FailKind::RegCfg},   {"reginner", host::FailKind::RegInner}, {"adpinit", host::FailKind::AdpInit},
    {"addinst", host::FailKind::AddInst}, {"delinst", host::FailKind::DelInst},   {"instinit", host::FailKind::InstInit},
    {"startwork", host::FailKind::StartWork}, {"rbtadd", host::FailKind::RbtAdd}, {"cliaddrec", host::FailKind::CliAddRec},
    {"cliretcode", host::FailKind::CliRetCode}, {"copy", host::FailKind::Copy},
};
static_assert(std::size(kFailKinds) == static_cast<std::size_t>(host::FailKind::Count),
              "every failure kind of the host has a name");

}  // namespace

std::vector<std::string> SplitText(const std::string &text, char sep)
{
    std::vector<std::string> out;
    std::string cur;
    for (char c : text) {
        if (c == sep) {
            out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    out.push_back(cur);
    return out;
}

const char *FailKindName(host::FailKind kind)
{
    for (const auto &p : kFailKinds) {
        if (p.second == kind) {
            return p.first;
        }
    }
    return "none";
}

std::optional<host::FailKind> ParseFailKind(const std::string &name)
{
    for (const auto &p : kFailKinds) {
        if (name == p.first) {
            return p.second;
        }
    }
    return std::nullopt;
}

Runner::Runner(std::ostream &out, bool verbose) : out_(out), verbose_(verbose) {}

Runner::~Runner()
{
    // Release what the last script's world still holds.
    host::Reset();
    Recorder &rec = Recorder::Instance();
    rec.reaction = nullptr;
    rec.log = nullptr;
}

void Runner::Log(const std::string &text)
{
    if (verbose_) {
        out_ << "    " << text << "\n";
    }
}

void Runner::ShowNewSent()
{
    std::deque<host::SentMsg> &q = host::Sent();
    if (!verbose_) {
        sentShown_ = q.size();
        return;
    }
    if (sentShown_ > q.size()) {
        sentShown_ = q.size();
    }
    for (std::size_t j = sentShown_; j < q.size(); ++j) {
        Log("sent to pid " + HexNum(q[j].pid) + ": " + HexSpaced(q[j].bytes) + "  [" + DecodeHeader(q[j].bytes) + "]");
    }
    sentShown_ = q.size();
}

void Runner::ResetWorld()
{
    host::Reset();
    Recorder &rec = Recorder::Instance();
    rec.Reset();
    rec.expectedHandle = host::Ctx()->ulHandle;
    rec.reaction = [this](const AppEvent &e) {
        RunReactions(e);
        if (sweep_.appEvent) {
            sweep_.appEvent(e);
        }
    };
    if (verbose_) {
        rec.log = [this](const std::string &text) {
            ShowNewSent();
            Log(text);
        };
    } else {
        rec.log = nullptr;
    }
    if (pcap_ != nullptr) {
        host::SetSendHook([this](const host::SentMsg &m) { pcap_->Write(host::Now(), host::Ctx()->ulCid, m.pid, m.bytes); });
    }
    reactions_.clear();
    reactionDepth_ = 0;
    pending_.reset();
    lastCli_.reset();
    sentShown_ = 0;
}

bool Runner::RunFile(const std::string &path, std::string &failure)
{
    file_ = path;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        failure = path + ":0: cannot read the script";
        return false;
    }
    std::stringstream ss;
    ss << in.rdbuf();

    std::vector<ScriptLine> lines;
    if (sweep_.checked) {
        // Checked by an earlier run of the same file: split only.
        try {
            lines = SplitScript(ss.str());
        } catch (const ScriptSplitError &e) {
            failure = path + ":" + std::to_string(e.line) + ": " + e.what();
            return false;
        }
    } else if (!CheckScript(path, ss.str(), lines, failure)) {
        return false;
    }

    ResetWorld();
    curLine_ = 0;
    if (sweep_.worldReady) {
        sweep_.worldReady();
    }
    if (verbose_) {
        out_ << "== " << path << "\n";
    }
    for (const ScriptLine &sl : lines) {
        curLine_ = sl.line;
        if (verbose_) {
            out_ << path << ":" << sl.line << ": " << sl.text << "\n";
        }
        try {
            uint32_t faults = host::Faults();
            if (sweep_.enabled) {
                // A step that finds nothing to act on is cut short; what the library did wrong
                // meanwhile is still caught below.
                try {
                    Exec(Step{sl.line, sl.text, &sl.block}, false);
                } catch (const ExpectFail &e) {
                    Log("step cut short: " + e.msg);
                }
            } else {
                Exec(Step{sl.line, sl.text, &sl.block}, false);
            }
            if (stepHook_) {
                stepHook_(sl.line);
            }
            ShowNewSent();
            CheckFaults(faults);
            CheckPending();
        } catch (const ScriptError &e) {
            failure = path + ":" + std::to_string(sl.line) + ": " + e.what();
            reactions_.clear();
            return false;
        } catch (const ExpectFail &e) {
            failure = path + ":" + std::to_string(e.line.value_or(sl.line)) + ": " + e.msg;
            reactions_.clear();
            return false;
        } catch (const std::exception &e) {
            failure = path + ":" + std::to_string(sl.line) + ": runner fault: " + e.what();
            reactions_.clear();
            return false;
        }
    }
    reactions_.clear();
    return true;
}

bool Runner::CheckScript(const std::string &name, const std::string &content, std::vector<ScriptLine> &lines,
                         std::string &failure, bool *runnerFault)
{
    if (runnerFault != nullptr) {
        *runnerFault = false;
    }
    try {
        lines = SplitScript(content);
    } catch (const ScriptSplitError &e) {
        failure = name + ":" + std::to_string(e.line) + ": " + e.what();
        return false;
    }

    // Every line is checked before anything runs, so a broken script fails at its fault.
    for (const ScriptLine &sl : lines) {
        try {
            Exec(Step{sl.line, sl.text, &sl.block}, true);
        } catch (const ScriptError &e) {
            failure = name + ":" + std::to_string(sl.line) + ": " + e.what();
            return false;
        } catch (const std::exception &e) {
            failure = name + ":" + std::to_string(sl.line) + ": runner fault: " + e.what();
            if (runnerFault != nullptr) {
                *runnerFault = true;
            }
            return false;
        }
    }
    return true;
}

void Runner::SetStepHook(std::function<void(uint32_t line)> hook)
{
    stepHook_ = std::move(hook);
}

// Every misuse of the platform the library made during the step fails it.
void Runner::CheckFaults(uint32_t before)
{
    const std::vector<std::string> &log = host::FaultLog();
    if (log.size() <= before) {
        return;
    }
    std::string msg = "platform misuse: " + log[before];
    if (log.size() > before + 1) {
        msg += " (and " + std::to_string(log.size() - before - 1) + " more)";
    }
    throw ExpectFail{msg, std::nullopt};
}

void Runner::CheckPending()
{
    Recorder &rec = Recorder::Instance();
    if (!rec.callbackFault.empty()) {
        std::string msg = rec.callbackFault;
        rec.callbackFault.clear();
        throw ExpectFail{msg, std::nullopt};
    }
    if (pending_) {
        ExpectFail f = *pending_;
        pending_.reset();
        throw f;
    }
}

void Runner::RunReactions(const AppEvent &e)
{
    if (reactions_.empty()) {
        return;
    }
    if (reactionDepth_ >= kMaxReactionDepth) {
        if (!pending_ && !sweep_.enabled) {
            pending_ = ExpectFail{"reactions nest deeper than " + std::to_string(kMaxReactionDepth), std::nullopt};
        }
        return;
    }
    ++reactionDepth_;
    // By index: a reaction runs application calls only, so the list stays as it is, but a
    // nested event may use up a reaction's times= while an outer one runs.
    for (std::size_t i = 0; i < reactions_.size(); ++i) {
        Reaction &match = reactions_[i];
        if (match.kind != e.kind || (match.ifgroup && *match.ifgroup != e.ifgroup) ||
            (match.pid && *match.pid != e.pid) || (match.timesLeft && *match.timesLeft == 0)) {
            continue;
        }
        if (match.timesLeft) {
            --*match.timesLeft;
        }
        const Reaction r = match;
        Log("reaction of line " + std::to_string(r.line) + ": " + r.body);
        try {
            Exec(Step{r.line, r.body, nullptr}, false);
        } catch (const ScriptError &x) {
            if (!pending_ && !sweep_.enabled) {
                pending_ = ExpectFail{std::string(x.what()) + " (reaction run during line " +
                                          std::to_string(curLine_) + ")",
                                      r.line};
            }
        } catch (const ExpectFail &f) {
            if (!pending_ && !sweep_.enabled) {
                pending_ = ExpectFail{f.msg + " (reaction run during line " + std::to_string(curLine_) + ")",
                                      f.line.value_or(r.line)};
            }
        } catch (const std::exception &x) {
            // Nothing may unwind into the library's frames.
            if (!pending_) {
                pending_ = ExpectFail{std::string("runner fault in a reaction: ") + x.what(), r.line};
            }
        }
    }
    --reactionDepth_;
}

bool Runner::ResultQuiet(std::optional<uint32_t> expected, uint32_t got) const
{
    return !verbose_ && (!expected || *expected == got || sweep_.enabled);
}

void Runner::CheckResult(const char *what, std::optional<uint32_t> expected, uint32_t got)
{
    Log(std::string(what) + " -> " + FmtResult(got));
    if (expected && *expected != got && !sweep_.enabled) {
        throw ExpectFail{std::string("expected ") + what + " result " + FmtResult(*expected) + ", got " + FmtResult(got),
                         std::nullopt};
    }
}

ZAN_VRRP_ADP *Runner::Adp() const
{
    return LiveAdp();
}

ZAN_VRRP_ADP *Runner::NeedAdp() const
{
    ZAN_VRRP_ADP *adp = Adp();
    if (adp == nullptr) {
        throw ExpectFail{"expected an adapter, got none (no successful get)", std::nullopt};
    }
    return adp;
}

uint32_t Runner::AdpMemHandle() const
{
    ZAN_VRRP_ADP *adp = Adp();
    return adp != nullptr ? adp->ulMemHandle : host::LastCreatedHandle();
}

// A sweep runs the same lines thousands of times in one process: each text is lexed once.
static const LexedLine &LexOnce(const std::string &text)
{
    static std::unordered_map<std::string, LexedLine> lexed;
    auto it = lexed.find(text);
    if (it == lexed.end()) {
        it = lexed.emplace(text, Lex(text)).first;
    }
    return it->second;
}

void Runner::Exec(const Step &s, bool dry)
{
    LexedLine own;
    const LexedLine &l = sweep_.enabled ? LexOnce(s.text) : (own = Lex(s.text));
    if (l.words.empty()) {
        throw ScriptError("command expected");
    }
    const Word &verb = l.words[0];
    const std::string &v = verb.text;
    if (verb.quoted) {
        throw ScriptError("command expected, got a text");
    }
    if (v == "expect") {
        if (dry || !sweep_.enabled) {
            CmdExpect(s, l, dry);
        }
        return;
    }
    if (v == "repeat") {
        CmdRepeat(s, l, dry);
        return;
    }
    if (v == "on") {
        CmdOn(s, l, dry);
        return;
    }
    if (l.hasBytes && v != "recv") {
        throw ScriptError("wire bytes ':' are allowed after recv and expect sent only");
    }
    Args a(l.words, 1);
    if (v == "component") {
        CmdComponent(a, dry);
    } else if (v == "get") {
        CmdGet(a, dry);
    } else if (v == "deinit") {
        CmdDeinit(a, dry);
    } else if (v == "callbacks") {
        CmdCallbacks(a, dry);
    } else if (v == "debug") {
        CmdOnOff(a, dry, "debug", Recorder::Instance().debugAnswer);
    } else if (v == "inhibit") {
        CmdInhibit(a, dry);
    } else if (v == "deploy") {
        CmdDeploy(a, dry);
    } else if (v == "up" || v == "down") {
        CmdUpDown(a, dry, v == "up");
    } else if (v == "status") {
        CmdStatus(a, dry);
    } else if (v == "recv") {
        CmdRecv(a, l, dry);
    } else if (v == "fcm") {
        CmdFcm(a, dry);
    } else if (v == "flush") {
        CmdFlush(a, dry);
    } else if (v == "advance") {
        CmdAdvance(a, dry);
    } else if (v == "fail") {
        CmdFail(a, dry);
    } else if (v == "drain") {
        CmdDrain(a, dry);
    } else if (v == "work") {
        CmdWork(a, dry);
    } else if (v == "subscribe" || v == "unsubscribe") {
        CmdSubscribe(a, dry, v == "subscribe");
    } else if (v == "senddata") {
        CmdSendData(a, dry);
    } else if (v == "cli") {
        CmdCli(a, dry);
    } else {
        throw ScriptError("unknown command '" + v + "'");
    }
}

void Runner::CmdComponent(Args &a, bool dry)
{
    std::optional<uint32_t> handle = a.Num("handle");
    std::optional<uint32_t> cid = a.Num("cid");
    std::optional<uint32_t> kind = a.NumBits("kind", 16);
    a.Done();
    if (dry) {
        return;
    }
    ZAN_COMP_CTX_S *ctx = host::Ctx();
    if (handle) {
        ctx->ulHandle = *handle;
        Recorder::Instance().expectedHandle = *handle;
    }
    if (cid) {
        ctx->ulCid = *cid;
    }
    if (kind) {
        ctx->usCompKind = static_cast<uint16_t>(*kind);
    }
}

void Runner::CmdGet(Args &a, bool dry)
{
    std::optional<std::string> expect = a.Text("expect");
    if (expect && *expect != "ok" && *expect != "null") {
        throw ScriptError("get expect=ok|null, got '" + *expect + "'");
    }
    a.Done();
    if (dry) {
        return;
    }
    ZAN_VRRP_ADP_S *adp = ZAN_VrrpAdp_Get(host::Ctx());
    Log(std::string("ZAN_VrrpAdp_Get -> ") + (adp != nullptr ? "adapter" : "null"));
    if (expect && (*expect == "ok") != (adp != nullptr) && !sweep_.enabled) {
        throw ExpectFail{"expected get " + *expect + ", got " + (adp != nullptr ? "ok" : "null"), std::nullopt};
    }
}

void Runner::CmdDeinit(Args &a, bool dry)
{
    a.Done();
    if (dry) {
        return;
    }
    ZAN_VrrpAdp_DeInit(host::Ctx());
}

void Runner::CmdCallbacks(Args &a, bool dry)
{
    Word mode = NeedPositional(a, "all|required");
    if (mode.quoted || (mode.text != "all" && mode.text != "required")) {
        throw ScriptError("callbacks all|required, got '" + mode.text + "'");
    }
    std::set<std::string> except;
    if (std::optional<std::string> ex = a.Text("except")) {
        for (const std::string &name : SplitText(*ex, ',')) {
            except.insert(name);
        }
    }
    std::optional<uint32_t> expect = a.Num("expect");
    a.Done();
    ZAN_VRRP_CALLBACK_S table = Recorder::Table(mode.text == "all", except);
    if (dry) {
        return;
    }
    uint32_t r = ZAN_VrrpAdp_RegCallBack(NeedAdp(), &table);
    CheckResult("ZAN_VrrpAdp_RegCallBack", expect, r);
}

void Runner::CmdOnOff(Args &a, bool dry, const char *what, uint32_t &target)
{
    Word w = NeedPositional(a, "on|off");
    uint32_t value = OnOffValue(w);
    a.Done();
    if (dry) {
        return;
    }
    Log(std::string(what) + " = " + std::to_string(value));
    target = value;
}

void Runner::CmdInhibit(Args &a, bool dry)
{
    Word w = NeedPositional(a, "on|off");
    uint32_t value = OnOffValue(w);
    if (value > 0xFFFFu) {
        throw ScriptError("inhibit value does not fit 16 bits");
    }
    a.Done();
    if (dry) {
        return;
    }
    host::Ctx()->usStartInhibit = static_cast<uint16_t>(value);
}

void Runner::CmdDeploy(Args &a, bool dry)
{
    Word op = NeedPositional(a, "create|delete");
    if (op.quoted || (op.text != "create" && op.text != "delete")) {
        throw ScriptError("deploy create|delete, got '" + op.text + "'");
    }
    ZAN_VRRP_DEPLOY_REC_S rec;
    std::memset(&rec, 0, sizeof(rec));
    rec.ulPid = a.NumReq("pid");
    rec.ulIfGroupId = a.NumReq("ifgroup");
    rec.ulKind = a.NumOr("kind", ZAN_VRRP_DEPLOY_KIND);
    if (std::optional<std::string> w = a.Text("w")) {
        std::vector<std::string> parts = SplitText(*w, ',');
        if (parts.size() > 6) {
            throw ScriptError("w= takes at most six words");
        }
        uint32_t *slots[6] = {&rec.aulRsv1[0], &rec.aulRsv1[1], &rec.aulRsv1[2],
                              &rec.aulRsv2[0], &rec.aulRsv2[1], &rec.aulRsv2[2]};
        for (std::size_t i = 0; i < parts.size(); ++i) {
            *slots[i] = ParseU32(parts[i]);
        }
    }
    std::optional<uint32_t> expect = a.Num("expect");
    a.Done();
    if (dry) {
        return;
    }
    static_assert(sizeof(rec) == ZAN_VRRP_DEPLOY_REC_LEN, "deploy record is 36 bytes");
    std::vector<uint8_t> bytes(sizeof(rec));
    std::memcpy(bytes.data(), &rec, sizeof(rec));
    bool create = op.text == "create";
    std::optional<uint32_t> r =
        host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, create ? ZAN_VRRP_DEPLOY_OP_CREATE : ZAN_VRRP_DEPLOY_OP_DELETE, bytes);
    if (!r) {
        throw ExpectFail{std::string("expected a deploy ") + op.text + " callback, got none registered", std::nullopt};
    }
    CheckResult(create ? "deploy create" : "deploy delete", expect, *r);
}

void Runner::CmdUpDown(Args &a, bool dry, bool up)
{
    uint32_t pid = a.NumReq("pid");
    a.Done();
    if (dry) {
        return;
    }
    bool ok = up ? host::RunUp(pid) : host::RunDown(pid);
    if (!ok) {
        throw ExpectFail{"expected an instance of pid " + HexNum(pid) + " with an " + (up ? "Up" : "Down") +
                             " operation, got none",
                         std::nullopt};
    }
}

void Runner::CmdStatus(Args &a, bool dry)
{
    uint32_t pid = a.NumReq("pid");
    uint32_t value = a.NumReq("value");
    a.Done();
    if (dry) {
        return;
    }
    if (!host::SetStatus(pid, value)) {
        throw ExpectFail{"expected an instance of pid " + HexNum(pid) + ", got none", std::nullopt};
    }
}

void Runner::CmdRecv(Args &a, const LexedLine &l, bool dry)
{
    uint32_t pid = a.NumReq("pid");
    MsgForm form = ParseMsgForm(a, l, MsgFormOptions{true, false});
    a.Done();
    if (dry) {
        return;
    }
    std::vector<uint8_t> bytes = BuildMsg(form);
    Log("recv from pid " + HexNum(pid) + (form.size ? " size " + std::to_string(*form.size) : std::string()) + ": " +
        HexSpaced(bytes) + "  [" + DecodeHeader(bytes) + "]");
    if (pcap_ != nullptr) {
        pcap_->Write(host::Now(), pid, host::Ctx()->ulCid, bytes);
    }
    if (!host::DeliverMsg(pid, bytes, form.size)) {
        throw ExpectFail{"expected a message handler for the adapter's class, got none registered", std::nullopt};
    }
}

void Runner::CmdFcm(Args &a, bool dry)
{
    uint32_t pid = a.NumReq("pid");
    a.Done();
    if (dry) {
        return;
    }
    Log("flow-control message naming pid " + HexNum(pid));
    if (!host::DeliverFcm(pid)) {
        throw ExpectFail{"expected a flow-control handler (class 7), got none registered", std::nullopt};
    }
}

void Runner::CmdFlush(Args &a, bool dry)
{
    a.Done();
    if (dry) {
        return;
    }
    if (!host::RunFlush()) {
        throw ExpectFail{"expected a flush routine, got none registered", std::nullopt};
    }
}

void Runner::CmdAdvance(Args &a, bool dry)
{
    Word w = NeedPositional(a, "milliseconds");
    uint32_t ms = ParseU32(w.text);
    a.Done();
    if (dry) {
        return;
    }
    host::Advance(ms);
    Log("time now " + std::to_string(host::Now()) + " ms");
}

void Runner::CmdFail(Args &a, bool dry)
{
    Word kindWord = NeedPositional(a, "failure kind");
    const std::string &k = kindWord.text;
    if (k == "clear") {
        a.Done();
        if (!dry) {
            host::ClearFail();
        }
        return;
    }
    std::optional<host::FailKind> kind = ParseFailKind(k);
    if (!kind || kindWord.quoted) {
        throw ScriptError("unknown failure kind '" + k + "'");
    }
    uint32_t skip = a.NumOr("skip", 0);
    uint32_t count = a.NumOr("count", 1);
    std::optional<std::string> handleText = a.Text("handle");
    if (handleText && *kind != host::FailKind::Malloc) {
        throw ScriptError("handle= narrows malloc failures only");
    }
    std::optional<uint32_t> handleNum;
    if (handleText && *handleText != "adp" && *handleText != "fw") {
        handleNum = ParseU32(*handleText);
    }
    a.Done();
    if (dry || sweep_.enabled) {
        return;
    }
    uint32_t handle = 0;
    if (handleText) {
        if (*handleText == "adp") {
            handle = AdpMemHandle();
            if (handle == 0) {
                throw ExpectFail{"expected an adapter memory handle for handle=adp, got none yet", std::nullopt};
            }
        } else if (*handleText == "fw") {
            handle = host::Ctx()->ulFwMemHandle;
        } else {
            handle = *handleNum;
        }
    }
    host::ArmFail(*kind, skip, count, handle);
}

void Runner::CmdDrain(Args &a, bool dry)
{
    a.Done();
    if (dry) {
        return;
    }
    host::Sent().clear();
    sentShown_ = 0;
    Recorder::Instance().events.clear();
    Recorder::Instance().traces.clear();
}

void Runner::CmdWork(Args &a, bool dry)
{
    Word w = NeedPositional(a, "on|off|N");
    uint32_t on = OnOffValue(w);
    std::optional<uint32_t> expect = a.Num("expect");
    a.Done();
    if (dry) {
        return;
    }
    uint32_t r = ZAN_VrrpAdp_SetWorkState(NeedAdp(), on);
    CheckResult(("ZAN_VrrpAdp_SetWorkState(" + std::to_string(on) + ")").c_str(), expect, r);
}

void Runner::CmdSubscribe(Args &a, bool dry, bool sub)
{
    uint32_t ifgroup = a.NumReq("ifgroup");
    uint32_t keytype = a.NumReq("keytype");
    std::optional<std::vector<uint8_t>> key = a.Hex("key");
    if (!key) {
        throw ScriptError("missing argument key=HEX");
    }
    std::optional<uint32_t> keylen = a.Num("keylen");
    uint32_t subtype = a.NumReq("subtype");
    std::vector<uint8_t> subValue = a.Hex("sub").value_or(std::vector<uint8_t>());
    std::optional<uint32_t> sublen = a.Num("sublen");
    std::optional<uint32_t> expect = a.Num("expect");
    a.Done();
    ZAN_VRRP_TLV_S keyTlv = MakeTlv(keytype, keylen, *key, "key");
    ZAN_VRRP_TLV_S subTlv = MakeTlv(subtype, sublen, subValue, "sub");
    if (dry) {
        return;
    }
    ZAN_VRRP_ADP_S *adp = NeedAdp();
    uint32_t r = sub ? ZAN_VrrpAdp_Subscribe(adp, &keyTlv, &subTlv, ifgroup)
                     : ZAN_VrrpAdp_UnSubscribe(adp, &keyTlv, &subTlv, ifgroup);
    if (sweep_.subscribed) {
        sweep_.subscribed(sub, keyTlv, subTlv, ifgroup);
    }
    if (ResultQuiet(expect, r)) {
        return;
    }
    std::string what = std::string(sub ? "ZAN_VrrpAdp_Subscribe" : "ZAN_VrrpAdp_UnSubscribe") + "(key " +
                       DescribeTlv(keyTlv) + ", sub " + DescribeTlv(subTlv) + ", ifgroup " + std::to_string(ifgroup) +
                       ")";
    CheckResult(what.c_str(), expect, r);
}

void Runner::CmdSendData(Args &a, bool dry)
{
    uint32_t ifgroup = a.NumReq("ifgroup");
    std::optional<std::vector<uint8_t>> key = a.Hex("key");
    if (!key) {
        throw ScriptError("missing argument key=HEX");
    }
    uint32_t ktype = a.NumOr("ktype", ZAN_VRRP_KEY_TLV_TYPE);
    std::optional<uint32_t> klen = a.Num("klen");
    std::vector<uint8_t> data = a.Hex("data").value_or(std::vector<uint8_t>());
    uint32_t dtype = a.NumOr("dtype", ZAN_VRRP_DATA_TLV_TYPE);
    std::optional<uint32_t> dlen = a.Num("dlen");
    std::optional<uint32_t> expect = a.Num("expect");
    a.Done();
    ZAN_VRRP_TLV_S keyTlv = MakeTlv(ktype, klen, *key, "key");
    ZAN_VRRP_TLV_S dataTlv = MakeTlv(dtype, dlen, data, "data");
    if (dry) {
        return;
    }
    uint32_t r = ZAN_VrrpAdp_SendData(NeedAdp(), ifgroup, &keyTlv, &dataTlv);
    if (ResultQuiet(expect, r)) {
        return;
    }
    std::string what = "ZAN_VrrpAdp_SendData(ifgroup " + std::to_string(ifgroup) + ", key " + DescribeTlv(keyTlv) +
                       ", data " + DescribeTlv(dataTlv) + ")";
    CheckResult(what.c_str(), expect, r);
}

void Runner::CmdCli(Args &a, bool dry)
{
    Word item = NeedPositional(a, "item");
    std::optional<std::string> pid = a.Text("pid");
    uint32_t cont = a.NumOr("cont", 0);
    std::optional<uint32_t> expect = a.Num("expect");
    a.Done();
    if (dry) {
        return;
    }
    host::CliResult r = host::RunCli("zanvrrp", item.text, pid, cont);
    lastCli_ = r;
    if (!r.registered) {
        Log("cli: command \"zanvrrp\" not registered");
        if (expect) {
            throw ExpectFail{"expected cli result " + FmtResult(*expect) + ", got no command \"zanvrrp\" registered",
                             std::nullopt};
        }
        return;
    }
    if (verbose_) {
        Log("cli output " + Quote(r.text));
    }
    CheckResult("cli", expect, r.result);
}

void Runner::CmdOn(const Step &s, const LexedLine &l, bool dry)
{
    static const std::pair<const char *, EvKind> kKinds[] = {
        {"regack", EvKind::RegAck},       {"batchbegin", EvKind::BatchBegin}, {"recvdata", EvKind::RecvData},
        {"itemdown", EvKind::ItemDown},   {"allocfail", EvKind::AllocFail},   {"fcm", EvKind::Fcm},
    };
    const char *usage = "on regack|batchbegin|recvdata|itemdown|allocfail|fcm [ifgroup=N] [pid=N] [times=N] do "
                        "COMMAND, or on clear";
    const std::vector<Word> &w = l.words;
    if (w.size() == 2 && w[1].text == "clear" && !w[1].quoted && !l.hasBytes) {
        if (!dry) {
            reactions_.clear();
        }
        return;
    }
    std::optional<EvKind> kind;
    for (const auto &k : kKinds) {
        if (w.size() >= 2 && !w[1].quoted && w[1].text == k.first) {
            kind = k.second;
        }
    }
    if (!kind) {
        throw ScriptError(usage);
    }
    std::size_t doAt = 0;
    for (std::size_t i = 2; i < w.size(); ++i) {
        if (!w[i].quoted && !w[i].HasEq() && w[i].text == "do") {
            doAt = i;
            break;
        }
    }
    if (doAt == 0 || doAt + 1 >= w.size()) {
        throw ScriptError("on ...: 'do COMMAND' expected");
    }
    std::vector<Word> head(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(doAt));
    Args a(head, 2);
    Reaction r;
    r.kind = *kind;
    r.ifgroup = a.Num("ifgroup");
    r.pid = a.Num("pid");
    r.timesLeft = a.Num("times");
    a.Done();
    bool hasIfGroup = r.kind == EvKind::RegAck || r.kind == EvKind::BatchBegin;
    bool hasPid = r.kind == EvKind::AllocFail || r.kind == EvKind::Fcm;
    if (r.ifgroup && !hasIfGroup) {
        throw ScriptError(std::string("ifgroup= filters regack and batchbegin only, not ") + EvKindName(r.kind));
    }
    if (r.pid && !hasPid) {
        throw ScriptError(std::string("pid= filters allocfail and fcm only, not ") + EvKindName(r.kind));
    }
    if (r.timesLeft && *r.timesLeft == 0) {
        throw ScriptError("times= must be at least 1");
    }
    r.body = s.text.substr(w[doAt + 1].offset);
    r.line = s.line;

    // The reaction is an application call, or a repeat of one.
    static const std::set<std::string> kAllowed = {"work", "subscribe", "unsubscribe", "senddata"};
    std::string probe = ExpandIndex(r.body, 0);
    LexedLine pl = Lex(probe);
    std::size_t at = 0;
    while (at + 1 < pl.words.size() && pl.words[at].text == "repeat") {
        at += 2;
    }
    if (at >= pl.words.size() || kAllowed.count(pl.words[at].text) == 0) {
        throw ScriptError("a reaction runs an application call (work, subscribe, unsubscribe, senddata) or a "
                          "repeat of one");
    }
    Exec(Step{s.line, r.body, nullptr}, true);
    if (dry) {
        return;
    }
    reactions_.push_back(r);
}

void Runner::CmdRepeat(const Step &s, const LexedLine &l, bool dry)
{
    const std::vector<Word> &w = l.words;
    if (w.size() < 3) {
        throw ScriptError("repeat N COMMAND... expected");
    }
    uint32_t n = ParseU32(w[1].text);
    std::string body = s.text.substr(w[2].offset);
    if (dry) {
        Exec(Step{s.line, ExpandIndex(body, 0), nullptr}, true);
        return;
    }
    for (uint32_t i = 0; i < n; ++i) {
        std::string text = ExpandIndex(body, i);
        if (verbose_) {
            Log("[" + std::to_string(i) + "] " + text);
        }
        uint32_t faults = host::Faults();
        if (sweep_.enabled) {
            try {
                Exec(Step{s.line, text, nullptr}, false);
            } catch (const ExpectFail &e) {
                Log("step cut short: " + e.msg);
            }
        } else {
            Exec(Step{s.line, text, nullptr}, false);
        }
        ShowNewSent();
        if (reactionDepth_ == 0 && !sweep_.enabled) {
            CheckFaults(faults);
            CheckPending();
        }
    }
}

}  // namespace sim
