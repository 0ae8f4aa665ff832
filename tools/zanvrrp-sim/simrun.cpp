#include "simrun.h"

#include "labels.h"

#include <algorithm>
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
#include "lexer.h"
#include "pcap.h"
#include "peer.h"
#include "zan_vrrp_lib.h"

namespace sim {

const char *const kSimUsage =
    "zanvrrp-sim run [--peers N] [--groups N] [--items N] [--parts N] [--duration SECONDS] [--seed N]\n"
    "                [--seeds A-B] [--loss P] [--loss-up P] [--loss-down P] [--dup P] [--fc] [--flaps]\n"
    "                [--work] [--latency MS] [--trace] [--pcap FILE] [--quiet] [--sabotage]\n";

namespace {

constexpr uint64_t kQuietMaxMs = 300000;   // the quiet period ends when everything agrees, at the latest here
constexpr uint64_t kQuietStepMs = 1000;

// Part j of interface group g in the application's own layout: a 32-bit word (host order), then
// four bytes; its value: four bytes, then a 32-bit version word (host order).
Key8 PartKeyOf(uint32_t group, uint32_t j)
{
    Key8 k{};
    const uint32_t word = group * 100000u + j;
    std::memcpy(k.data(), &word, 4);
    k[4] = static_cast<uint8_t>(group);
    k[5] = 0x5a;
    return k;
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
struct App {
    ZAN_VRRP_ADP_S *adp = nullptr;
    std::map<uint32_t, uint32_t> pidOfGroup;
    std::map<uint32_t, std::vector<uint32_t>> groupsOfPid;
    uint32_t items = 0;
    uint32_t parts = 0;
    std::set<Key8> wanted;
    std::map<Key8, Key8> states;
    std::map<Key8, std::vector<uint8_t>> data;
    std::map<Key8, uint32_t> groupOfPart;
    std::map<Key8, uint64_t> lastToggle;  // when the application last gave up or took back an item
    uint32_t regAcks = 0, records = 0, itemDowns = 0, batchBegins = 0, allocFails = 0, fcms = 0;

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

    void SendPart(const Key8 &k)
    {
        ZAN_VRRP_TLV_S key{};
        key.usType = ZAN_VRRP_KEY_TLV_TYPE;
        key.usLen = 8;
        std::memcpy(key.aucValue, k.data(), 8);
        ZAN_VRRP_TLV_S d{};
        d.usType = ZAN_VRRP_DATA_TLV_TYPE;
        const std::vector<uint8_t> &v = data.at(k);
        d.usLen = static_cast<uint16_t>(v.size());
        if (!v.empty()) {
            std::memcpy(d.aucValue, v.data(), v.size());
        }
        ZAN_VrrpAdp_SendData(adp, groupOfPart.at(k), &key, &d);
    }
};

App *g_app = nullptr;

void OnRegAck(uint32_t ifGroup, uint32_t)
{
    App &a = *g_app;
    a.regAcks++;
    // The instance serves every group of its VRRP component; the application subscribes them all.
    for (uint32_t g : a.groupsOfPid[a.pidOfGroup[ifGroup]]) {
        for (uint32_t i = 0; i < a.items; i++) {
            if (a.wanted.count(ItemKey(g, i)) != 0) {
                a.Subscribe(ItemKey(g, i), g, true);
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
    if (klen != 8 || dlen != 8) {
        return;
    }
    Key8 key{};
    std::memcpy(key.data(), k + 4, 8);
    if (a.wanted.count(key) != 0) {
        Key8 v{};
        std::memcpy(v.data(), d + 4, 8);
        a.states[key] = v;
    }
}

void OnItemDown(const void *pItemKey, uint32_t)
{
    App &a = *g_app;
    a.itemDowns++;
    Key8 key{};
    std::memcpy(key.data(), static_cast<const uint8_t *>(pItemKey) + 4, 8);
    a.states.erase(key);
}

void OnBatchBegin(uint32_t ifGroup, uint32_t)
{
    App &a = *g_app;
    a.batchBegins++;
    for (const auto &entry : a.groupOfPart) {
        if (entry.second == ifGroup) {
            a.SendPart(entry.first);
        }
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
    app_.adp = ZAN_VrrpAdp_Get(host::Ctx());
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = OnRegAck;
    cb.pfnRecvData = OnRecvData;
    cb.pfnItemDown = OnItemDown;
    cb.pfnProdBatchBegin = OnBatchBegin;
    cb.pfnMsgAllocFail = OnAllocFail;
    cb.pfnFcm = OnFcm;
    ZAN_VrrpAdp_RegCallBack(app_.adp, &cb);
    bool sabotage = false;
    for (uint32_t p = 0; p < opt_.peers; p++) {
        const uint32_t pid = 0x10u * (p + 1u);
        std::vector<uint32_t> groups;
        for (uint32_t j = 0; j < opt_.groups; j++) {
            const uint32_t g = p * opt_.groups + j + 1u;
            groups.push_back(g);
            app_.pidOfGroup[g] = pid;
            for (uint32_t i = 0; i < opt_.items; i++) {
                app_.wanted.insert(ItemKey(g, i));
            }
            for (uint32_t k = 0; k < opt_.parts; k++) {
                const Key8 key = PartKeyOf(g, k);
                app_.groupOfPart[key] = g;
                std::vector<uint8_t> v(8, 0);
                if (k % 5u == 4u) {
                    v.clear();  // some data carry no value bytes
                } else {
                    v[0] = static_cast<uint8_t>(g);
                }
                app_.data[key] = v;
            }
        }
        app_.groupsOfPid[pid] = groups;
        if (opt_.sabotage && p == 0) {
            sabotage = true;
        }
        peers_.push_back(std::make_unique<Peer>(
            pid, groups, opt_.items, [this, pid](const std::vector<uint8_t> &m) { Send(pid, cid_, m, false); },
            opt_.seed ^ (uint64_t(pid) << 32)));
        peers_.back()->SetSabotage(sabotage);
        sabotage = false;
    }
    // Configuration: each group is a deploy record naming its VRRP component.
    for (const auto &entry : app_.pidOfGroup) {
        ZAN_VRRP_DEPLOY_REC_S rec{};
        rec.ulKind = ZAN_VRRP_DEPLOY_KIND;
        rec.ulPid = entry.second;
        rec.ulIfGroupId = entry.first;
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
            auto it = app_.data.begin();
            std::advance(it, rng_.Below(static_cast<uint32_t>(app_.data.size())));
            if (!it->second.empty()) {
                uint32_t version = ++dataRound_;
                std::memcpy(it->second.data() + 4, &version, 4);
                it->second[1] = static_cast<uint8_t>(rng_.Below(256));
            }
            app_.SendPart(it->first);
        }
        // Now and then an item is given up or taken back, each at most once a minute: an item
        // toggled while its own request is still unacknowledged leaves the items added
        // meanwhile waiting for the next addition (the retry finds nothing of its own to repeat).
        const uint32_t g = 1u + rng_.Below(static_cast<uint32_t>(app_.pidOfGroup.size()));
        const Key8 k = ItemKey(g, rng_.Below(opt_.items));
        auto last = app_.lastToggle.find(k);
        if (rng_.Chance(0.01) && (last == app_.lastToggle.end() || last->second + 60000 <= next)) {
            app_.lastToggle[k] = next;
            const bool want = app_.wanted.count(k) == 0;
            if (want) {
                app_.wanted.insert(k);
            } else {
                app_.wanted.erase(k);
                app_.states.erase(k);
            }
            app_.Subscribe(k, g, want);
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
        const std::string who = "VRRP component " + HexNum(p->Pid());
        for (uint32_t g : app_.groupsOfPid.at(p->Pid())) {
            for (uint32_t i = 0; i < opt_.items; i++) {
                const Key8 k = ItemKey(g, i);
                const std::string item = "item " + Hex8(k.data(), 8) + " (group " + std::to_string(g) + ")";
                const bool want = app_.wanted.count(k) != 0;
                if (want != (p->Subscriptions().count(k) != 0)) {
                    return item + ": the application " + (want ? "wants" : "gave up") + " it, " + who + " has it " +
                           (want ? "not subscribed" : "subscribed");
                }
                if (!want) {
                    continue;
                }
                auto a = app_.states.find(k);
                const Key8 &v = p->Table().at(k);
                if (a == app_.states.end()) {
                    return item + ": the application has no state, " + who + " has " + Hex8(v.data(), 8);
                }
                if (a->second != v) {
                    return item + ": the application has " + Hex8(a->second.data(), 8) + ", " + who + " has " +
                           Hex8(v.data(), 8);
                }
            }
        }
        for (const auto &entry : app_.data) {
            if (app_.pidOfGroup.at(app_.groupOfPart.at(entry.first)) != p->Pid()) {
                continue;
            }
            const std::string part = "datum " + Hex8(entry.first.data(), 8);
            auto c = p->Copy().find(entry.first);
            if (c == p->Copy().end()) {
                return part + ": " + who + " has no copy";
            }
            if (c->second != entry.second) {
                return part + ": the application has " + HexCompact(entry.second) + ", " + who + " has " +
                       HexCompact(c->second);
            }
        }
        if (p->Copy().size() != opt_.groups * opt_.parts) {
            return who + " holds " + std::to_string(p->Copy().size()) + " data, the application " +
                   std::to_string(opt_.groups * opt_.parts);
        }
    }
    return "";
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
    // The quiet period: no more faults or changes; every component up and working.
    opt_.lossUp = opt_.lossDown = opt_.dup = 0;
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
    std::string diff = Compare();
    while (host::Now() < quietEnd) {
        const uint64_t stepEnd = host::Now() + kQuietStepMs;
        while (host::Now() < stepEnd) {
            Step(stepEnd);
        }
        diff = Compare();
        bool quiet = NetIdle();
        for (const auto &p : peers_) {
            quiet = quiet && p->Quiet();
        }
        if (diff.empty() && quiet) {
            break;
        }
    }
    if (opt_.report) {
        Report();
    }
    const std::size_t states = app_.states.size();
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
            if (!value(v, 100000)) return false;
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
    if (opt.peers == 0 || opt.groups == 0 || opt.items == 0 || opt.parts == 0 || opt.peers > 15) {
        err = "--peers (1 to 15), --groups, --items and --parts must be at least 1";
        return false;
    }
    if (opt.items > 999) {
        err = "--items must be below 1000";
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
