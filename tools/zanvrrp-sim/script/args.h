// Argument access for one command: `name=value` words and bare words, each to be used
// exactly once; Done() rejects anything the command did not take. A name may be given only
// once, except the repeatable ones (`rec`), which are read with All().
#ifndef ZANVRRP_SIM_ARGS_H
#define ZANVRRP_SIM_ARGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lexer.h"

namespace sim {

class Args {
public:
    // The words from index `first` on are the arguments.
    Args(const std::vector<Word> &words, std::size_t first);

    // A bare (unquoted, no '=') word; consumed when present.
    bool Flag(const std::string &name);
    // The value of name=...; consumed when present.
    std::optional<std::string> Text(const std::string &name);
    std::optional<uint32_t> Num(const std::string &name);
    uint32_t NumOr(const std::string &name, uint32_t def);
    uint32_t NumReq(const std::string &name);
    // A number that must fit `bits` bits.
    std::optional<uint32_t> NumBits(const std::string &name, unsigned bits);
    std::optional<std::vector<uint8_t>> Hex(const std::string &name);
    // The values of every unused name=... in order (a repeatable name); all are consumed.
    std::vector<std::string> All(const std::string &name);
    // The next unused word that has no '=' (quoted words too), in order.
    std::optional<Word> NextPositional();
    // Every unused name=value pair, in order; all are consumed.
    std::vector<std::pair<std::string, std::string>> TakeAllPairs();
    bool Empty() const;
    // Throws for an argument nobody took.
    void Done() const;

private:
    struct Item {
        Word word;
        bool used = false;
    };
    Item *FindNamed(const std::string &name);
    std::vector<Item> items_;
};

}  // namespace sim

#endif
