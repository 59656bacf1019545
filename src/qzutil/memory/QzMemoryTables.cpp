// QzMemoryTables.cpp: building QzMemory's size-class tables. The medium
// tables are computed from the region size rather than listed, so that any
// allocation granularity gets classes that waste at most about 1/16 of a
// region.

#include "qzutil/memory/internal/QzMemoryTables.h"

#include <new>

#include "qzutil/memory/QzMemory.h"

namespace {

// Upper bounds of the arena counts, for static storage: loading the library
// constructs nothing, so arenas are placed here at Initialise.
constexpr unsigned kSmallArenas = 128;
constexpr unsigned kMaxMediumArenas = 256;
constexpr unsigned kMaxLargeArenas = 24;
constexpr unsigned kMaxArenas = kSmallArenas + kMaxMediumArenas + kMaxLargeArenas;

// Region space for block counts: the region less a single-page header.
constexpr unsigned kRegionOverhead = 16;
// A group whose smallest request would waste more than 1/16 of the region
// is split over regions twice the size.
constexpr unsigned kWasteDivisor = 16;
// What a large block leaves for the page header (below the page size) or the
// first page's headers (below the region size) in a power-of-two block.
constexpr unsigned kPageAllowance = 8;
constexpr unsigned kRegionAllowance = 24;

struct MediumRange {
    unsigned step;
    unsigned first;
    unsigned last;
};
constexpr MediumRange kMediumRanges[QzMemoryTables::kMediumTables] = {
    {8, 520, 1024}, {16, 1040, 2048}, {32, 2080, 4096}, {64, 4160, 8192}, {128, 8320, 16384},
};

struct Tables {
    alignas(QzRawArena) unsigned char storage[kMaxArenas][sizeof(QzRawArena)];
    unsigned arena_count;   // arenas placed in storage, in order of creation
    unsigned medium_first;  // index in storage of the first medium arena
    unsigned medium_count;
    QzRawArena *small[kSmallArenas];  // index size / 4 - 1
    QzRawArena *medium[QzMemoryTables::kMediumTables][QzMemoryTables::kMediumIndices];
    unsigned ceilings[QzMemoryTables::kMediumTables];
    unsigned large_sizes[kMaxLargeArenas];
    QzRawArena *large[kMaxLargeArenas];
    unsigned large_count;
    bool built;
    bool use_medium;
};

}  // namespace

static Tables g_tables;

static QzRawArena *NewArena(unsigned object_size, unsigned alignment, unsigned region_size)
{
    if (g_tables.arena_count == kMaxArenas)
        return nullptr;  // cannot happen for region sizes of 64 KiB and up
    void *place = g_tables.storage[g_tables.arena_count++];
    return new (place) QzRawArena(object_size, alignment, region_size);
}

static unsigned MediumIndex(MediumRange const &range, unsigned size)
{
    return (size - (range.first - range.step) - 1) / range.step;
}

// Groups neighbouring sizes from..to that give the same number of blocks in
// a region of `region_size`; each group shares one arena of its largest
// size. A group whose smallest request (one above `previous`, the largest
// size of the group before) wastes too much is first laid out again over
// regions twice the size, and this level's arena takes only the indices that
// the finer layout left open. The last group gets no arena here: its indices
// are left to the level above.
static void BuildMedium(QzRawArena **table, MediumRange const &range, unsigned from, unsigned to,
                        unsigned region_size, unsigned previous)
{
    LtNat64 const space = region_size - kRegionOverhead;
    auto wastes_too_much = [&](unsigned blocks) {
        LtNat64 const used = static_cast<LtNat64>(previous + 1) * blocks;
        return used < region_size && (region_size - used) * kWasteDivisor > region_size;
    };
    LtNat64 blocks = space / from;
    unsigned group_start = from;
    for (unsigned size = from + range.step; size <= to; size += range.step) {
        LtNat64 const count = space / size;
        if (count == blocks)
            continue;
        unsigned const group_end = size - range.step;
        if (wastes_too_much(static_cast<unsigned>(blocks)))
            BuildMedium(table, range, group_start, group_end, 2 * region_size, previous);
        QzRawArena *arena = NewArena(group_end, 8, region_size);
        for (unsigned s = group_start; s <= group_end; s += range.step) {
            QzRawArena *&entry = table[MediumIndex(range, s)];
            if (entry == nullptr)
                entry = arena;
        }
        previous = group_end;
        group_start = size;
        blocks = count;
    }
    if (wastes_too_much(static_cast<unsigned>(blocks)))
        BuildMedium(table, range, group_start, to, 2 * region_size, previous);
}

unsigned QzMemoryTables::Build(bool use_medium)
{
    g_tables = Tables{};
    g_tables.use_medium = use_medium;
    for (unsigned i = 0; i < kSmallArenas; ++i) {
        unsigned const size = (i + 1) * 4;
        // Odd multiples of 4 need only 4-byte alignment.
        g_tables.small[i] = NewArena(size, size % 8 == 0 ? 8 : 4, 0);
    }

    unsigned const region = QzMemory::GetRegionSize();
    // The large blocks start at the power of two above the last size that a
    // small or medium table covers.
    unsigned covered = kMaxSmallSize;
    if (use_medium) {
        g_tables.medium_first = g_tables.arena_count;
        unsigned previous = kMaxSmallSize;
        for (unsigned t = 0; t < kMediumTables; ++t) {
            MediumRange const &range = kMediumRanges[t];
            BuildMedium(g_tables.medium[t], range, range.first, range.last, region, previous);
            g_tables.ceilings[t] = g_tables.medium[t][kMediumIndices - 2]->GetObjectSize();
            previous = g_tables.ceilings[t];
        }
        // The last index of a table leads to the next table's first arena.
        for (unsigned t = 0; t + 1 < kMediumTables; ++t)
            g_tables.medium[t][kMediumIndices - 1] = g_tables.medium[t + 1][0];
        g_tables.medium[kMediumTables - 1][kMediumIndices - 1] = nullptr;
        g_tables.medium_count = g_tables.arena_count - g_tables.medium_first;
        covered = kMediumRanges[kMediumTables - 1].last;
    }

    unsigned block = 1;
    while (block <= covered)
        block *= 2;
    unsigned const page = QzMemory::GetPageSize();
    for (; block < region && g_tables.large_count < kMaxLargeArenas; block *= 2) {
        unsigned const size = block - (block < page ? kPageAllowance : kRegionAllowance);
        g_tables.large_sizes[g_tables.large_count] = size;
        g_tables.large[g_tables.large_count++] = NewArena(size, 8, 0);
    }
    g_tables.built = true;
    return g_tables.medium_count;
}

void QzMemoryTables::Destroy(bool check)
{
    for (unsigned i = 0; i < g_tables.arena_count; ++i) {
        auto *arena = std::launder(reinterpret_cast<QzRawArena *>(g_tables.storage[i]));
        if (check)
            arena->CheckArena();
        arena->~QzRawArena();
    }
    g_tables = Tables{};
}

bool QzMemoryTables::IsBuilt()
{
    return g_tables.built;
}

bool QzMemoryTables::UsesMedium()
{
    return g_tables.use_medium;
}

QzRawArena *QzMemoryTables::Small(unsigned rounded_size)
{
    return g_tables.small[rounded_size / 4 - 1];
}

QzRawArena *QzMemoryTables::Medium(unsigned size)
{
    if (!g_tables.use_medium)
        return nullptr;
    for (unsigned t = 0; t < kMediumTables; ++t) {
        MediumRange const &range = kMediumRanges[t];
        if (size <= range.last)
            return g_tables.medium[t][MediumIndex(range, size)];
    }
    return nullptr;
}

QzRawArena *QzMemoryTables::Large(unsigned size)
{
    for (unsigned i = 0; i < g_tables.large_count; ++i) {
        if (g_tables.large_sizes[i] == size)
            return g_tables.large[i];
    }
    return nullptr;
}

static unsigned PowerOfTwoAtOrAbove(unsigned size)
{
    unsigned power = 4;
    while (power < size)
        power *= 2;
    return power;
}

unsigned QzMemoryTables::BestBlockSize(unsigned size)
{
    if (size > 0x80000000u)
        return size;
    if (size <= kMaxSmallSize)
        return PowerOfTwoAtOrAbove(size);
    if (g_tables.use_medium && size <= kMaxMediumSize) {
        for (unsigned ceiling : g_tables.ceilings) {
            if (ceiling >= size)
                return ceiling;
        }
    }
    unsigned const region = QzMemory::GetRegionSize();
    if (size >= region)
        return PowerOfTwoAtOrAbove(size);
    for (unsigned i = 0; i < g_tables.large_count; ++i) {
        if (g_tables.large_sizes[i] >= size)
            return g_tables.large_sizes[i];
    }
    return region;
}

QzRawArena *QzMemoryTables::ArenaAt(unsigned index)
{
    if (index >= g_tables.arena_count)
        return nullptr;
    return std::launder(reinterpret_cast<QzRawArena *>(g_tables.storage[index]));
}

QzRawArena *QzMemoryTables::ArenaForSize(unsigned size)
{
    if (!g_tables.built || size == 0)
        return nullptr;
    if (size <= kMaxSmallSize)
        return Small((size + 3) / 4 * 4);
    if (g_tables.use_medium && size <= kMaxMediumSize)
        return Medium(size);
    return Large(size);
}

unsigned QzMemoryTables::NextMediumSize(unsigned size)
{
    unsigned next = 0;
    for (unsigned i = 0; i < g_tables.medium_count; ++i) {
        unsigned const candidate = ArenaAt(g_tables.medium_first + i)->GetObjectSize();
        if (candidate > size && (next == 0 || candidate < next))
            next = candidate;
    }
    return next;
}
