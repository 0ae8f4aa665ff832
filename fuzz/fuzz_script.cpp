// libFuzzer target: the script runner's parser on any text. The input is split into commands
// (SplitScript) and every line is checked without running it, as Runner::RunFile does in its
// first pass (lexer, argument parsing, message forms, repeat and on bodies). A ScriptError is
// the expected answer to a broken script; any other exception is a runner fault and aborts, as
// does a crash or a sanitizer report.
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "lexer.h"
#include "runner.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string content(reinterpret_cast<const char *>(data), size);
    // Made once and never destroyed: its destructor resets the host world, which may already be
    // gone when static objects are destroyed at exit.
    static std::ostringstream &out = *new std::ostringstream;
    static sim::Runner &runner = *new sim::Runner(out, false);
    std::vector<sim::ScriptLine> lines;
    std::string failure;
    bool runnerFault = false;
    (void)runner.CheckScript("input", content, lines, failure, &runnerFault);
    if (runnerFault) {
        std::fprintf(stderr, "fuzz_script: %s\n", failure.c_str());
        std::fflush(stderr);
        __builtin_trap();
    }
    out.str(std::string());
    return 0;
}
