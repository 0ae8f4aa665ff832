// `zanvrrp-sim run`: the library on the host platform with a sample application and one or more
// VRRP component peers on the virtual clock, messages delivered in order per pair of components
// after a latency, with losses, duplicates, flow control, component restarts and work-state
// changes injected; at the end, after a quiet period, the verdict: the application's item states
// equal the peers' tables and every peer's copy equals the application's data set.
#ifndef ZANVRRP_SIM_SIMRUN_H
#define ZANVRRP_SIM_SIMRUN_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace sim {

struct SimOptions {
    uint32_t peers = 2;
    uint32_t groups = 2;        // interface groups per peer
    uint32_t items = 20;        // VRRP items per group, all subscribed by the application
    uint32_t parts = 40;        // data of the application per group
    // Limits: peers x groups x items and peers x groups x parts below 2^32 (the first word of
    // the keys numbers them); peers below 2^28 (a pid each, 0x10 apart).
    double duration = 600;      // seconds of virtual time before the quiet period
    uint64_t seed = 1;
    double lossUp = 0;          // library to peers
    double lossDown = 0;        // peers to library
    double dup = 0;             // a request delivered twice
    bool keepLoss = false;      // the losses go on through the quiet period
    bool fc = false;            // flow-control episodes
    bool flaps = false;         // VRRP component down/up episodes
    bool work = false;          // work-state off/on episodes
    bool trace = false;         // one line per message
    bool report = true;         // summary and diagnostics
    bool progress = true;       // a progress line on long runs
    uint32_t latencyMs = 5;
    bool sabotage = false;      // self-test: the first peer acknowledges RNData without applying it
    std::string pcap;
};

// Parses the options of `run` (without the word run); false with `err`.
bool ParseSimOptions(const std::vector<std::string> &args, SimOptions &opt, std::vector<uint64_t> &seeds,
                     std::string &err);
extern const char *const kSimUsage;

struct SimOutcome {
    bool ok = false;
    std::string verdict;        // "converged: ..." or the first difference
    uint64_t messages = 0;
};

SimOutcome RunSimulation(const SimOptions &opt, std::ostream &out);

}  // namespace sim

#endif
