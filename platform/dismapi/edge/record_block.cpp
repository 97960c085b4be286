// record_block.cpp - records as the API hands them out.
#include "record_block.h"

#include "wine_path.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <set>

namespace kestro::servicing {
namespace {

// What was handed out and not given back; only touched inside Serve.
std::set<void*> g_blocks;

} // namespace

void* HandOut(const std::vector<char>& content,
              const std::vector<std::pair<std::size_t, std::size_t>>& links)
{
    // Callers compare the array with null, so even an empty one has an address.
    void* const memory = HeapAlloc(GetProcessHeap(), 0, std::max<std::size_t>(content.size(), 1));
    if (memory == nullptr)
        throw std::bad_alloc();
    g_blocks.insert(memory);
    auto* const block = static_cast<char*>(memory);
    if (!content.empty())
        std::memcpy(block, content.data(), content.size());
    for (const auto& [field, target] : links) {
        const char* const address = block + target;
        std::memcpy(block + field, &address, sizeof address);
    }
    return memory;
}

bool TakeBack(void* block)
{
    return g_blocks.erase(block) != 0 && HeapFree(GetProcessHeap(), 0, block);
}

// Each text begins at an address that is good for a pointer, too.
void AppendText(std::vector<char>& bytes, const std::string& text)
{
    const auto wide = Wide(text);
    const auto* const begin = reinterpret_cast<const char*>(wide.data());
    bytes.insert(bytes.end(), begin, begin + wide.size() * sizeof(WCHAR));
    bytes.resize((bytes.size() + 7) / 8 * 8);
}

DismString* MakeString(const std::string& text)
{
    RecordBlock<DismString> block;
    block.Add();
    block.SetText(offsetof(DismString, Value), text);
    return block.Make();
}

} // namespace kestro::servicing
