// Expectations: what came out of the library compared with what the script states.
#include <algorithm>
#include <cstring>

#include "adp/zan_vrrpadp.h"
#include "inst/zan_vrrpinst.h"
#include "labels.h"
#include "msgform.h"
#include "prod/zan_vrrp_prod.h"
#include "runner.h"

namespace sim {

namespace {

constexpr std::size_t kShowMax = 6;  // unconsumed trace events listed in a report

[[noreturn]] void Fail(const std::string &msg)
{
    throw ExpectFail{msg, std::nullopt};
}

Word NeedPositional(Args &a, const char *what)
{
    std::optional<Word> w = a.NextPositional();
    if (!w) {
        throw ScriptError(std::string("missing ") + what);
    }
    return *w;
}

// One compared field of an application event.
struct EvCheck {
    std::string name;
    bool hex = false;
    uint32_t num = 0;
    std::vector<uint8_t> bytes;
};

uint16_t Host16(const uint8_t *p)
{
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

// The value of a named field of an event; false when the event does not carry it.
bool EventField(const AppEvent &e, const std::string &name, uint32_t &num, std::vector<uint8_t> &bytes)
{
    auto area = [&](std::size_t off, uint32_t &n, std::vector<uint8_t> &b, bool wantLen, bool wantType) {
        uint16_t type = Host16(&e.item[off]);
        uint16_t len = Host16(&e.item[off + 2]);
        std::size_t count = len < 12 ? len : 12;
        if (wantType) {
            n = type;
        } else if (wantLen) {
            n = len;
        } else {
            b.assign(e.item.begin() + static_cast<std::ptrdiff_t>(off + 4),
                     e.item.begin() + static_cast<std::ptrdiff_t>(off + 4 + count));
        }
    };
    switch (e.kind) {
    case EvKind::RegAck:
    case EvKind::BatchBegin:
        if (name == "ifgroup") {
            num = e.ifgroup;
            return true;
        }
        return false;
    case EvKind::AllocFail:
        if (name == "pid") {
            num = e.pid;
            return true;
        }
        if (name == "n") {
            num = e.n;
            return true;
        }
        return false;
    case EvKind::Fcm:
        if (name == "pid") {
            num = e.pid;
            return true;
        }
        return false;
    case EvKind::RecvData:
        if (name == "ktype" || name == "klen" || name == "key") {
            if (!e.keyPresent) {
                return false;
            }
            num = name == "ktype" ? e.keyType : e.keyLen;
            bytes = e.keyValue;
            return true;
        }
        if (!e.dataPresent) {
            return false;
        }
        num = name == "dtype" ? e.dataType : e.dataLen;
        bytes = e.dataValue;
        return true;
    case EvKind::ItemDown:
        if (!e.itemPresent) {
            return false;
        }
        if (name == "keytype" || name == "keylen" || name == "key") {
            area(0, num, bytes, name == "keylen", name == "keytype");
        } else {
            area(16, num, bytes, name == "sublen", name == "subtype");
        }
        return true;
    }
    return false;
}

std::string ListTraces(const std::deque<TraceEvent> &q)
{
    if (q.empty()) {
        return "no trace events";
    }
    std::string s = std::to_string(q.size()) + " unconsumed: ";
    for (std::size_t i = 0; i < q.size() && i < kShowMax; ++i) {
        s += (i ? ", " : "") + DescribeTrace(q[i]);
    }
    if (q.size() > kShowMax) {
        s += ", ...";
    }
    return s;
}

std::string JoinNums(const std::vector<uint32_t> &v)
{
    if (v.empty()) {
        return "none";
    }
    std::string s;
    for (std::size_t i = 0; i < v.size(); ++i) {
        s += (i ? " " : "") + std::to_string(v[i]);
    }
    return s;
}

std::vector<std::string> SplitCrLf(const std::string &text, std::string &rest)
{
    std::vector<std::string> lines;
    std::size_t p = 0;
    for (;;) {
        std::size_t e = text.find("\r\n", p);
        if (e == std::string::npos) {
            rest = text.substr(p);
            return lines;
        }
        lines.push_back(text.substr(p, e - p));
        p = e + 2;
    }
}

}  // namespace

void Runner::CmdExpect(const Step &s, const LexedLine &l, bool dry)
{
    const std::vector<Word> &w = l.words;
    if (w.size() < 2 || w[1].quoted) {
        throw ScriptError("expect WHAT ... expected");
    }
    const std::string &what = w[1].text;
    if (l.hasBytes && what != "sent") {
        throw ScriptError("wire bytes ':' are allowed after recv and expect sent only");
    }
    if (what == "no") {
        if (w.size() < 3 || (w[2].text != "trace" && w[2].text != "debug")) {
            throw ScriptError("expect no trace|debug ... expected");
        }
        Args a(w, 3);
        ExpectTrace(a, dry, w[2].text == "debug", true);
        return;
    }
    Args a(w, 2);
    if (what == "sent") {
        ExpectSent(a, l, dry);
    } else if (what == "event") {
        ExpectEvent(a, dry);
    } else if (what == "trace" || what == "debug") {
        ExpectTrace(a, dry, what == "debug", false);
    } else if (what == "adp") {
        ExpectValues(a, dry, static_cast<int>(LabelTarget::Adp));
    } else if (what == "inst") {
        ExpectValues(a, dry, static_cast<int>(LabelTarget::Inst));
    } else if (what == "prod") {
        ExpectValues(a, dry, static_cast<int>(LabelTarget::Prod));
    } else if (what == "timers") {
        ExpectTimers(a, dry);
    } else if (what == "blocks") {
        ExpectBlocks(a, dry);
    } else if (what == "asserts") {
        ExpectAsserts(a, dry);
    } else if (what == "output") {
        ExpectOutput(a, s, dry);
    } else if (what == "output-has") {
        ExpectOutputHas(a, dry);
    } else {
        throw ScriptError("unknown expectation '" + what + "'");
    }
}

void Runner::ExpectSent(Args &a, const LexedLine &l, bool dry)
{
    std::deque<host::SentMsg> &q = host::Sent();
    if (a.Flag("none")) {
        a.Done();
        if (l.hasBytes) {
            throw ScriptError("expect sent none takes no bytes");
        }
        if (dry) {
            return;
        }
        if (!q.empty()) {
            Fail("expected no sent message, got pid=" + HexNum(q.front().pid) + " " + HexSpaced(q.front().bytes) +
                 (q.size() > 1 ? " and " + std::to_string(q.size() - 1) + " more" : std::string()));
        }
        return;
    }
    uint32_t pid = a.NumReq("pid");
    MsgForm form = ParseMsgForm(a, l, MsgFormOptions{false, true});
    a.Done();
    if (dry) {
        return;
    }
    std::string want = "sent pid=" + HexNum(pid) + " " + DescribeForm(form);
    if (q.empty()) {
        Fail("expected " + want + ", got no sent message");
    }
    host::SentMsg m = q.front();
    q.pop_front();
    if (sentShown_ > 0) {
        --sentShown_;
    }
    std::string diff = CompareMsg(form, m.bytes);
    if (m.pid != pid && diff.empty()) {
        diff = "pid differs";
    }
    if (!diff.empty()) {
        Fail("expected " + want + ", got pid=" + HexNum(m.pid) + " " + HexSpaced(m.bytes) + " (" + diff + ")");
    }
}

void Runner::ExpectEvent(Args &a, bool dry)
{
    Word kindWord = NeedPositional(a, "event kind");
    const std::string &k = kindWord.text;
    Recorder &rec = Recorder::Instance();
    if (k == "none") {
        a.Done();
        if (!dry && !rec.events.empty()) {
            Fail("expected no event, got event " + DescribeEvent(rec.events.front()) +
                 (rec.events.size() > 1 ? " and " + std::to_string(rec.events.size() - 1) + " more" : std::string()));
        }
        return;
    }
    struct KindDef {
        const char *name;
        EvKind kind;
        std::vector<std::pair<const char *, bool>> fields;  // name, hex
    };
    static const KindDef kKinds[] = {
        {"regack", EvKind::RegAck, {{"ifgroup", false}}},
        {"batchbegin", EvKind::BatchBegin, {{"ifgroup", false}}},
        {"allocfail", EvKind::AllocFail, {{"pid", false}, {"n", false}}},
        {"fcm", EvKind::Fcm, {{"pid", false}}},
        {"recvdata",
         EvKind::RecvData,
         {{"ktype", false}, {"klen", false}, {"key", true}, {"dtype", false}, {"dlen", false}, {"data", true}}},
        {"itemdown",
         EvKind::ItemDown,
         {{"keytype", false}, {"keylen", false}, {"key", true}, {"subtype", false}, {"sublen", false}, {"sub", true}}},
    };
    const KindDef *def = nullptr;
    for (const KindDef &d : kKinds) {
        if (k == d.name) {
            def = &d;
        }
    }
    if (def == nullptr || kindWord.quoted) {
        throw ScriptError("unknown event kind '" + k + "'");
    }
    std::vector<EvCheck> checks;
    std::string want = std::string("event ") + def->name;
    for (const auto &f : def->fields) {
        EvCheck c;
        c.name = f.first;
        c.hex = f.second;
        if (c.hex) {
            std::optional<std::vector<uint8_t>> v = a.Hex(c.name);
            if (!v) {
                continue;
            }
            c.bytes = *v;
            want += " " + c.name + "=" + HexCompact(c.bytes);
        } else {
            std::optional<uint32_t> v = a.Num(c.name);
            if (!v) {
                continue;
            }
            c.num = *v;
            want += " " + c.name + "=" + (c.name == "pid" ? HexNum(c.num) : std::to_string(c.num));
        }
        checks.push_back(c);
    }
    a.Done();
    if (dry) {
        return;
    }
    if (rec.events.empty()) {
        Fail("expected " + want + ", got no event");
    }
    AppEvent e = rec.events.front();
    rec.events.pop_front();
    bool ok = e.kind == def->kind;
    for (const EvCheck &c : checks) {
        if (!ok) {
            break;
        }
        uint32_t num = 0;
        std::vector<uint8_t> bytes;
        if (!EventField(e, c.name, num, bytes)) {
            ok = false;
        } else if (c.hex ? bytes != c.bytes : num != c.num) {
            ok = false;
        }
    }
    if (!ok) {
        Fail("expected " + want + ", got event " + DescribeEvent(e));
    }
}

void Runner::ExpectTrace(Args &a, bool dry, bool debug, bool negate)
{
    std::optional<Word> first = a.NextPositional();
    std::optional<uint32_t> line;
    if (!first && !negate) {
        throw ScriptError(debug ? "expect debug \"TEXT\" expected" : "expect trace \"MODULE\" LINE expected");
    }
    if (first && !debug) {
        Word lw = NeedPositional(a, "trace line number");
        line = ParseU32(lw.text);
    }
    a.Done();
    if (dry) {
        return;
    }
    std::string want = debug ? "debug" : "trace";
    if (first) {
        want += " " + Quote(first->text);
    }
    if (line) {
        want += " " + std::to_string(*line);
    }
    std::deque<TraceEvent> &q = Recorder::Instance().traces;
    std::size_t found = q.size();
    for (std::size_t i = 0; i < q.size(); ++i) {
        const TraceEvent &t = q[i];
        if (t.debug != debug) {
            continue;
        }
        if (!first || (debug ? t.text == first->text : (t.module == first->text && t.line == *line))) {
            found = i;
            break;
        }
    }
    if (negate) {
        if (found < q.size()) {
            Fail("expected no " + want + ", got " + DescribeTrace(q[found]) + " at position " + std::to_string(found + 1) +
                 " of the unconsumed trace events");
        }
        return;
    }
    if (found == q.size()) {
        Fail("expected " + want + ", got " + ListTraces(q));
    }
    q.erase(q.begin(), q.begin() + static_cast<std::ptrdiff_t>(found + 1));
}

void Runner::ExpectValues(Args &a, bool dry, int targetNum)
{
    auto target = static_cast<LabelTarget>(targetNum);
    std::optional<uint32_t> pid;
    if (target != LabelTarget::Adp) {
        pid = a.NumReq("pid");
    }
    std::vector<std::pair<std::string, std::string>> pairs = a.TakeAllPairs();
    a.Done();
    if (pairs.empty()) {
        throw ScriptError("LABEL=N expected");
    }
    std::vector<std::pair<std::string, uint32_t>> want;
    for (const auto &p : pairs) {
        ValidateLabel(target, p.first);
        try {
            want.emplace_back(p.first, ParseU32(p.second));
        } catch (const ScriptError &e) {
            throw ScriptError(p.first + "=: " + e.what());
        }
    }
    if (dry) {
        return;
    }
    static const char *const kNames[] = {"adp", "inst", "prod"};
    std::string head = kNames[targetNum];
    if (pid) {
        head += " pid=" + HexNum(*pid);
    }
    std::string wantText;
    for (const auto &p : want) {
        wantText += " " + p.first + "=" + std::to_string(p.second);
    }

    const ZAN_VRRP_ADP *adp = nullptr;
    const ZAN_VRRP_INST_S *inst = nullptr;
    if (target == LabelTarget::Adp) {
        adp = Adp();
    } else {
        ZAN_COMP_INST_S *ci = Adp() != nullptr ? host::FindInst(*pid) : nullptr;
        inst = reinterpret_cast<const ZAN_VRRP_INST_S *>(ci);
        if (target == LabelTarget::Prod && inst != nullptr && inst->pProd == nullptr) {
            Fail("expected " + head + wantText + ", got an instance without producer");
        }
    }

    std::string gotText;
    std::string wantBad;
    for (const auto &p : want) {
        uint32_t got = 0;
        if (p.first == "Exists") {
            got = (target == LabelTarget::Adp ? adp != nullptr : inst != nullptr) ? 1u : 0u;
        } else if (target == LabelTarget::Adp) {
            if (adp == nullptr) {
                Fail("expected " + head + wantText + ", got no adapter");
            }
            got = ReadAdpLabel(*adp, p.first);
        } else if (inst == nullptr) {
            Fail("expected " + head + wantText + ", got no instance");
        } else if (target == LabelTarget::Inst) {
            got = ReadInstLabel(*inst, p.first);
        } else {
            got = ReadProdLabel(*inst, p.first);
        }
        if (got != p.second) {
            wantBad += " " + p.first + "=" + std::to_string(p.second);
            gotText += " " + p.first + "=" + std::to_string(got);
        }
    }
    if (!gotText.empty()) {
        Fail("expected " + head + wantBad + ", got" + gotText);
    }
}

void Runner::ExpectTimers(Args &a, bool dry)
{
    std::vector<uint32_t> want;
    bool none = false;
    while (std::optional<Word> w = a.NextPositional()) {
        if (w->text == "none" && !w->quoted) {
            none = true;
        } else {
            want.push_back(ParseU32(w->text));
        }
    }
    a.Done();
    if (none == !want.empty()) {
        throw ScriptError("expect timers P P ... or expect timers none");
    }
    if (dry) {
        return;
    }
    std::sort(want.begin(), want.end());
    std::vector<uint32_t> got = host::RunningTimerPeriods();
    std::sort(got.begin(), got.end());
    if (got != want) {
        Fail("expected timers " + JoinNums(want) + ", got " + JoinNums(got));
    }
}

void Runner::ExpectBlocks(Args &a, bool dry)
{
    std::optional<uint32_t> adp = a.Num("adp");
    std::optional<uint32_t> fw = a.Num("fw");
    std::optional<uint32_t> msgs = a.Num("msgs");
    a.Done();
    if (!adp && !fw && !msgs) {
        throw ScriptError("expect blocks [adp=N] [fw=N] [msgs=N]: nothing to compare");
    }
    if (dry) {
        return;
    }
    std::string want;
    std::string got;
    auto check = [&](const char *name, std::optional<uint32_t> exp, uint32_t value) {
        if (exp && *exp != value) {
            want += std::string(" ") + name + "=" + std::to_string(*exp);
            got += std::string(" ") + name + "=" + std::to_string(value);
        }
    };
    check("adp", adp, adp ? host::BlocksOn(AdpMemHandle()) : 0);
    check("fw", fw, fw ? host::BlocksOn(host::Ctx()->ulFwMemHandle) : 0);
    check("msgs", msgs, msgs ? host::MsgsOutstanding() : 0);
    if (!want.empty()) {
        Fail("expected blocks" + want + ", got" + got);
    }
}

void Runner::ExpectAsserts(Args &a, bool dry)
{
    Word w = NeedPositional(a, "assert count");
    uint32_t n = ParseU32(w.text);
    a.Done();
    if (dry) {
        return;
    }
    const std::vector<host::AssertRec> &as = host::Asserts();
    if (as.size() != n) {
        std::string list;
        for (std::size_t i = 0; i < as.size() && i < kShowMax; ++i) {
            list += (i ? ", " : " (") + as[i].file + ":" + std::to_string(as[i].line) + " value " +
                    std::to_string(as[i].value);
        }
        if (!as.empty()) {
            list += as.size() > kShowMax ? ", ...)" : ")";
        }
        Fail("expected " + std::to_string(n) + " asserts, got " + std::to_string(as.size()) + list);
    }
}

void Runner::ExpectOutput(Args &a, const Step &s, bool dry)
{
    a.Done();
    if (s.block == nullptr) {
        throw ScriptError("expect output needs its |TEXT lines and end (not inside repeat or on)");
    }
    if (dry) {
        return;
    }
    if (!lastCli_) {
        Fail("expected cli output, got no cli run");
    }
    std::string want;
    for (const std::string &t : *s.block) {
        want += t + "\r\n";
    }
    const std::string &got = lastCli_->text;
    if (got == want) {
        return;
    }
    std::string rest;
    std::vector<std::string> gotLines = SplitCrLf(got, rest);
    const std::vector<std::string> &wantLines = *s.block;
    for (std::size_t i = 0; i < wantLines.size(); ++i) {
        std::string n = std::to_string(i + 1);
        if (i >= gotLines.size()) {
            Fail("expected output line " + n + " " + Quote(wantLines[i]) + ", got " +
                 (rest.empty() ? std::string("end of output") : Quote(rest) + " without \\r\\n"));
        }
        if (gotLines[i] != wantLines[i]) {
            Fail("expected output line " + n + " " + Quote(wantLines[i]) + ", got " + Quote(gotLines[i]));
        }
    }
    std::string extra;
    for (std::size_t i = wantLines.size(); i < gotLines.size(); ++i) {
        extra += gotLines[i] + "\r\n";
    }
    extra += rest;
    Fail("expected end of output after line " + std::to_string(wantLines.size()) + ", got " + Quote(extra));
}

void Runner::ExpectOutputHas(Args &a, bool dry)
{
    Word w = NeedPositional(a, "\"TEXT\"");
    a.Done();
    if (dry) {
        return;
    }
    if (!lastCli_) {
        Fail("expected cli output containing " + Quote(w.text) + ", got no cli run");
    }
    if (lastCli_->text.find(w.text) == std::string::npos) {
        Fail("expected cli output containing " + Quote(w.text) + ", got " + Quote(lastCli_->text));
    }
}

}  // namespace sim
