// The producer against a small model of the VRRP component's side, over links that lose
// messages, duplicate acknowledgements and hold messages while time passes, with refused
// allocations, flow control, notify events and timer expiries injected at random. After a quiet
// phase the model must hold exactly the application's data set, the library must never have sent
// a malformed request, and nothing may stay held.
//
// The model does what a VRRP component must: it acknowledges by echo, keeps a pending copy per
// batch transaction, and asks for the batch again with a NotifyEvent request when the BNData
// sequence breaks (the producer never sends a BNData message twice). Two acknowledgements that
// the library accepts without matching them to a request are withheld (as if lost) when they
// would release data the model never received: any RNData acknowledgement releases whatever
// waits, and a BNEnd acknowledgement is matched by sequence number, not by transaction id.
#include <array>
#include <deque>
#include <map>
#include <random>
#include <set>

#include "lib_fixture.h"

namespace {

constexpr uint32_t kPid = 0x10;
constexpr uint32_t kGroup = 1;
constexpr uint32_t kSeeds = 300;

using Bytes = std::vector<uint8_t>;
using Key = std::array<uint8_t, 8>;
using Data = Bytes;  // 0 or 8 bytes
using DataSet = std::map<Key, Data>;
using Parts = std::vector<std::pair<Key, Data>>;

const char *const kTypeNames[17] = {"?",        "AddProd", "DelProd", "BNBegin", "BNData", "BNEnd",
                                    "RNData",   "Register", "UnReg",  "Sub",     "UnSub",  "BUBegin",
                                    "BUData",   "BUEnd",    "BUBE",   "RUData",  "Notify"};

uint32_t Be16(const Bytes &b, size_t o) { return (uint32_t(b[o]) << 8) | b[o + 1]; }
uint32_t Be32(const Bytes &b, size_t o) { return (Be16(b, o) << 16) | Be16(b, o + 2); }
bool IsAck(const Bytes &m) { return (m[2] & 0x80) != 0; }

void Apply(DataSet &set, const Parts &parts)
{
    for (const auto &[k, d] : parts) {
        set[k] = d;
    }
}

std::string Describe(const Bytes &m)
{
    return std::string(IsAck(m) ? "ack " : "") + (m[3] < 17 ? kTypeNames[m[3]] : "?") + " t" +
           std::to_string(Be32(m, 4)) + " s" + std::to_string(Be32(m, 12)) + " n" + std::to_string(Be16(m, 18));
}

// Checks a request of the library against its wire form; decodes the parts of BNData and RNData.
std::string CheckRequest(const Bytes &m, Parts &parts)
{
    if (m.size() < 20 || Be16(m, 0) != m.size() || m[2] != 0x01) {
        return "length field or flags";
    }
    const uint32_t type = m[3], tran = Be32(m, 4), seq = Be32(m, 12), cnt = Be16(m, 18);
    const bool registration = type == ZAN_VRRP_MSG_ADD_PRODUCER || type == ZAN_VRRP_MSG_REGISTER;
    if (Be16(m, 8) != (registration ? 0u : 1u) || Be16(m, 10) != 0 || Be16(m, 16) != 0) {
        return "header words at 8, 10, 16";
    }
    if (registration || type == ZAN_VRRP_MSG_BN_BEGIN || type == ZAN_VRRP_MSG_BN_END) {
        const bool idsOk = registration ? tran == 0 && seq == 0 : type == ZAN_VRRP_MSG_BN_END || seq == 1;
        return m.size() == 20 && cnt == 0 && idsOk ? "" : "header-only request: body or ids";
    }
    if ((type != ZAN_VRRP_MSG_BN_DATA && type != ZAN_VRRP_MSG_RN_DATA) || m.size() > ZAN_VRRP_PROD_MSG_MAX ||
        cnt == 0 || (type == ZAN_VRRP_MSG_RN_DATA && (tran != 0 || seq != 0))) {
        return "type, size, entry count or ids";
    }
    size_t off = 20;
    for (uint32_t i = 0; i < cnt; i++, off += 16 + Be16(m, off + 14)) {
        if (off + 16 > m.size() || Be32(m, off) != (ZAN_VRRP_KEY_TLV_TYPE << 16 | 8u) ||
            Be16(m, off + 12) != ZAN_VRRP_DATA_TLV_TYPE || (Be16(m, off + 14) != 0 && Be16(m, off + 14) != 8) ||
            off + 16 + Be16(m, off + 14) > m.size()) {
            return "bad TLV in part " + std::to_string(i);
        }
        // The key's first word and the data's last word travel big-endian, the rest as stored.
        Key k;
        const uint32_t keyWord = Be32(m, off + 4);
        std::memcpy(k.data(), &keyWord, 4);
        std::memcpy(k.data() + 4, &m[off + 8], 4);
        Data d(Be16(m, off + 14));
        if (!d.empty()) {
            const uint32_t dataWord = Be32(m, off + 20);
            std::memcpy(d.data(), &m[off + 16], 4);
            std::memcpy(d.data() + 4, &dataWord, 4);
        }
        parts.emplace_back(k, d);
    }
    return off == m.size() ? "" : "entry count does not cover the body";
}

// How often the runs reached what the faults are meant for, summed over the seeds.
struct Coverage {
    uint32_t restarts = 0, gaps = 0, withheldRn = 0, withheldEnd = 0, longBatches = 0, fullRn = 0;
};

struct Request {
    Bytes bytes;
    Parts parts;
};

class World;
World *g_world = nullptr;

class World {
public:
    // deliverStale: a message type whose harmful acknowledgements are delivered all the same.
    World(uint32_t seed, Coverage &cov, uint8_t deliverStale = 0)
        : seed_(seed), rng_(seed), cov_(cov), deliverStale_(deliverStale)
    {
    }
    // Empty when the run ends as it must; else what went wrong, with the last events.
    std::string Go();
    // The application hands over its whole data set for the batch.
    void OnBatchBegin(uint32_t group)
    {
        Log("batch callback, " + std::to_string(app_.size()) + " data");
        for (const auto &[k, d] : app_) {
            Give(group, k, d);
        }
    }

private:
    uint32_t R(uint32_t n) { return rng_() % n; }
    ZAN_VRRP_PROD_S *Prod() { return libtest::Inst(kPid)->pProd; }
    void Log(const std::string &s)
    {
        trace_.push_back("@" + std::to_string(host::Now()) + " " + s);
        if (trace_.size() > 40) {
            trace_.pop_front();
        }
    }
    void Give(uint32_t group, const Key &k, const Data &d)
    {
        const ZAN_VRRP_TLV_S key = libtest::Tlv(ZAN_VRRP_KEY_TLV_TYPE, 8, Bytes(k.begin(), k.end()));
        Bytes value = d;
        value.resize(8);  // the TLV's value area, of which usLen bytes count
        const ZAN_VRRP_TLV_S data = libtest::Tlv(ZAN_VRRP_DATA_TLV_TYPE, uint16_t(d.size()), value);
        if (ZAN_VrrpAdp_SendData(adp_, group, &key, &data) != 0) {
            errors_.push_back("SendData refused a valid datum");
        }
    }
    void Ack(Bytes m)
    {
        m[2] |= 0x80;
        toLib_.push_back(m);
    }
    void AskRestart(uint32_t seq)
    {
        toLib_.push_back({0, 28, 0x01, ZAN_VRRP_MSG_NOTIFY_EVENT, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, uint8_t(seq),
                          0, 0, 0, 1, 0x07, 0xd1, 0, 4, 0, 0, 0, 0});
    }
    void BreakBatch(uint32_t tran, uint32_t seq, const char *what)
    {
        Log(std::string("vrrp: ") + what + " out of sequence, restart asked");
        cov_.gaps++;
        pendTran_ = tran, havePending_ = broken_ = true, committed_ = false;
        AskRestart(seq);
    }
    void Collect();
    void ModelReceive(const Request &r);
    bool Harmful(const Bytes &m);
    void DeliverToModel(bool mayDrop);
    void DeliverToLib(bool mayFault);
    void AppChange();
    void RandomStep();
    bool Settled();
    std::string Verdict();

    uint32_t seed_;
    std::mt19937 rng_;
    Coverage &cov_;
    uint8_t deliverStale_;
    ZAN_VRRP_ADP_S *adp_ = nullptr;
    std::vector<Key> keys_;
    DataSet app_;
    // The model: its copy, the batch it receives, what it found wrong.
    DataSet copy_, pending_;
    uint32_t pendTran_ = 0, lastSeq_ = 0, maxTran_ = 0;
    bool havePending_ = false, broken_ = false, committed_ = false;
    std::vector<std::string> errors_;
    // The two directions, and the parts of the library's latest RNData request.
    std::deque<Request> toModel_;
    std::deque<Bytes> toLib_;
    Parts lastRn_;
    std::deque<std::string> trace_;
};

// Takes what the library sent into the link towards the model, checking every request.
void World::Collect()
{
    for (auto &sent = host::Sent(); !sent.empty(); sent.pop_front()) {
        Request r{sent.front().bytes, {}};
        const std::string err = sent.front().pid != kPid ? "sent to another pid"
                                : r.bytes.size() < 20    ? "shorter than a header"
                                : IsAck(r.bytes)         ? ""
                                                         : CheckRequest(r.bytes, r.parts);
        if (!err.empty()) {
            errors_.push_back("malformed request: " + err);
            continue;
        }
        Log("lib>vrrp " + Describe(r.bytes));
        if (!IsAck(r.bytes) && r.bytes[3] == ZAN_VRRP_MSG_RN_DATA) {
            lastRn_ = r.parts;
            cov_.fullRn += r.bytes.size() + 24 > ZAN_VRRP_PROD_MSG_MAX ? 1 : 0;
        }
        cov_.longBatches += !IsAck(r.bytes) && r.bytes[3] == ZAN_VRRP_MSG_BN_DATA && Be32(r.bytes, 12) > 2 ? 1 : 0;
        toModel_.push_back(std::move(r));
    }
}

void World::ModelReceive(const Request &r)
{
    const Bytes &m = r.bytes;
    const uint32_t type = m[3], tran = Be32(m, 4), seq = Be32(m, 12);
    if (IsAck(m)) {
        if (type != ZAN_VRRP_MSG_NOTIFY_EVENT) {
            errors_.push_back("unexpected acknowledgement " + Describe(m));
        }
        return;
    }
    if (type >= ZAN_VRRP_MSG_BN_BEGIN && type <= ZAN_VRRP_MSG_BN_END) {
        if (tran < maxTran_) {
            errors_.push_back("transaction id went back: " + Describe(m));
        }
        maxTran_ = std::max(maxTran_, tran);
    }
    const bool inBatch = havePending_ && tran == pendTran_;
    switch (type) {
        case ZAN_VRRP_MSG_BN_BEGIN:
            pending_.clear();
            pendTran_ = tran, lastSeq_ = 1;
            havePending_ = true, broken_ = committed_ = false;
            Ack(m);
            break;
        case ZAN_VRRP_MSG_BN_DATA:
            if (inBatch && broken_) {
                break;  // a restart is asked for already
            }
            if (!inBatch || committed_ || seq != lastSeq_ + 1) {
                BreakBatch(tran, seq, "BNData");
                break;
            }
            Apply(pending_, r.parts);
            lastSeq_ = seq;
            break;
        case ZAN_VRRP_MSG_BN_END:
            if (!inBatch || broken_ || seq != lastSeq_ + 1) {
                BreakBatch(tran, seq, "BNEnd");  // asked again each time: a NotifyEvent may be lost
                break;
            }
            if (!committed_) {
                copy_ = pending_;
                committed_ = true;
            }
            Ack(m);
            break;
        case ZAN_VRRP_MSG_RN_DATA:
            Apply(copy_, r.parts);
            Ack(m);
            break;
        default:  // Register, AddProducer
            Ack(m);
            break;
    }
}

// An acknowledgement that the library would accept although it releases data the model lacks.
bool World::Harmful(const Bytes &m)
{
    const ZAN_VRRP_PROD_S *p = Prod();
    if (m[3] == ZAN_VRRP_MSG_RN_DATA && p->State == VRRP_PROD_STATE_RN_DATA &&
        p->stWaitAckList.pNext != &p->stWaitAckList) {
        DataSet after = copy_;
        Apply(after, lastRn_);
        return after != copy_;
    }
    if (m[3] == ZAN_VRRP_MSG_BN_END && p->State == VRRP_PROD_STATE_BN_DATA && p->bBNotifyDataEnd != 0 &&
        Be32(m, 12) == p->seq + 1) {
        return !(committed_ && pendTran_ == p->tran);
    }
    return false;
}

void World::DeliverToModel(bool mayDrop)
{
    Request r = std::move(toModel_.front());
    toModel_.pop_front();
    if (mayDrop && R(10) == 0) {
        Log("lost lib>vrrp " + Describe(r.bytes));
        return;
    }
    ModelReceive(r);
}

void World::DeliverToLib(bool mayFault)
{
    Bytes m = std::move(toLib_.front());
    toLib_.pop_front();
    if (mayFault && R(10) == 0) {
        Log("lost vrrp>lib " + Describe(m));
        return;
    }
    if (mayFault && IsAck(m) && R(12) == 0) {
        Log("duplicated vrrp>lib " + Describe(m));
        toLib_.push_back(m);
    }
    if (IsAck(m) && m[3] != deliverStale_ && Harmful(m)) {
        (m[3] == ZAN_VRRP_MSG_RN_DATA ? cov_.withheldRn : cov_.withheldEnd)++;
        Log("withheld stale vrrp>lib " + Describe(m));
        return;
    }
    Log("vrrp>lib " + Describe(m));
    const ZAN_VRRP_PROD_S *p = Prod();
    const uint32_t tran = p->tran, seq = p->seq, state = p->State;
    EXPECT_TRUE(host::DeliverMsg(kPid, m));
    cov_.restarts += p->tran - tran;
    // The batch ends only on the sequence number of its BNEnd; a NotifyEvent outside a batch is
    // neither taken nor answered.
    if (m[3] == ZAN_VRRP_MSG_BN_END && p->State != state && Be32(m, 12) != seq + 1) {
        errors_.push_back("BNEnd acknowledgement taken with sequence number " + std::to_string(Be32(m, 12)));
    }
    if (m[3] == ZAN_VRRP_MSG_NOTIFY_EVENT && state != VRRP_PROD_STATE_BN_BEGIN && state != VRRP_PROD_STATE_BN_DATA &&
        (p->State != state || p->tran != tran || !host::Sent().empty())) {
        errors_.push_back("NotifyEvent taken in state " + std::to_string(state));
    }
    Collect();
}

// One datum changes, now and then many at once; then the framework flushes.
void World::AppChange()
{
    const uint32_t n = R(10) == 0 ? 1 + R(uint32_t(keys_.size())) : 1;
    for (uint32_t i = 0; i < n; i++) {
        const Key &k = keys_[R(uint32_t(keys_.size()))];
        Data d(R(4) == 0 ? 0 : 8);
        for (uint8_t &b : d) {
            b = uint8_t(rng_());
        }
        app_[k] = d;
        Give(kGroup, k, d);
    }
    Log("app sets " + std::to_string(n) + " data, flush");
    host::RunFlush();
    Collect();
}

void World::RandomStep()
{
    const uint32_t r = R(100);
    if (r < 30) {
        if (!toModel_.empty()) {
            DeliverToModel(true);
        }
    } else if (r < 60) {
        if (!toLib_.empty()) {
            DeliverToLib(true);
        }
    } else if (r < 75) {
        AppChange();
    } else if (r < 78) {
        Log("vrrp asks for a restart");
        AskRestart(R(100));
    } else if (r < 82) {
        const uint32_t skip = R(3), count = 1 + R(4);
        Log("allocations refused: skip " + std::to_string(skip) + ", " + std::to_string(count) + " in a row");
        host::ArmFail(host::FailKind::MsgAlloc, skip, count);
    } else if (r < 87) {
        Log("flow control ends");
        host::DeliverFcm(kPid);
        Collect();
    } else {
        const uint64_t ms = R(3) == 0 ? 5001 + R(1200) : 1 + R(2500);
        Log("+" + std::to_string(ms) + " ms");
        host::Advance(ms);
        Collect();
    }
}

// Settled: nothing in transit, the producer in real-time notification with nothing waiting for
// an acknowledgement and nothing stored.
bool World::Settled()
{
    const ZAN_VRRP_PROD_S *p = Prod();
    return toModel_.empty() && toLib_.empty() && p->State == VRRP_PROD_STATE_RN_DATA &&
           p->stWaitAckList.pNext == &p->stWaitAckList && p->stPartList.pNext == &p->stPartList;
}

std::string World::Go()
{
    host::Reset();
    g_world = this;
    adp_ = ZAN_VrrpAdp_Get(host::Ctx());
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = [](uint32_t, uint32_t) {};
    cb.pfnRecvData = [](const void *, const void *, uint32_t) {};
    cb.pfnItemDown = [](const void *, uint32_t) {};
    cb.pfnProdBatchBegin = [](uint32_t group, uint32_t) { g_world->OnBatchBegin(group); };
    if (adp_ == nullptr || ZAN_VrrpAdp_RegCallBack(adp_, &cb) != 0) {
        return "no adapter";
    }
    // Up to 64 keys; every fourth run up to 300, so that a batch takes several BNData messages
    // and an RNData message fills up. Every third run starts without data.
    const uint32_t nKeys = 1 + R(seed_ % 4 == 0 ? 300 : 64);
    std::set<Key> unique;
    while (unique.size() < nKeys) {
        Key k;
        for (uint8_t &b : k) {
            b = uint8_t(rng_());
        }
        unique.insert(k);
    }
    keys_.assign(unique.begin(), unique.end());
    for (uint32_t i = seed_ % 3 == 0 ? 0 : R(nKeys + 1); i > 0; i--) {
        app_[keys_[R(nKeys)]] = Data(8, uint8_t(i));
    }
    if (libtest::CreateDeploy(kPid, kGroup) != 0) {
        return "no instance";
    }
    Collect();
    for (uint32_t steps = 100 + R(300); steps > 0; steps--) {
        RandomStep();
    }
    // Quiet: no more faults; deliver everything, flush, and let the timers run until it settles.
    host::ClearFail();
    Log("quiet");
    host::DeliverFcm(kPid);
    Collect();
    for (uint32_t round = 0; round < 30 && !Settled(); round++) {
        for (uint32_t n = 0; n < 20000 && (!toModel_.empty() || !toLib_.empty()); n++) {
            toModel_.empty() ? DeliverToLib(false) : DeliverToModel(false);
        }
        host::RunFlush();
        Collect();
        if (!Settled()) {
            Log("+5005 ms");
            host::Advance(5005);
            Collect();
        }
    }
    return Verdict();
}

std::string World::Verdict()
{
    std::string why;
    const ZAN_VRRP_PROD_S *p = Prod();
    if (!Settled()) {
        why += "never settles: state " + std::to_string(p->State) + ", waiting " +
               std::to_string(ZAN_VrrpProd_CountList_(&p->stWaitAckList)) + ", stored " +
               std::to_string(ZAN_VrrpProd_CountList_(&p->stPartList)) + "\n";
    } else if (p->tmr != 0) {
        why += "idle with a timer running\n";
    }
    for (const std::string &e : errors_) {
        why += e + "\n";
    }
    if (copy_ != app_) {
        uint32_t missing = 0, wrong = 0;
        for (const auto &[k, d] : app_) {
            const auto it = copy_.find(k);
            (it == copy_.end() ? missing : wrong) += it == copy_.end() || it->second != d ? 1 : 0;
        }
        why += "model copy differs: " + std::to_string(app_.size()) + " data, " + std::to_string(missing) +
               " missing, " + std::to_string(wrong) + " wrong, " + std::to_string(copy_.size()) + " held\n";
    }
    if (host::Faults() != 0) {
        why += "platform misuse (" + std::to_string(host::Faults()) + "), first: " + host::FaultLog().front() + "\n";
    }
    ZAN_VrrpAdp_DeInit(host::Ctx());
    if (host::BlocksOn(host::Ctx()->ulFwMemHandle) != 0 || host::MsgsOutstanding() != 0) {
        why += "blocks or messages held after DeInit\n";
    }
    g_world = nullptr;
    if (!why.empty()) {
        why += "last events:\n";
        for (const std::string &t : trace_) {
            why += "  " + t + "\n";
        }
    }
    return why;
}

TEST(ProdModel, ModelHoldsTheApplicationDataAfterFaults)
{
    Coverage cov;
    for (uint32_t seed = 1; seed <= kSeeds; seed++) {
        const std::string why = World(seed, cov).Go();
        ASSERT_TRUE(why.empty()) << "seed " << seed << ":\n" << why;
    }
    // The faults reached what they are meant for.
    EXPECT_GT(cov.restarts, 0u);
    EXPECT_GT(cov.gaps, 0u);
    EXPECT_GT(cov.withheldRn, 0u);
    EXPECT_GT(cov.withheldEnd, 0u);
    EXPECT_GT(cov.longBatches, 0u);
    EXPECT_GT(cov.fullRn, 0u);
}

// The acknowledgements withheld above are ones the library, by design, takes for another
// request's (RNData carries no sequence number, BNEnd is matched by sequence number alone):
// delivered, each kind alone makes some run lose data, and nothing else goes wrong.
TEST(ProdModel, StaleAcknowledgementsLoseData)
{
    for (const uint8_t type : {uint8_t(ZAN_VRRP_MSG_RN_DATA), uint8_t(ZAN_VRRP_MSG_BN_END)}) {
        uint32_t seed = 0;
        std::string why;
        while (why.empty() && seed < kSeeds) {
            Coverage cov;
            why = World(++seed, cov, type).Go();
        }
        SCOPED_TRACE(std::string("stale ") + kTypeNames[type] + " acknowledgements delivered, seed " +
                     std::to_string(seed));
        ASSERT_FALSE(why.empty()) << "no run lost data";
        EXPECT_EQ(why.rfind("model copy differs", 0), 0u) << why;
        EXPECT_EQ(why.find('\n'), why.find("\nlast events")) << why;
    }
}

}  // namespace
