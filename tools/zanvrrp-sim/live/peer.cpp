#include "peer.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr uint64_t kRetransmitMs = 1000;   // the peer's own retransmission period
constexpr std::size_t kMsgMax = 4095;
constexpr std::size_t kRecordLen = 28;     // 3002 record, key 3001/8, data 1001/8
constexpr std::size_t kRecordsPerMsg = (kMsgMax - 20) / kRecordLen;

void PutBe16(std::vector<uint8_t> &m, uint32_t v)
{
    m.push_back(static_cast<uint8_t>(v >> 8));
    m.push_back(static_cast<uint8_t>(v));
}

void PutBe32(std::vector<uint8_t> &m, uint32_t v)
{
    PutBe16(m, v >> 16);
    PutBe16(m, v & 0xFFFFu);
}

std::vector<uint8_t> Header(uint8_t type, uint32_t tran, uint32_t seq, uint16_t cnt)
{
    std::vector<uint8_t> m;
    PutBe16(m, 20);
    m.push_back(0x01);
    m.push_back(type);
    PutBe32(m, tran);
    PutBe16(m, 1);
    PutBe16(m, 0);
    PutBe32(m, seq);
    PutBe16(m, 0);
    PutBe16(m, cnt);
    return m;
}

void SetLen(std::vector<uint8_t> &m)
{
    m[0] = static_cast<uint8_t>(m.size() >> 8);
    m[1] = static_cast<uint8_t>(m.size());
}

Key8 ToKey(const std::vector<uint8_t> &v)
{
    Key8 k{};
    std::copy_n(v.begin(), std::min<std::size_t>(v.size(), k.size()), k.begin());
    return k;
}

// A packed part's key and data in the application's own layout: the key's first word and the
// data's last word travel in network order.
Key8 PartKey(const Tlv &key)
{
    Key8 k = ToKey(key.value);
    const uint32_t word = (uint32_t(k[0]) << 24) | (uint32_t(k[1]) << 16) | (uint32_t(k[2]) << 8) | k[3];
    std::memcpy(k.data(), &word, 4);
    return k;
}

std::vector<uint8_t> PartData(const Tlv &data)
{
    std::vector<uint8_t> v = data.value;
    if (v.size() == 8) {
        const uint32_t word = (uint32_t(v[4]) << 24) | (uint32_t(v[5]) << 16) | (uint32_t(v[6]) << 8) | v[7];
        std::memcpy(v.data() + 4, &word, 4);
    }
    return v;
}

}  // namespace

uint64_t Rng::Next()
{
    // splitmix64
    uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

Key8 ItemKey(uint32_t group, uint32_t i, uint32_t items)
{
    Key8 k{};
    const uint32_t ifIndex = static_cast<uint32_t>((uint64_t(group) - 1u) * items + i + 1u);
    std::memcpy(k.data(), &ifIndex, 4);
    k[4] = static_cast<uint8_t>(1u + i % 250u);
    return k;
}

bool ItemNumber(const uint8_t *key, uint32_t groups, uint32_t items, uint64_t &number)
{
    uint32_t ifIndex;
    std::memcpy(&ifIndex, key, 4);
    if (ifIndex == 0 || ifIndex > uint64_t(groups) * items) {
        return false;
    }
    number = ifIndex - 1u;
    return std::memcmp(key, ItemKey(static_cast<uint32_t>(number / items) + 1u,
                                    static_cast<uint32_t>(number % items), items).data(), 8) == 0;
}

Peer::Peer(uint32_t pid, std::vector<uint32_t> groups, uint32_t items, SendFn send, uint64_t seed)
    : pid_(pid), groups_(std::move(groups)), send_(std::move(send)), rng_(seed)
{
    for (uint32_t g : groups_) {
        for (uint32_t i = 0; i < items; i++) {
            Key8 v{};
            v[0] = static_cast<uint8_t>(1 + rng_.Below(3));    // state
            v[1] = static_cast<uint8_t>(1 + rng_.Below(254));  // priority
            table_[ItemKey(g, i, items)] = v;
        }
    }
    keys_.reserve(table_.size());
    for (const auto &entry : table_) {
        keys_.push_back(entry.first);
    }
}

void Peer::Restart()
{
    subs_.clear();
    dirty_.clear();
    batch_ = Batch::Idle;
    batchKeys_.clear();
    nextKeys_.clear();
    ruKeys_.clear();
    pendingOpen_ = false;
    pending_.clear();
    copy_.clear();
    doneTran_ = doneEnd_ = 0;
    lastReq_.clear();
}

bool Peer::Quiet() const
{
    return batch_ == Batch::Idle && ruKeys_.empty() && dirty_.empty() && nextKeys_.empty();
}

std::optional<uint64_t> Peer::NextDue() const
{
    std::optional<uint64_t> due;
    if (!alive_) {
        return due;
    }
    if (batch_ != Batch::Idle) {
        due = batchDue_;
    }
    if (!ruKeys_.empty() && (!due || ruDue_ < *due)) {
        due = ruDue_;
    }
    return due;
}

void Peer::Ack(const std::vector<uint8_t> &req)
{
    std::vector<uint8_t> ack = req;
    ack[2] |= 0x80u;
    send_(ack);
}

void Peer::Receive(const std::vector<uint8_t> &msg, uint64_t now)
{
    if (!alive_) {
        return;
    }
    const Decoded d = Decode(msg);
    if (d.malformed) {
        return;
    }
    if (!d.ack) {
        // A request that arrives twice at the same moment was doubled on the way; a repetition
        // by the library comes on its timer, later, and is answered again.
        if (msg == lastReq_ && now == lastReqAt_) {
            stats_.duplicatesIgnored++;
            return;
        }
        lastReq_ = msg;
        lastReqAt_ = now;
    }
    if (d.type >= 1 && d.type <= 6) {
        OnProducerMsg(d, msg, now);
    } else {
        OnConsumerMsg(d, msg, now);
    }
}

void Peer::OnConsumerMsg(const Decoded &d, const std::vector<uint8_t> &msg, uint64_t now)
{
    if (d.ack) {
        switch (d.type) {
        case 11:
            if (batch_ == Batch::BeginSent && d.seq == batchSeq_) {
                SendBatchData(now);
            }
            break;
        case 13:
            if (batch_ == Batch::EndSent && d.seq == batchEndSeq_) {
                BatchDone(now);
            }
            break;
        case 14:
            if (batch_ == Batch::OneSent && d.seq == batchSeq_) {
                BatchDone(now);
            }
            break;
        case 15:
            if (!ruKeys_.empty() && d.seq == ruSeq_) {
                ruKeys_.clear();
                SendRealTime(now);
            }
            break;
        default:
            break;  // acknowledgements of NotifyEvent need nothing
        }
        return;
    }
    switch (d.type) {
    case 7:  // a consumer that registers has no subscriptions (yet)
        Ack(msg);
        subs_.clear();
        dirty_.clear();
        batch_ = Batch::Idle;
        batchKeys_.clear();
        nextKeys_.clear();
        ruKeys_.clear();
        break;
    case 9:
        // Whoever subscribes wants the states of the items it names, also of those it had
        // before (it may have withdrawn them meanwhile by a request that got lost): a batch
        // carries them, the running one's successor if a batch is under way.
        Ack(msg);
        for (const BodyElem &e : d.elems) {
            subs_.insert(ToKey(e.key.value));
            nextKeys_.insert(ToKey(e.key.value));
        }
        if (batch_ == Batch::Idle) {
            StartBatch(now, false);
        }
        break;
    case 10:
        Ack(msg);
        for (const BodyElem &e : d.elems) {
            subs_.erase(ToKey(e.key.value));
            dirty_.erase(ToKey(e.key.value));
            nextKeys_.erase(ToKey(e.key.value));
        }
        break;
    case 16:  // the batch broke on the consumer's side: it starts again, with every item
        Ack(msg);
        stats_.notifyReceived++;
        StartBatch(now, true);
        break;
    default:
        break;
    }
}

void Peer::BatchDone(uint64_t now)
{
    batch_ = Batch::Idle;
    stats_.batchesDone++;
    stats_.batchLastDone = stats_.batches;
    stats_.batchDoneAt = now;
    StartBatch(now, false);  // the items subscribed meanwhile
}

void Peer::OnProducerMsg(const Decoded &d, const std::vector<uint8_t> &msg, uint64_t now)
{
    if (d.ack) {
        return;  // the producer's acknowledgement of a NotifyEvent: nothing to do
    }
    switch (d.type) {
    case 1:  // a producer that registers sends its whole data set next
        Ack(msg);
        pendingOpen_ = false;
        break;
    case 3:
        // A new batch: a BNEnd from now on ends this one (the transaction id may repeat one of
        // a batch before a restart).
        doneTran_ = doneEnd_ = 0;
        pendingTran_ = d.tran;
        pendingOpen_ = true;
        pending_.clear();
        nextData_ = 2;
        stats_.prodBatches++;
        Ack(msg);
        break;
    case 4:
        if (!pendingOpen_ || d.tran != pendingTran_ || d.seq > nextData_) {
            // A BNData went missing, or a batch it never saw begin: asked once per transaction
            // here; a repeated BNEnd asks again.
            if (d.tran != askedTran_) {
                askedTran_ = d.tran;
                AskBatchAgain();
            }
        } else if (d.seq == nextData_) {
            for (const BodyElem &e : d.elems) {
                pending_[PartKey(e.key)] = PartData(e.second);
            }
            nextData_++;
        }
        stats_.prodBatchMsgs = std::max(stats_.prodBatchMsgs, d.seq - 1u);
        break;
    case 5:
        if (d.seq >= 2u) {
            stats_.prodBatchMsgs = std::max(stats_.prodBatchMsgs, d.seq - 2u);
        }
        if (pendingOpen_ && d.tran == pendingTran_ && d.seq == nextData_) {
            copy_ = std::move(pending_);
            pending_.clear();
            pendingOpen_ = false;
            doneTran_ = d.tran;
            doneEnd_ = d.seq;
            stats_.prodBatchesDone++;
            stats_.prodLastDone = stats_.prodBatches;
            stats_.prodDoneAt = now;
            Ack(msg);
        } else if (d.tran == doneTran_ && d.seq == doneEnd_) {
            Ack(msg);  // its acknowledgement was lost
        } else {
            AskBatchAgain();  // the last BNData went missing
        }
        break;
    case 6:
        if (!sabotage_) {  // sabotaged: acknowledged, never applied; the verdict must notice
            for (const BodyElem &e : d.elems) {
                copy_[PartKey(e.key)] = PartData(e.second);
            }
        }
        Ack(msg);
        break;
    default:
        break;
    }
}

void Peer::AskBatchAgain()
{
    pendingOpen_ = false;
    stats_.notifySent++;
    std::vector<uint8_t> m = Header(16, 0, 0, 1);
    PutBe16(m, 2001);
    PutBe16(m, 4);
    PutBe16(m, 3001);
    PutBe16(m, 0);
    SetLen(m);
    send_(m);
}

void Peer::SendHeader(uint8_t type, uint32_t tran, uint32_t seq)
{
    send_(Header(type, tran, seq, 0));
}

void Peer::SendRecords(uint8_t type, uint32_t seq, const std::vector<Key8> &keys)
{
    std::vector<uint8_t> m = Header(type, 0, seq, static_cast<uint16_t>(keys.size()));
    for (const Key8 &k : keys) {
        // The three record types differ only in the bytes before the key, which are not read.
        const uint16_t recType = static_cast<uint16_t>(3002u + (k[0] + k[1]) % 3u);
        const uint16_t skip = static_cast<uint16_t>((recType - 3002u) * 4u);
        PutBe16(m, recType);
        PutBe16(m, skip + 24u);
        m.insert(m.end(), skip, 0xEE);
        PutBe16(m, 3001);
        PutBe16(m, 8);
        m.insert(m.end(), k.begin(), k.end());
        const Key8 &v = table_.at(k);
        PutBe16(m, 1001);
        PutBe16(m, 8);
        m.insert(m.end(), v.begin(), v.end());
    }
    SetLen(m);
    send_(m);
}

// A batch of every subscribed item, or of those named since the last batch began.
void Peer::StartBatch(uint64_t now, bool all)
{
    batchKeys_.clear();
    if (all) {
        batchKeys_.assign(subs_.begin(), subs_.end());
    } else {
        for (const Key8 &k : nextKeys_) {
            if (subs_.count(k) != 0) {
                batchKeys_.push_back(k);
            }
        }
    }
    nextKeys_.clear();
    for (const Key8 &k : batchKeys_) {
        dirty_.erase(k);  // the batch carries the item's state as it is when it goes out
    }
    if (batchKeys_.empty()) {
        batch_ = Batch::Idle;
        return;
    }
    stats_.batches++;
    // The batches' sequence numbers stay apart however many BUData a batch takes.
    const uint32_t msgs = static_cast<uint32_t>((batchKeys_.size() + kRecordsPerMsg - 1) / kRecordsPerMsg);
    batchSeq_ += 1000u * (1u + msgs / 998u);
    batchDue_ = now + kRetransmitMs;
    if (batchKeys_.size() <= kRecordsPerMsg / 2) {
        batch_ = Batch::OneSent;
        SendRecords(14, batchSeq_, batchKeys_);
        return;
    }
    batch_ = Batch::BeginSent;
    SendHeader(11, 0, batchSeq_);
}

// The batch's items still subscribed.
std::vector<Key8> Peer::BatchItems() const
{
    std::vector<Key8> keys;
    keys.reserve(batchKeys_.size());
    for (const Key8 &k : batchKeys_) {
        if (subs_.count(k) != 0) {
            keys.push_back(k);
        }
    }
    return keys;
}

void Peer::SendBatchData(uint64_t now)
{
    const std::vector<Key8> keys = BatchItems();
    uint32_t seq = batchSeq_;
    for (std::size_t i = 0; i < keys.size(); i += kRecordsPerMsg) {
        const std::size_t n = std::min(kRecordsPerMsg, keys.size() - i);
        SendRecords(12, ++seq, std::vector<Key8>(keys.begin() + static_cast<std::ptrdiff_t>(i),
                                                 keys.begin() + static_cast<std::ptrdiff_t>(i + n)));
    }
    batchEndSeq_ = seq + 1u;
    stats_.batchMsgs = std::max(stats_.batchMsgs, seq - batchSeq_);
    batch_ = Batch::EndSent;
    batchDue_ = now + kRetransmitMs;
    SendHeader(13, 0, batchEndSeq_);
}

void Peer::SendRealTime(uint64_t now)
{
    if (!ruKeys_.empty() || dirty_.empty() || batch_ == Batch::BeginSent) {
        return;
    }
    while (!dirty_.empty() && ruKeys_.size() < kRecordsPerMsg) {
        ruKeys_.push_back(*dirty_.begin());
        dirty_.erase(dirty_.begin());
    }
    ruDue_ = now + kRetransmitMs;
    SendRecords(15, ++ruSeq_, ruKeys_);
}

void Peer::Tick(uint64_t now)
{
    if (!alive_) {
        return;
    }
    if (batch_ != Batch::Idle && batchDue_ <= now) {
        stats_.retransmissions++;
        batchDue_ = now + kRetransmitMs;
        if (batch_ == Batch::BeginSent) {
            SendHeader(11, 0, batchSeq_);
        } else if (batch_ == Batch::EndSent) {
            SendHeader(13, 0, batchEndSeq_);
        } else {
            SendRecords(14, batchSeq_, BatchItems());
        }
    }
    if (!ruKeys_.empty() && ruDue_ <= now) {
        // Again, with the states as they are now.
        stats_.retransmissions++;
        ruDue_ = now + kRetransmitMs;
        std::vector<Key8> keys;
        for (const Key8 &k : ruKeys_) {
            if (subs_.count(k) != 0) {
                keys.push_back(k);
            }
        }
        ruKeys_ = keys;
        if (ruKeys_.empty()) {
            SendRealTime(now);
        } else {
            SendRecords(15, ruSeq_, ruKeys_);
        }
    }
    SendRealTime(now);
}

void Peer::ChangeRandomItem(uint64_t now)
{
    if (keys_.empty()) {
        return;
    }
    auto it = table_.find(keys_[rng_.Below(static_cast<uint32_t>(keys_.size()))]);
    Key8 &v = it->second;
    v[0] = static_cast<uint8_t>(1 + rng_.Below(3));
    v[1] = static_cast<uint8_t>(1 + rng_.Below(254));
    const uint32_t version = ((uint32_t(v[4]) << 24) | (uint32_t(v[5]) << 16) | (uint32_t(v[6]) << 8) | v[7]) + 1u;
    v[4] = static_cast<uint8_t>(version >> 24);
    v[5] = static_cast<uint8_t>(version >> 16);
    v[6] = static_cast<uint8_t>(version >> 8);
    v[7] = static_cast<uint8_t>(version);
    if (alive_ && subs_.count(it->first) != 0) {
        dirty_.insert(it->first);
        SendRealTime(now);
    }
}

}  // namespace sim
