// Memory service of the host: handles with per-handle block accounting on real heap blocks,
// the partition table and assertions.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "host_state.h"

extern "C" {

uint8_t g_aucKolMemPt[] = {0x3u, 0x4u, 0x5u, 0x6u};

}  // extern "C"

namespace host {

namespace {

std::string Where(const char *file, uint32_t line)
{
    return std::string(file != nullptr ? file : "(null)") + ":" + std::to_string(line);
}

}  // namespace

void ResetMem()
{
    MemState &m = W().mem;
    for (auto &entry : m.blocks) {
        std::free(entry.first);
    }
    m = MemState{};
}

uint64_t BytesOn(uint32_t memHandle)
{
    const MemState &m = W().mem;
    auto it = m.handles.find(memHandle);
    uint64_t bytes = 0;
    if (it != m.handles.end()) {
        for (void *block : it->second.blocks) {
            bytes += m.blocks.at(block).size;
        }
    }
    return bytes;
}

uint32_t BlocksOn(uint32_t memHandle)
{
    const MemState &m = W().mem;
    auto it = m.handles.find(memHandle);
    return it == m.handles.end() ? 0u : static_cast<uint32_t>(it->second.blocks.size());
}

std::vector<uint32_t> MemHandles()
{
    std::vector<uint32_t> handles;
    for (const auto &entry : W().mem.handles) {
        handles.push_back(entry.first);
    }
    return handles;
}

std::vector<HeldBlock> HeldBlocks(uint32_t memHandle)
{
    const MemState &m = W().mem;
    std::vector<HeldBlock> held;
    auto it = m.handles.find(memHandle);
    if (it != m.handles.end()) {
        for (void *block : it->second.blocks) {
            const MemBlock &b = m.blocks.at(block);
            held.push_back(HeldBlock{b.file, b.line, b.size});
        }
    }
    std::sort(held.begin(), held.end(), [](const HeldBlock &a, const HeldBlock &b) {
        return std::tie(a.file, a.line, a.size) < std::tie(b.file, b.line, b.size);
    });
    return held;
}

const std::vector<HeldBlock> &FreedByFinalize()
{
    return W().mem.freedByFinalize;
}

uint32_t LastCreatedHandle()
{
    return W().mem.lastCreated;
}

const std::vector<AssertRec> &Asserts()
{
    return W().mem.asserts;
}

}  // namespace host

using host::W;

extern "C" {

uint32_t KOL_HandleInitialize(uint32_t cid, uint32_t id, uint32_t *pulHandle)
{
    if (pulHandle == nullptr) {
        host::Fault("KOL_HandleInitialize without a result pointer");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::MemInit)) {
        return 1;
    }
    host::MemState &m = W().mem;
    const uint32_t handle = m.nextHandle++;
    m.handles[handle] = host::MemHandleInfo{cid, id, {}};
    m.lastCreated = handle;
    *pulHandle = handle;
    return 0;
}

void KOL_HandleFinalize(uint32_t handle)
{
    host::MemState &m = W().mem;
    auto it = m.handles.find(handle);
    if (it == m.handles.end()) {
        host::Fault("KOL_HandleFinalize of unknown handle " + std::to_string(handle));
        return;
    }
    for (void *block : it->second.blocks) {
        const host::MemBlock &b = m.blocks.at(block);
        host::HeldBlock held{b.file, b.line, b.size, false};
        std::set<const void *> &insts = W().frame.addedInsts;
        const auto *begin = static_cast<const uint8_t *>(block);
        auto inst = insts.lower_bound(block);
        if (inst != insts.end() && static_cast<const uint8_t *>(*inst) < begin + b.size) {
            held.instance = true;
            insts.erase(inst);
        }
        m.freedByFinalize.push_back(held);
        m.blocks.erase(block);
        std::free(block);
    }
    m.handles.erase(it);
}

void *KOL_Malloc_F(uint32_t handle, uint8_t partition, uint32_t size, const char *file, uint32_t line)
{
    host::MemState &m = W().mem;
    auto it = m.handles.find(handle);
    if (it == m.handles.end()) {
        host::Fault("KOL_Malloc_F on unknown handle " + std::to_string(handle) + " at " + host::Where(file, line));
        return nullptr;
    }
    if (partition != g_aucKolMemPt[0]) {
        host::Fault("KOL_Malloc_F with partition " + std::to_string(partition) + " at " + host::Where(file, line));
    }
    if (host::ShouldFail(host::FailKind::Malloc, handle)) {
        return nullptr;
    }
    void *block = std::malloc(size == 0u ? 1u : size);
    if (block == nullptr) {
        return nullptr;
    }
    std::memset(block, host::kFillByte, size);
    m.blocks[block] = host::MemBlock{handle, size, file != nullptr ? file : "", line};
    it->second.blocks.insert(block);
    return block;
}

void KOL_Free_F(void *block, const char *file, uint32_t line)
{
    host::MemState &m = W().mem;
    auto it = m.blocks.find(block);
    if (it == m.blocks.end()) {
        host::Fault("KOL_Free_F of unknown block at " + host::Where(file, line));
        return;
    }
    auto h = m.handles.find(it->second.handle);
    if (h != m.handles.end()) {
        h->second.blocks.erase(block);
    }
    // An instance freed with its block is no instance any more.
    std::set<const void *> &insts = W().frame.addedInsts;
    const auto *begin = static_cast<const uint8_t *>(block);
    insts.erase(insts.lower_bound(block), insts.lower_bound(begin + it->second.size));
    m.blocks.erase(it);
    std::free(block);
}

void KOL_Assert(const char *file, uint32_t line, uint32_t value)
{
    W().mem.asserts.push_back(host::AssertRec{file != nullptr ? file : "", line, value});
}

}  // extern "C"
