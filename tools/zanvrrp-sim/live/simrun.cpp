#include "simrun.h"

#include "labels.h"

#include <algorithm>
#include <cmath>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <map>
#include <memory>
#include <set>

#include "adp/zan_vrrpadp.h"
#include "decode.h"
#include "host/host_world.h"
#include "hexfmt.h"
#include "pcap.h"
#include "peer.h"
#include "zan_vrrp_lib.h"

namespace sim {

const char *const kSimUsage =
    "zanvrrp-sim run [--peers N] [--groups N] [--items N] [--parts N] [--duration SECONDS] [--seed N]\n"
    "                [--seeds A-B] [--loss P] [--loss-up P] [--loss-down P] [--keep-loss] [--dup P] [--fc]\n"
    "                [--flaps] [--work] [--latency MS] [--trace] [--pcap FILE] [--quiet] [--sabotage]\n";

namespace {

constexpr uint64_t kQuietMaxMs = 300000;   // the quiet period ends when everything agrees, at the latest here
constexpr uint64_t kQuietStepMs = 1000;

// Datum j of interface group g (1-based) in the application's own layout: a 32-bit word (host
// order) numbering the data of all groups from 1, each group holding `parts`; the group's low
// byte; 0x5a; two zero bytes. Its value: four bytes, then a 32-bit version word (host order).
Key8 PartKeyOf(uint32_t group, uint32_t j, uint32_t parts)
{
    Key8 k{};
    const uint32_t word = static_cast<uint32_t>((uint64_t(group) - 1u) * parts + j + 1u);
    std::memcpy(k.data(), &word, 4);
    k[4] = static_cast<uint8_t>(group);
    k[5] = 0x5a;
    return k;
}

// The VRRP components' pids: 0x10, 0x20, ... without the application's own component id.
constexpr uint32_t kPidStep = 0x10;
constexpr uint32_t kMaxPeers = 0xFFFFFFFFu / kPidStep - 1u;

uint32_t PeerPid(uint32_t p, uint32_t cid)
{
    uint64_t pid = uint64_t(kPidStep) * (p + 1u);
    if (pid >= cid) {
        pid += kPidStep;
    }
    return static_cast<uint32_t>(pid);
}

std::string Hex8(const uint8_t *p, std::size_t n)
{
    return HexCompact(std::vector<uint8_t>(p, p + n));
}

struct Episode {
    uint64_t at = 0;
    enum class Kind { FcStart, FcEnd, Down, Up, WorkOff, WorkOn } kind = Kind::FcStart;
    uint32_t pid = 0;
};

struct InFlight {
    uint64_t at = 0;
    uint32_t from = 0;
    uint32_t to = 0;
    std::vector<uint8_t> msg;
};

// The sample application: subscribes every item it wants on each registration, keeps the item
// states it is handed, hands its data set over when a batch begins and changes it over time.
// Items and data are numbered over all groups, group by group, so that everything it keeps is
// found by number: item (g - 1) x items + i, datum (g - 1) x parts + j.
struct App {
    ZAN_VRRP_ADP_S *adp = nullptr;
    uint32_t groups = 0;                         // interface groups of all VRRP components
    uint32_t items = 0;                          // per group
    uint32_t parts = 0;                          // per group
    std::vector<uint32_t> pidOfGroup;            // by group - 1
    std::map<uint32_t, std::vector<uint32_t>> groupsOfPid;
    std::vector<uint8_t> wanted;                 // by item number
    std::vector<uint8_t> hasState;               // by item number
    std::vector<Key8> states;                    // by item number, where hasState
    std::vector<Key8> partKeys;                  // by datum number
    std::vector<std::vector<uint8_t>> data;      // by datum number
    std::map<uint64_t, uint64_t> lastToggle;     // item number -> when the application last gave it up or took it back
    uint32_t regAcks = 0, records = 0, itemDowns = 0, batchBegins = 0, allocFails = 0, fcms = 0;

    uint64_t ItemNo(uint32_t g, uint32_t i) const { return (uint64_t(g) - 1u) * items + i; }
    uint64_t PartNo(uint32_t g, uint32_t j) const { return (uint64_t(g) - 1u) * parts + j; }
    uint64_t States() const { return static_cast<uint64_t>(std::count(hasState.begin(), hasState.end(), 1)); }

    void Subscribe(const Key8 &k, uint32_t group, bool sub)
    {
        ZAN_VRRP_TLV_S key{};
        key.usType = ZAN_VRRP_KEY_TLV_TYPE;
        key.usLen = 8;
        std::memcpy(key.aucValue, k.data(), 8);
        ZAN_VRRP_TLV_S s{};
        s.usType = 1;
        s.usLen = 1;
        s.aucValue[0] = 1;
        if (sub) {
            ZAN_VrrpAdp_Subscribe(adp, &key, &s, group);
        } else {
            ZAN_VrrpAdp_UnSubscribe(adp, &key, &s, group);
        }
    }

    void SendPart(uint64_t n)
    {
        ZAN_VRRP_TLV_S key{};
        key.usType = ZAN_VRRP_KEY_TLV_TYPE;
        key.usLen = 8;
        std::memcpy(key.aucValue, partKeys[n].data(), 8);
        ZAN_VRRP_TLV_S d{};
        d.usType = ZAN_VRRP_DATA_TLV_TYPE;
        const std::vector<uint8_t> &v = data[n];
        d.usLen = static_cast<uint16_t>(v.size());
        if (!v.empty()) {
            std::memcpy(d.aucValue, v.data(), v.size());
        }
        ZAN_VrrpAdp_SendData(adp, static_cast<uint32_t>(n / parts) + 1u, &key, &d);
    }
};

App *g_app = nullptr;

void OnRegAck(uint32_t ifGroup, uint32_t)
{
    App &a = *g_app;
    a.regAcks++;
    if (ifGroup == 0 || ifGroup > a.groups) {
        return;
    }
    // The instance serves every group of its VRRP component; the application subscribes them all.
    for (uint32_t g : a.groupsOfPid[a.pidOfGroup[ifGroup - 1u]]) {
        for (uint32_t i = 0; i < a.items; i++) {
            if (a.wanted[a.ItemNo(g, i)] != 0) {
                a.Subscribe(ItemKey(g, i, a.items), g, true);
            }
        }
    }
}

void OnRecvData(const void *pKey, const void *pData, uint32_t)
{
    App &a = *g_app;
    a.records++;
    const auto *k = static_cast<const uint8_t *>(pKey);
    const auto *d = static_cast<const uint8_t *>(pData);
    uint16_t klen, dlen;
    std::memcpy(&klen, k + 2, 2);
    std::memcpy(&dlen, d + 2, 2);
    uint64_t n = 0;
    if (klen != 8 || dlen != 8 || !ItemNumber(k + 4, a.groups, a.items, n)) {
        return;
    }
    if (a.wanted[n] != 0) {
        std::memcpy(a.states[n].data(), d + 4, 8);
        a.hasState[n] = 1;
    }
}

void OnItemDown(const void *pItemKey, uint32_t)
{
    App &a = *g_app;
    a.itemDowns++;
    uint64_t n = 0;
    if (ItemNumber(static_cast<const uint8_t *>(pItemKey) + 4, a.groups, a.items, n)) {
        a.hasState[n] = 0;
    }
}

void OnBatchBegin(uint32_t ifGroup, uint32_t)
{
    App &a = *g_app;
    a.batchBegins++;
    if (ifGroup == 0 || ifGroup > a.groups) {
        return;
    }
    for (uint32_t j = 0; j < a.parts; j++) {
        a.SendPart(a.PartNo(ifGroup, j));
    }
}

void OnAllocFail(uint32_t, uint32_t, uint32_t) { g_app->allocFails++; }
void OnFcm(uint32_t, uint32_t) { g_app->fcms++; }

// Counters of the summary, by direction and message.
struct Counts {
    std::map<std::string, std::array<uint64_t, 2>> byType;  // name -> {library sent, peers sent}
    uint64_t lostUp = 0, lostDown = 0, dupUp = 0, dupDown = 0;
    uint64_t timerResends = 0;
    uint64_t fcEpisodes = 0, flaps = 0, workToggles = 0;
};

class Simulation {
public:
    Simulation(const SimOptions &opt, std::ostream &out) : opt_(opt), out_(out), rng_(opt.seed) {}
    SimOutcome Run();

private:
    void Setup();
    void Send(uint32_t from, uint32_t to, const std::vector<uint8_t> &msg, bool fromLib);
    void Deliver();
    void Step(uint64_t until);
    void Schedule();
    void RunEpisode(const Episode &e);
    std::string Compare() const;
    std::string OpenBatches() const;
    bool NetIdle() const { return toLib_.empty() && toPeers_.empty(); }
    Peer *PeerOf(uint32_t pid);
    void Report();

    SimOptions opt_;
    std::ostream &out_;
    Rng rng_;
    App app_;
    std::vector<std::unique_ptr<Peer>> peers_;
    std::deque<InFlight> toLib_, toPeers_;
    std::vector<Episode> episodes_;
    std::size_t nextEpisode_ = 0;
    uint64_t nextAppChange_ = 0, nextItemChange_ = 0;
    bool changing_ = true;
    bool inTimers_ = false;
    uint32_t cid_ = 0;
    PcapWriter pcap_;
    Counts counts_;
    uint64_t messages_ = 0;
    uint32_t dataRound_ = 0;
};

Peer *Simulation::PeerOf(uint32_t pid)
{
    for (auto &p : peers_) {
        if (p->Pid() == pid) {
            return p.get();
        }
    }
    return nullptr;
}

void Simulation::Send(uint32_t from, uint32_t to, const std::vector<uint8_t> &msg, bool fromLib)
{
    const uint64_t now = host::Now();
    messages_++;
    const Decoded d = Decode(msg);
    counts_.byType[std::string(TypeName(d.type)) + (d.ack ? " ack" : "")][fromLib ? 0 : 1]++;
    if (fromLib && inTimers_ && !d.ack) {
        counts_.timerResends++;
    }
    pcap_.Write(now, from, to, msg);
    const double loss = fromLib ? opt_.lossUp : opt_.lossDown;
    const bool lost = rng_.Chance(loss);
    // Only requests are doubled: an acknowledgement of Register, Subscribe, UnSubscribe,
    // AddProducer or RNData carries nothing that tells a late copy from a fresh one.
    const bool dup = !lost && !d.ack && rng_.Chance(opt_.dup);
    if (opt_.trace) {
        char head[64];
        std::snprintf(head, sizeof(head), "%10.3f  %s%-5s  ", static_cast<double>(now) / 1000.0,
                      fromLib ? "lib -> " : "       ", (HexNum(fromLib ? to : from) + (fromLib ? "" : " -> lib")).c_str());
        out_ << head << DescribeLine(d) << (lost ? "  (lost)" : "") << (dup ? "  (doubled)" : "") << "\n";
    }
    if (lost) {
        (fromLib ? counts_.lostUp : counts_.lostDown)++;
        return;
    }
    std::deque<InFlight> &q = fromLib ? toPeers_ : toLib_;
    q.push_back(InFlight{now + opt_.latencyMs, from, to, msg});
    if (dup) {
        (fromLib ? counts_.dupUp : counts_.dupDown)++;
        q.push_back(InFlight{now + opt_.latencyMs, from, to, msg});
    }
}

void Simulation::Setup()
{
    host::Reset();
    cid_ = host::Ctx()->ulCid;
    host::SetSendHook([this](const host::SentMsg &m) { Send(cid_, m.pid, m.bytes, true); });
    app_ = App{};
    g_app = &app_;
    app_.items = opt_.items;
    app_.parts = opt_.parts;
    app_.groups = opt_.peers * opt_.groups;
    app_.pidOfGroup.resize(app_.groups);
    const uint64_t itemsTotal = uint64_t(app_.groups) * opt_.items;
    const uint64_t partsTotal = uint64_t(app_.groups) * opt_.parts;
    app_.wanted.assign(itemsTotal, 1);
    app_.hasState.assign(itemsTotal, 0);
    app_.states.assign(itemsTotal, Key8{});
    app_.partKeys.reserve(partsTotal);
    app_.data.reserve(partsTotal);
    app_.adp = ZAN_VrrpAdp_Get(host::Ctx());
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = OnRegAck;
    cb.pfnRecvData = OnRecvData;
    cb.pfnItemDown = OnItemDown;
    cb.pfnProdBatchBegin = OnBatchBegin;
    cb.pfnMsgAllocFail = OnAllocFail;
    cb.pfnFcm = OnFcm;
    ZAN_VrrpAdp_RegCallBack(app_.adp, &cb);
    for (uint32_t p = 0; p < opt_.peers; p++) {
        const uint32_t pid = PeerPid(p, cid_);
        std::vector<uint32_t> groups;
        for (uint32_t j = 0; j < opt_.groups; j++) {
            const uint32_t g = p * opt_.groups + j + 1u;
            groups.push_back(g);
            app_.pidOfGroup[g - 1u] = pid;
            for (uint32_t k = 0; k < opt_.parts; k++) {
                app_.partKeys.push_back(PartKeyOf(g, k, opt_.parts));
                std::vector<uint8_t> v(8, 0);
                if (k % 5u == 4u) {
                    v.clear();  // some data carry no value bytes
                } else {
                    v[0] = static_cast<uint8_t>(g);
                }
                app_.data.push_back(std::move(v));
            }
        }
        app_.groupsOfPid[pid] = groups;
        peers_.push_back(std::make_unique<Peer>(
            pid, groups, opt_.items, [this, pid](const std::vector<uint8_t> &m) { Send(pid, cid_, m, false); },
            opt_.seed ^ (uint64_t(pid) << 32)));
        peers_.back()->SetSabotage(opt_.sabotage && p == 0);
    }
    // Configuration: each group is a deploy record naming its VRRP component.
    for (uint32_t g = 1; g <= app_.groups; g++) {
        ZAN_VRRP_DEPLOY_REC_S rec{};
        rec.ulKind = ZAN_VRRP_DEPLOY_KIND;
        rec.ulPid = app_.pidOfGroup[g - 1u];
        rec.ulIfGroupId = g;
        std::vector<uint8_t> bytes(sizeof(rec));
        std::memcpy(bytes.data(), &rec, sizeof(rec));
        host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_CREATE, bytes);
    }
    host::Sent().clear();
}

void Simulation::Schedule()
{
    const uint64_t end = static_cast<uint64_t>(opt_.duration * 1000.0);
    auto plan = [&](bool on, uint64_t every, auto add) {
        if (!on || end == 0) {
            return;
        }
        for (uint64_t t = every / 2 + rng_.Below(static_cast<uint32_t>(every)); t + 6000 < end; t += every + rng_.Below(static_cast<uint32_t>(every))) {
            add(t);
        }
    };
    // Flow control ends within two seconds: a Subscribe or UnSubscribe refused for longer than
    // its 3 s retry is left waiting until the application adds another item (the retry's own
    // allocation clears what was held back), which this application may never do.
    plan(opt_.fc, 20000, [&](uint64_t t) {
        episodes_.push_back({t, Episode::Kind::FcStart, 0});
        episodes_.push_back({t + 200 + rng_.Below(1800), Episode::Kind::FcEnd, 0});
    });
    plan(opt_.flaps, 45000, [&](uint64_t t) {
        const uint32_t pid = peers_[rng_.Below(static_cast<uint32_t>(peers_.size()))]->Pid();
        episodes_.push_back({t, Episode::Kind::Down, pid});
        episodes_.push_back({t + 500 + rng_.Below(4000), Episode::Kind::Up, pid});
    });
    plan(opt_.work, 60000, [&](uint64_t t) {
        episodes_.push_back({t, Episode::Kind::WorkOff, 0});
        episodes_.push_back({t + 500 + rng_.Below(4000), Episode::Kind::WorkOn, 0});
    });
    std::stable_sort(episodes_.begin(), episodes_.end(), [](const Episode &a, const Episode &b) { return a.at < b.at; });
}

void Simulation::RunEpisode(const Episode &e)
{
    switch (e.kind) {
    case Episode::Kind::FcStart:
        counts_.fcEpisodes++;
        host::ArmFail(host::FailKind::MsgAlloc, 0, 2 + rng_.Below(12));
        break;
    case Episode::Kind::FcEnd:
        host::ClearFail();
        for (auto &p : peers_) {
            host::DeliverFcm(p->Pid());
        }
        host::RunFlush();
        break;
    case Episode::Kind::Down:
        counts_.flaps++;
        PeerOf(e.pid)->SetAlive(false);
        PeerOf(e.pid)->Restart();
        host::RunDown(e.pid);
        break;
    case Episode::Kind::Up:
        PeerOf(e.pid)->SetAlive(true);
        host::RunUp(e.pid);
        break;
    case Episode::Kind::WorkOff:
        counts_.workToggles++;
        ZAN_VrrpAdp_SetWorkState(app_.adp, 0);
        break;
    case Episode::Kind::WorkOn:
        ZAN_VrrpAdp_SetWorkState(app_.adp, 1);
        break;
    }
}

void Simulation::Deliver()
{
    const uint64_t now = host::Now();
    while (!toLib_.empty() && toLib_.front().at <= now) {
        InFlight f = std::move(toLib_.front());
        toLib_.pop_front();
        host::DeliverMsg(f.from, f.msg);
        host::RunFlush();  // the framework flushes after each message
    }
    while (!toPeers_.empty() && toPeers_.front().at <= now) {
        InFlight f = std::move(toPeers_.front());
        toPeers_.pop_front();
        if (Peer *p = PeerOf(f.to)) {
            p->Receive(f.msg, now);
        }
    }
    for (auto &p : peers_) {
        p->Tick(now);
    }
    host::Sent().clear();
}

// Advances to the next event at or before `until` and handles everything due then.
void Simulation::Step(uint64_t until)
{
    const uint64_t now = host::Now();
    uint64_t next = until;
    auto earlier = [&](uint64_t t) { next = std::min(next, std::max(t, now)); };
    if (!toLib_.empty()) earlier(toLib_.front().at);
    if (!toPeers_.empty()) earlier(toPeers_.front().at);
    if (auto t = host::NextTimerDue()) earlier(*t);
    for (auto &p : peers_) {
        if (auto t = p->NextDue()) earlier(*t);
    }
    if (changing_) {
        earlier(nextAppChange_);
        earlier(nextItemChange_);
    }
    if (nextEpisode_ < episodes_.size()) earlier(episodes_[nextEpisode_].at);

    inTimers_ = true;
    host::Advance(next - now);
    inTimers_ = false;
    Deliver();
    while (nextEpisode_ < episodes_.size() && episodes_[nextEpisode_].at <= next) {
        RunEpisode(episodes_[nextEpisode_++]);
        Deliver();
    }
    if (changing_ && nextAppChange_ <= next) {
        // One datum changes (sometimes several at once) and the framework flushes.
        const uint32_t n = rng_.Chance(0.05) ? 1u + rng_.Below(20) : 1u;
        for (uint32_t i = 0; i < n && !app_.data.empty(); i++) {
            const uint64_t d = rng_.Below(static_cast<uint32_t>(app_.data.size()));
            std::vector<uint8_t> &v = app_.data[d];
            if (!v.empty()) {
                uint32_t version = ++dataRound_;
                std::memcpy(v.data() + 4, &version, 4);
                v[1] = static_cast<uint8_t>(rng_.Below(256));
            }
            app_.SendPart(d);
        }
        // Now and then an item is given up or taken back, each at most once a minute: an item
        // toggled while its own request is still unacknowledged leaves the items added
        // meanwhile waiting for the next addition (the retry finds nothing of its own to repeat).
        const uint32_t g = 1u + rng_.Below(app_.groups);
        const uint32_t i = rng_.Below(opt_.items);
        const uint64_t no = app_.ItemNo(g, i);
        auto last = app_.lastToggle.find(no);
        if (rng_.Chance(0.01) && (last == app_.lastToggle.end() || last->second + 60000 <= next)) {
            app_.lastToggle[no] = next;
            const bool want = app_.wanted[no] == 0;
            app_.wanted[no] = want ? 1 : 0;
            if (!want) {
                app_.hasState[no] = 0;
            }
            app_.Subscribe(ItemKey(g, i, opt_.items), g, want);
        }
        host::RunFlush();
        nextAppChange_ = next + 50 + rng_.Below(100);
        Deliver();
    }
    if (changing_ && nextItemChange_ <= next) {
        peers_[rng_.Below(static_cast<uint32_t>(peers_.size()))]->ChangeRandomItem(next);
        nextItemChange_ = next + 50 + rng_.Below(100);
        Deliver();
    }
}

std::string Simulation::Compare() const
{
    for (const auto &p : peers_) {
        auto who = [&] { return "VRRP component " + HexNum(p->Pid()); };
        for (uint32_t g : app_.groupsOfPid.at(p->Pid())) {
            for (uint32_t i = 0; i < opt_.items; i++) {
                const Key8 k = ItemKey(g, i, opt_.items);
                const uint64_t no = app_.ItemNo(g, i);
                auto item = [&] { return "item " + Hex8(k.data(), 8) + " (group " + std::to_string(g) + ")"; };
                const bool want = app_.wanted[no] != 0;
                if (want != (p->Subscriptions().count(k) != 0)) {
                    return item() + ": the application " + (want ? "wants" : "gave up") + " it, " + who() + " has it " +
                           (want ? "not subscribed" : "subscribed");
                }
                if (!want) {
                    continue;
                }
                const Key8 &v = p->Table().at(k);
                if (app_.hasState[no] == 0) {
                    return item() + ": the application has no state, " + who() + " has " + Hex8(v.data(), 8);
                }
                if (app_.states[no] != v) {
                    return item() + ": the application has " + Hex8(app_.states[no].data(), 8) + ", " + who() + " has " +
                           Hex8(v.data(), 8);
                }
            }
        }
        for (uint32_t g : app_.groupsOfPid.at(p->Pid())) {
            for (uint32_t j = 0; j < opt_.parts; j++) {
                const uint64_t no = app_.PartNo(g, j);
                const Key8 &k = app_.partKeys[no];
                const std::vector<uint8_t> &mine = app_.data[no];
                auto part = [&] { return "datum " + Hex8(k.data(), 8); };
                auto c = p->Copy().find(k);
                if (c == p->Copy().end()) {
                    return part() + ": " + who() + " has no copy";
                }
                if (c->second != mine) {
                    return part() + ": the application has " + HexCompact(mine) + ", " + who() + " has " +
                           HexCompact(c->second);
                }
            }
        }
        const uint64_t want = uint64_t(opt_.groups) * opt_.parts;
        if (p->Copy().size() != want) {
            return who() + " holds " + std::to_string(p->Copy().size()) + " data, the application " +
                   std::to_string(want);
        }
    }
    return "";
}

std::string Percent(double p)
{
    char b[32];
    std::snprintf(b, sizeof(b), "%g%%", p * 100.0);
    return b;
}

// Batches still under way at the end. Every data message of a batch must arrive (a gap
// restarts the batch), so a batch of n messages gets through with probability (1 - loss)^n: at
// a high loss rate a batch of many messages practically never completes. That is a limit of
// the protocol, and the verdict says so with the figures.
std::string Simulation::OpenBatches() const
{
    std::string why;
    auto explain = [&](const std::string &what, uint32_t msgs, const char *msgName, double loss,
                       const char *towards, uint32_t begun, uint32_t done, uint64_t doneAt) {
        const double chance = std::pow(1.0 - loss, msgs);
        char odds[48];
        std::snprintf(odds, sizeof(odds), "%.3g", chance > 0 ? 1.0 / chance : HUGE_VAL);
        why += ". A batch that cannot complete: " + what + " in batches of " + std::to_string(msgs) + " " + msgName +
               " messages, every one of which must arrive (a lost one starts the batch again); at " + Percent(loss) +
               " loss towards " + towards + " one batch in " + odds + " gets through, and " + std::to_string(done) +
               " of the " + std::to_string(begun) + " begun did" +
               (done != 0 ? " (the last at " + std::to_string(doneAt / 1000) + " s)" : std::string()) +
               ". This is a limit of the protocol at this loss rate, not a fault of the library";
    };
    for (const auto &p : peers_) {
        const PeerStats &st = p->Stats();
        const std::string who = "VRRP component " + HexNum(p->Pid());
        if (p->ProdBatchOpen() && opt_.lossUp > 0 && std::pow(1.0 - opt_.lossUp, st.prodBatchMsgs) < 0.01) {
            explain("the application's data goes to " + who, st.prodBatchMsgs, "BNData", opt_.lossUp,
                    "the VRRP components", st.prodBatches, st.prodBatchesDone, st.prodDoneAt);
        }
        if (p->BatchOpen() && opt_.lossDown > 0 && std::pow(1.0 - opt_.lossDown, st.batchMsgs) < 0.01) {
            explain("the item states come from " + who, st.batchMsgs, "BUData", opt_.lossDown, "the library",
                    st.batches, st.batchesDone, st.batchDoneAt);
        }
    }
    return why;
}

void Simulation::Report()
{
    out_ << "\nMessages (library sent / VRRP components sent):\n";
    for (const auto &entry : counts_.byType) {
        char line[96];
        std::snprintf(line, sizeof(line), "  %-18s %10llu %10llu\n", entry.first.c_str(),
                      static_cast<unsigned long long>(entry.second[0]), static_cast<unsigned long long>(entry.second[1]));
        out_ << line;
    }
    uint64_t peerResends = 0, notifySent = 0, notifyRecv = 0, batches = 0, dupsIgnored = 0;
    for (const auto &p : peers_) {
        peerResends += p->Stats().retransmissions;
        notifySent += p->Stats().notifySent;
        notifyRecv += p->Stats().notifyReceived;
        batches += p->Stats().batches;
        dupsIgnored += p->Stats().duplicatesIgnored;
    }
    out_ << "Retransmissions: library " << counts_.timerResends << " (on its timers), VRRP components " << peerResends
         << "\n";
    out_ << "Notify events: library to VRRP components " << notifyRecv << ", VRRP components to library " << notifySent
         << "; batches sent by VRRP components " << batches << "\n";
    out_ << "Faults injected: lost " << counts_.lostUp << " up / " << counts_.lostDown << " down, doubled "
         << counts_.dupUp << " up / " << counts_.dupDown << " down (" << dupsIgnored
         << " recognised by the VRRP components), flow-control episodes " << counts_.fcEpisodes << " (allocations refused "
         << app_.allocFails << "), VRRP component restarts " << counts_.flaps << ", work off/on " << counts_.workToggles
         << "\n";
    uint64_t prodBatches = 0, prodDone = 0, batchesDone = 0;
    uint32_t prodMsgs = 0, batchMsgs = 0;
    for (const auto &p : peers_) {
        prodBatches += p->Stats().prodBatches;
        prodDone += p->Stats().prodBatchesDone;
        batchesDone += p->Stats().batchesDone;
        prodMsgs = std::max(prodMsgs, p->Stats().prodBatchMsgs);
        batchMsgs = std::max(batchMsgs, p->Stats().batchMsgs);
    }
    out_ << "Batches: item states " << batches << " begun, " << batchesDone << " completed (at most " << batchMsgs
         << " BUData each); the application's data " << prodBatches << " begun, " << prodDone
         << " taken over (at most " << prodMsgs << " BNData each)\n";
    out_ << "Application: " << app_.regAcks << " registrations acknowledged, " << app_.records << " records, "
         << app_.itemDowns << " items reported down, " << app_.batchBegins << " batches begun\n";

    out_ << "\nDiagnostics (zanvrrp):\n";
    for (const char *item : {"adp-base", "adp-stat"}) {
        out_ << host::RunCli("zanvrrp", item, std::nullopt, 0).text;
    }
    for (const auto &p : peers_) {
        for (const char *item : {"inst-base", "inst-msgstat", "inst-srvstat", "inst-consumer", "inst-prod"}) {
            out_ << host::RunCli("zanvrrp", item, HexNum(p->Pid()), 0).text;
        }
    }
}

SimOutcome Simulation::Run()
{
    SimOutcome r;
    if (!opt_.pcap.empty()) {
        std::string err;
        if (!pcap_.Open(opt_.pcap, err)) {
            r.verdict = err;
            return r;
        }
    }
    Setup();
    Schedule();
    const uint64_t end = static_cast<uint64_t>(opt_.duration * 1000.0);
    const bool showProgress = opt_.progress && opt_.duration >= 300;
    uint64_t nextProgress = 60000;
    while (host::Now() < end) {
        Step(end);
        if (showProgress && host::Now() >= nextProgress) {
            std::cerr << "  " << host::Now() / 1000 << " s of " << end / 1000 << " s, " << messages_ << " messages\n";
            nextProgress += 60000;
        }
    }
    // The quiet period: no more faults or changes (losses only with --keep-loss); every
    // component up and working.
    if (!opt_.keepLoss) {
        opt_.lossUp = opt_.lossDown = 0;
    }
    opt_.dup = 0;
    changing_ = false;
    nextEpisode_ = episodes_.size();
    host::ClearFail();
    for (auto &p : peers_) {
        if (!p->Alive()) {
            p->SetAlive(true);
            host::RunUp(p->Pid());
        }
    }
    ZAN_VrrpAdp_SetWorkState(app_.adp, 1);
    for (auto &p : peers_) {
        host::DeliverFcm(p->Pid());
    }
    host::RunFlush();
    const uint64_t quietEnd = host::Now() + kQuietMaxMs;
    std::string diff;
    bool settled = false;
    while (!settled && host::Now() < quietEnd) {
        const uint64_t stepEnd = host::Now() + kQuietStepMs;
        while (host::Now() < stepEnd) {
            Step(stepEnd);
        }
        // The comparison walks everything: only once nothing is under way.
        bool quiet = NetIdle();
        for (const auto &p : peers_) {
            quiet = quiet && p->Quiet();
        }
        settled = quiet && Compare().empty();
    }
    if (!settled) {
        diff = Compare();
        if (diff.empty()) {
            diff = "still busy after " + std::to_string(kQuietMaxMs / 1000) + " s of quiet";
        }
        diff += OpenBatches();
    }
    if (opt_.report) {
        Report();
    }
    const uint64_t states = app_.States();
    // Nothing may stay held, and the library must not have reported a broken precondition.
    ZAN_VrrpAdp_DeInit(host::Ctx());
    const uint32_t held =
        static_cast<uint32_t>(FwBlocksBesideKeptContext().size()) + host::BlocksOn(host::LastCreatedHandle());
    if (diff.empty() && (held != 0 || host::MsgsOutstanding() != 0)) {
        diff = std::to_string(held) + " memory blocks and " + std::to_string(host::MsgsOutstanding()) +
               " message buffers still held after DeInit";
    }
    if (diff.empty() && !host::Asserts().empty()) {
        diff = "KOL_Assert " + host::Asserts().front().file + ":" + std::to_string(host::Asserts().front().line);
    }
    if (diff.empty() && host::Faults() != 0) {
        diff = "platform misuse: " + host::FaultLog().front();
    }
    host::SetSendHook(nullptr);
    r.messages = messages_;
    r.ok = diff.empty();
    if (r.ok) {
        r.verdict = "converged at " + std::to_string(host::Now() / 1000) + " s: " + std::to_string(states) +
                    " item states and " + std::to_string(app_.data.size()) +
                    " data agree with the VRRP components; nothing held";
    } else {
        r.verdict = "DIVERGED: " + diff;
    }
    g_app = nullptr;
    return r;
}

bool ParseNumber(const std::string &text, double &out)
{
    char *end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end != nullptr && *end == '\0' && !text.empty() && out >= 0;
}

}  // namespace

bool ParseSimOptions(const std::vector<std::string> &args, SimOptions &opt, std::vector<uint64_t> &seeds,
                     std::string &err)
{
    bool seedGiven = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        auto value = [&](double &v, double max) {
            if (i + 1 >= args.size() || !ParseNumber(args[i + 1], v) || v > max) {
                err = a + " needs a number" + (max <= 1.0 ? " from 0 to 1" : "");
                return false;
            }
            ++i;
            return true;
        };
        double v = 0;
        if (a == "--peers" || a == "--groups" || a == "--items" || a == "--parts" || a == "--latency") {
            if (!value(v, 4294967295.0)) return false;
            uint32_t &field = a == "--peers" ? opt.peers : a == "--groups" ? opt.groups : a == "--items" ? opt.items
                              : a == "--parts" ? opt.parts : opt.latencyMs;
            field = static_cast<uint32_t>(v);
        } else if (a == "--duration") {
            if (!value(opt.duration, 1e7)) return false;
        } else if (a == "--seed") {
            if (!value(v, 1e15)) return false;
            opt.seed = static_cast<uint64_t>(v);
            seedGiven = true;
        } else if (a == "--seeds") {
            unsigned long long lo = 0, hi = 0;
            if (i + 1 >= args.size() || std::sscanf(args[i + 1].c_str(), "%llu-%llu", &lo, &hi) != 2 || hi < lo) {
                err = "--seeds needs A-B";
                return false;
            }
            ++i;
            for (unsigned long long s = lo; s <= hi; ++s) {
                seeds.push_back(s);
            }
        } else if (a == "--loss") {
            if (!value(v, 1)) return false;
            opt.lossUp = opt.lossDown = v;
        } else if (a == "--loss-up") {
            if (!value(opt.lossUp, 1)) return false;
        } else if (a == "--loss-down") {
            if (!value(opt.lossDown, 1)) return false;
        } else if (a == "--keep-loss") {
            opt.keepLoss = true;
        } else if (a == "--dup") {
            if (!value(opt.dup, 1)) return false;
        } else if (a == "--fc") {
            opt.fc = true;
        } else if (a == "--flaps") {
            opt.flaps = true;
        } else if (a == "--work") {
            opt.work = true;
        } else if (a == "--trace") {
            opt.trace = true;
        } else if (a == "--sabotage") {
            opt.sabotage = true;
        } else if (a == "--quiet") {
            opt.report = false;
            opt.progress = false;
        } else if (a == "--pcap" && i + 1 < args.size()) {
            opt.pcap = args[++i];
        } else {
            err = "unknown option " + a;
            return false;
        }
    }
    if (opt.peers == 0 || opt.groups == 0 || opt.items == 0 || opt.parts == 0) {
        err = "--peers, --groups, --items and --parts must be at least 1";
        return false;
    }
    // Each VRRP component has a pid of its own (0x10 apart, a 32-bit word); the interface
    // groups of all components are numbered by a 32-bit id, and the items and the data of all
    // groups by the 32-bit first word of their keys.
    const uint64_t groups = uint64_t(opt.peers) * opt.groups;
    if (opt.peers > kMaxPeers) {
        err = "--peers is at most " + std::to_string(kMaxPeers) + ": each VRRP component takes a 32-bit pid, 0x10 apart";
        return false;
    }
    if (groups > 0xFFFFFFFFu) {
        err = "--peers x --groups is at most 4294967295: interface group ids are 32-bit";
        return false;
    }
    if (groups * opt.items > 0xFFFFFFFFu || groups * opt.parts > 0xFFFFFFFFu) {
        err = std::string(groups * opt.items > 0xFFFFFFFFu ? "--peers x --groups x --items" : "--peers x --groups x --parts") +
              " is at most 4294967295: the first word of an item's or a datum's key numbers them all (32-bit)";
        return false;
    }
    if (seeds.empty()) {
        seeds.push_back(opt.seed);
    } else if (seedGiven) {
        err = "--seed and --seeds exclude each other";
        return false;
    }
    return true;
}

SimOutcome RunSimulation(const SimOptions &opt, std::ostream &out)
{
    Simulation s(opt, out);
    return s.Run();
}

}  // namespace sim
