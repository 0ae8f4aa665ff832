// Memory service of the host: handles with per-handle block accounting on real heap blocks,
// the partition table and assertions.
#include <cstdlib>
#include <cstring>

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
    m.blocks.erase(it);
    std::free(block);
}

void KOL_Assert(const char *file, uint32_t line, uint32_t value)
{
    W().mem.asserts.push_back(host::AssertRec{file != nullptr ? file : "", line, value});
}

}  // extern "C"
