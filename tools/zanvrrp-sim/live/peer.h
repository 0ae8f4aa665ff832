// A model of a VRRP component's side of the protocol, for the simulation: towards the library's
// consumer it acknowledges registration and subscriptions, owns a table of item states and sends
// the subscribed items' states (a batch of the items that Subscribe requests name, one batch at
// a time, then real-time updates), repeating what is not acknowledged and starting a batch of
// every subscribed item on a NotifyEvent; towards the library's producer it
// acknowledges AddProducer, BNBegin and BNEnd, checks the BNData sequence and asks for the batch
// again (NotifyEvent) on a gap, acknowledges RNData and keeps its copy of the application's data.
#ifndef ZANVRRP_SIM_PEER_H
#define ZANVRRP_SIM_PEER_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "decode.h"

namespace sim {

using Key8 = std::array<uint8_t, 8>;

// Small deterministic generator (the same sequence on every host).
class Rng {
public:
    explicit Rng(uint64_t seed) : s_(seed * 0x9E3779B97F4A7C15ull + 1u) {}
    uint64_t Next();
    uint32_t Below(uint32_t n) { return n == 0 ? 0u : static_cast<uint32_t>(Next() % n); }
    bool Chance(double p) { return p > 0.0 && static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0) < p; }

private:
    uint64_t s_;
};

// The key of item i of interface group g (1-based), as the application subscribes it: IfIndex
// (host order), VrrpId, three zero bytes. IfIndex numbers the items of all groups from 1, each
// group holding `items`: a key tells its group and number back (ItemNumber).
Key8 ItemKey(uint32_t group, uint32_t i, uint32_t items);
// The item's number over all groups ((group - 1) x items + i), or false for a key of no item of
// `groups` groups of `items` each.
bool ItemNumber(const uint8_t *key, uint32_t groups, uint32_t items, uint64_t &number);

struct PeerStats {
    uint32_t retransmissions = 0;   // requests sent again on the peer's timer
    uint32_t notifySent = 0;        // NotifyEvent requests sent to the producer
    uint32_t notifyReceived = 0;    // NotifyEvent requests from the consumer
    uint32_t batches = 0;           // consumer batches started
    uint32_t batchesDone = 0;       // consumer batches acknowledged to their end
    uint32_t batchLastDone = 0;     // the number (1, 2, ...) of the last consumer batch completed
    uint32_t batchMsgs = 0;         // BUData messages of the largest consumer batch
    uint64_t batchDoneAt = 0;
    uint32_t prodBatches = 0;       // producer batches begun (BNBegin)
    uint32_t prodBatchesDone = 0;   // producer batches taken over (BNEnd in sequence)
    uint32_t prodLastDone = 0;      // the number of the last producer batch taken over
    uint32_t prodBatchMsgs = 0;     // BNData messages of the largest producer batch seen
    uint64_t prodDoneAt = 0;
    uint32_t duplicatesIgnored = 0; // network duplicates of a request
};

class Peer {
public:
    using SendFn = std::function<void(const std::vector<uint8_t> &)>;

    // pid: the VRRP component; groups: the interface groups it serves; items: items per group.
    Peer(uint32_t pid, std::vector<uint32_t> groups, uint32_t items, SendFn send, uint64_t seed);

    // A batch begun and not completed since (the consumer's of item states, the producer's of
    // the application's data).
    bool BatchOpen() const { return batch_ != Batch::Idle && stats_.batchLastDone != stats_.batches; }
    bool ProdBatchOpen() const { return stats_.prodBatches != 0 && stats_.prodLastDone != stats_.prodBatches; }

    uint32_t Pid() const { return pid_; }
    void Receive(const std::vector<uint8_t> &msg, uint64_t now);
    void Tick(uint64_t now);                 // retransmissions and real-time updates due by now
    std::optional<uint64_t> NextDue() const; // when Tick has something to do
    void ChangeRandomItem(uint64_t now);     // an item of the table changes its state
    void Restart();                          // the component went down: everything it knew is gone
    void SetAlive(bool alive) { alive_ = alive; }
    // Self-test of the verdict: RNData is acknowledged but never applied.
    void SetSabotage(bool on) { sabotage_ = on; }
    bool Alive() const { return alive_; }

    // What the verdict compares.
    const std::map<Key8, Key8> &Table() const { return table_; }
    const std::set<Key8> &Subscriptions() const { return subs_; }
    const std::map<Key8, std::vector<uint8_t>> &Copy() const { return copy_; }
    bool Quiet() const;                      // nothing outstanding, nothing to send
    const PeerStats &Stats() const { return stats_; }

private:
    enum class Batch { Idle, BeginSent, EndSent, OneSent };

    void Ack(const std::vector<uint8_t> &req);
    void OnConsumerMsg(const Decoded &d, const std::vector<uint8_t> &msg, uint64_t now);
    void OnProducerMsg(const Decoded &d, const std::vector<uint8_t> &msg, uint64_t now);
    void StartBatch(uint64_t now, bool all);
    std::vector<Key8> BatchItems() const;
    void BatchDone(uint64_t now);
    void SendBatchData(uint64_t now);
    void SendRecords(uint8_t type, uint32_t seq, const std::vector<Key8> &keys);
    void SendHeader(uint8_t type, uint32_t tran, uint32_t seq);
    void SendRealTime(uint64_t now);
    void AskBatchAgain();

    uint32_t pid_;
    std::vector<uint32_t> groups_;
    SendFn send_;
    Rng rng_;
    bool alive_ = true;
    bool sabotage_ = false;
    PeerStats stats_;

    // Towards the consumer.
    std::map<Key8, Key8> table_;   // item key -> state (8 bytes)
    std::vector<Key8> keys_;       // the table's keys, to pick one at random
    std::set<Key8> subs_;
    std::set<Key8> dirty_;         // subscribed items changed since they were last sent
    std::vector<Key8> batchKeys_;  // the items of the running batch
    std::set<Key8> nextKeys_;      // items named by Subscribe requests since it began
    Batch batch_ = Batch::Idle;
    uint32_t batchSeq_ = 0;        // sequence number of the running batch's BUBegin
    uint32_t batchEndSeq_ = 0;
    uint64_t batchDue_ = 0;
    uint32_t ruSeq_ = 0;
    std::vector<Key8> ruKeys_;     // the outstanding real-time update
    uint64_t ruDue_ = 0;

    // Towards the producer.
    uint32_t pendingTran_ = 0;
    bool pendingOpen_ = false;
    uint32_t nextData_ = 0;        // the sequence number the next BNData must carry
    std::map<Key8, std::vector<uint8_t>> pending_;
    std::map<Key8, std::vector<uint8_t>> copy_;
    uint32_t doneTran_ = 0, doneEnd_ = 0;  // the last batch taken over, for a repeated BNEnd
    uint32_t askedTran_ = 0;               // the transaction a NotifyEvent was sent for

    // The last request received, to tell a network duplicate from a retransmission.
    std::vector<uint8_t> lastReq_;
    uint64_t lastReqAt_ = 0;
};

}  // namespace sim

#endif
