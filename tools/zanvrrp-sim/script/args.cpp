#include "args.h"

namespace sim {

namespace {

// Names a command may take more than once.
bool Repeatable(const std::string &name)
{
    return name == "rec";
}

}  // namespace

Args::Args(const std::vector<Word> &words, std::size_t first)
{
    items_.reserve(words.size() > first ? words.size() - first : 0);
    for (std::size_t i = first; i < words.size(); ++i) {
        const Word &w = words[i];
        if (w.HasEq()) {
            if (w.eq == 0) {
                throw ScriptError("argument '" + w.text + "' has no name");
            }
            for (const Item &it : items_) {
                if (it.word.HasEq() && it.word.NameView() == w.NameView() && !Repeatable(w.Name())) {
                    throw ScriptError("argument '" + w.Name() + "=' given twice");
                }
            }
        }
        items_.push_back(Item{w, false});
    }
}

Args::Item *Args::FindNamed(const std::string &name)
{
    for (Item &it : items_) {
        if (!it.used && it.word.HasEq() && it.word.NameView() == name) {
            return &it;
        }
    }
    return nullptr;
}

bool Args::Flag(const std::string &name)
{
    for (Item &it : items_) {
        if (!it.used && !it.word.HasEq() && !it.word.quoted && it.word.text == name) {
            it.used = true;
            return true;
        }
    }
    return false;
}

std::optional<std::string> Args::Text(const std::string &name)
{
    Item *it = FindNamed(name);
    if (it == nullptr) {
        return std::nullopt;
    }
    it->used = true;
    return it->word.Value();
}

std::optional<uint32_t> Args::Num(const std::string &name)
{
    std::optional<std::string> t = Text(name);
    if (!t) {
        return std::nullopt;
    }
    try {
        return ParseU32(*t);
    } catch (const ScriptError &e) {
        throw ScriptError(name + "=: " + e.what());
    }
}

uint32_t Args::NumOr(const std::string &name, uint32_t def)
{
    std::optional<uint32_t> v = Num(name);
    return v ? *v : def;
}

uint32_t Args::NumReq(const std::string &name)
{
    std::optional<uint32_t> v = Num(name);
    if (!v) {
        throw ScriptError("missing argument " + name + "=N");
    }
    return *v;
}

std::optional<uint32_t> Args::NumBits(const std::string &name, unsigned bits)
{
    std::optional<uint32_t> v = Num(name);
    if (v && bits < 32 && *v >= (1u << bits)) {
        throw ScriptError(name + "=" + std::to_string(*v) + " does not fit " + std::to_string(bits) + " bits");
    }
    return v;
}

std::optional<std::vector<uint8_t>> Args::Hex(const std::string &name)
{
    std::optional<std::string> t = Text(name);
    if (!t) {
        return std::nullopt;
    }
    try {
        return ParseHex(*t);
    } catch (const ScriptError &e) {
        throw ScriptError(name + "=: " + e.what());
    }
}

std::vector<std::string> Args::All(const std::string &name)
{
    std::vector<std::string> out;
    for (Item *it = FindNamed(name); it != nullptr; it = FindNamed(name)) {
        it->used = true;
        out.push_back(it->word.Value());
    }
    return out;
}

std::optional<Word> Args::NextPositional()
{
    for (Item &it : items_) {
        if (!it.used && !it.word.HasEq()) {
            it.used = true;
            return it.word;
        }
    }
    return std::nullopt;
}

std::vector<std::pair<std::string, std::string>> Args::TakeAllPairs()
{
    std::vector<std::pair<std::string, std::string>> out;
    for (Item &it : items_) {
        if (!it.used && it.word.HasEq()) {
            it.used = true;
            out.emplace_back(it.word.Name(), it.word.Value());
        }
    }
    return out;
}

bool Args::Empty() const
{
    for (const Item &it : items_) {
        if (!it.used) {
            return false;
        }
    }
    return true;
}

void Args::Done() const
{
    for (const Item &it : items_) {
        if (!it.used) {
            throw ScriptError("unexpected argument '" + it.word.text + "'");
        }
    }
}

}  // namespace sim
