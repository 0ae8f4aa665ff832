// zanvrrp-sim: the library on the host platform.
//   zanvrrp-sim run [OPTIONS]                              the live simulation
//   zanvrrp-sim script [--verbose] [--pcap FILE] FILE...   conformance scripts
//   zanvrrp-sim script --sweep [OPTIONS] FILE...           every fallible call of a script failed in turn
//   zanvrrp-sim decode HEX...                              one message, header and body
//   zanvrrp-sim pcap-fields FILE                           a capture's messages, one line each
//   zanvrrp-sim --version                                  the project's version
// `script` prints one line per file (`ok FILE` or `FAIL FILE:LINE: ...`), then
// `N passed, M failed`; exit status 0 only when no file failed.
#include <iostream>
#include <string>
#include <vector>

#include "decode.h"
#include "lexer.h"
#include "pcap.h"
#include "runner.h"
#include "simrun.h"
#include "sweep.h"

namespace {

int Usage(std::ostream &out, int status)
{
    out << "usage: " << sim::kSimUsage
        << "       zanvrrp-sim script [--verbose] [--pcap FILE] FILE...\n"
        << sim::kSweepUsage
        << "       zanvrrp-sim decode HEX...\n"
           "       zanvrrp-sim pcap-fields FILE\n";
    return status;
}

int Script(const std::vector<std::string> &args)
{
    for (const std::string &a : args) {
        if (a == "--sweep") {
            return sim::SweepMain(args, std::cout, std::cerr);
        }
    }
    bool verbose = false;
    std::string pcapPath;
    std::vector<std::string> files;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--verbose" || args[i] == "-v") {
            verbose = true;
        } else if (args[i] == "--pcap" && i + 1 < args.size()) {
            pcapPath = args[++i];
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty()) {
        return Usage(std::cerr, 2);
    }
    sim::PcapWriter pcap;
    std::string err;
    if (!pcapPath.empty() && !pcap.Open(pcapPath, err)) {
        std::cerr << "zanvrrp-sim: " << err << "\n";
        return 2;
    }
    sim::Runner runner(std::cout, verbose);
    if (!pcapPath.empty()) {
        runner.SetPcap(&pcap);
    }
    unsigned passed = 0;
    unsigned failed = 0;
    for (const std::string &file : files) {
        std::string failure;
        if (runner.RunFile(file, failure)) {
            std::cout << "ok " << file << "\n";
            ++passed;
        } else {
            std::cout << "FAIL " << failure << "\n";
            ++failed;
        }
        std::cout.flush();
    }
    std::cout << passed << " passed, " << failed << " failed\n";
    return failed == 0 ? 0 : 1;
}

// One run shows everything and ends with the verdict; several seeds print one line each.
int Run(const std::vector<std::string> &args)
{
    sim::SimOptions opt;
    std::vector<uint64_t> seeds;
    std::string err;
    if (!sim::ParseSimOptions(args, opt, seeds, err)) {
        std::cerr << "zanvrrp-sim run: " << err << "\n" << sim::kSimUsage;
        return 2;
    }
    if (seeds.size() == 1) {
        opt.seed = seeds[0];
        std::cout << "zanvrrp-sim run: seed " << opt.seed << ", " << opt.peers << " VRRP components x " << opt.groups
                  << " interface groups, " << opt.items << " items and " << opt.parts << " data per group, "
                  << opt.duration << " s\n";
        const sim::SimOutcome r = sim::RunSimulation(opt, std::cout);
        if (!opt.pcap.empty()) {
            std::cout << "\nCapture: " << opt.pcap << "\n";
        }
        std::cout << "\nVERDICT: " << r.verdict << "\n";
        return r.ok ? 0 : 1;
    }
    opt.report = false;
    opt.progress = false;
    opt.trace = false;
    opt.pcap.clear();
    unsigned failed = 0;
    uint64_t messages = 0;
    for (uint64_t seed : seeds) {
        opt.seed = seed;
        const sim::SimOutcome r = sim::RunSimulation(opt, std::cout);
        messages += r.messages;
        if (!r.ok) {
            failed++;
            std::cout << "seed " << seed << ": " << r.verdict << "\n";
        }
    }
    std::cout << seeds.size() - failed << " of " << seeds.size() << " seeds converged, " << messages << " messages\n";
    return failed == 0 ? 0 : 1;
}

int DecodeCmd(const std::vector<std::string> &args)
{
    std::string hex;
    for (const std::string &a : args) {
        hex += a + " ";
    }
    try {
        std::cout << sim::DescribeFull(sim::Decode(sim::ParseHexPairs(hex)));
    } catch (const sim::ScriptError &e) {
        std::cerr << "zanvrrp-sim decode: " << e.what() << "\n";
        return 2;
    }
    return 0;
}

int PcapFields(const std::vector<std::string> &args)
{
    if (args.size() != 1) {
        return Usage(std::cerr, 2);
    }
    std::vector<sim::PcapPacket> packets;
    std::string err;
    if (!sim::ReadPcap(args[0], packets, err)) {
        std::cerr << "zanvrrp-sim pcap-fields: " << err << "\n";
        return 1;
    }
    for (const sim::PcapPacket &p : packets) {
        std::cout << sim::Fields(sim::Decode(p.msg), p.sender, p.receiver) << "\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        return Usage(std::cerr, 2);
    }
    const std::string cmd = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (cmd == "--help" || cmd == "-h") {
        return Usage(std::cout, 0);
    }
    if (cmd == "--version") {
        std::cout << "zanvrrp-sim " << ZAN_VRRP_VERSION << "\n";
        return 0;
    }
    if (cmd == "run") {
        return Run(args);
    }
    if (cmd == "script") {
        return Script(args);
    }
    if (cmd == "decode") {
        return DecodeCmd(args);
    }
    if (cmd == "pcap-fields") {
        return PcapFields(args);
    }
    return Usage(std::cerr, 2);
}
