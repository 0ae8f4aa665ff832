// zanvrrp-sim: runs conformance scripts against the library on the host platform.
//   zanvrrp-sim script [--verbose] FILE...
// One line per file (`ok FILE` or `FAIL FILE:LINE: ...`), then `N passed, M failed`;
// exit status 0 only when no file failed.
#include <iostream>
#include <string>
#include <vector>

#include "runner.h"

namespace {

int Usage()
{
    std::cerr << "usage: zanvrrp-sim script [--verbose] FILE...\n";
    return 2;
}

}  // namespace

int main(int argc, char **argv)
{
    bool verbose = false;
    bool sawScript = false;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--verbose" || arg == "-v") {
            verbose = true;
        } else if (arg == "--help" || arg == "-h") {
            Usage();
            return 0;
        } else if (!sawScript) {
            if (arg != "script") {
                return Usage();
            }
            sawScript = true;
        } else {
            files.push_back(arg);
        }
    }
    if (!sawScript || files.empty()) {
        return Usage();
    }

    sim::Runner runner(std::cout, verbose);
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
