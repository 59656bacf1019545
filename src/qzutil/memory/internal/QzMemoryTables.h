// QzMemoryTables.h: QzMemory's arenas and the tables that map a request size
// to them: small (4 to 512), medium (five computed tables up to 16,256) and
// large (power-of-two blocks less their headers). Internal: never installed.
#pragma once

#include "qzutil/memory/QzRawArena.h"

// Ownership: the tables own every arena they hold; an arena that several
//            medium entries share is owned once.
// Threads:   built and destroyed on the start-up thread; looked up under the
//            memory lock (or without it, as lookups only read).
class QzMemoryTables {
public:
    static constexpr unsigned kMaxSmallSize = 512;
    static constexpr unsigned kMaxMediumSize = 16256;
    static constexpr unsigned kMediumTables = 5;
    static constexpr unsigned kMediumIndices = 64;

    // Builds the arenas for the present region and page sizes. Returns the
    // number of medium arenas made (0 with medium blocks off).
    static unsigned Build(bool use_medium);
    // Releases every arena; with check on, each is checked first.
    static void Destroy(bool check);
    static bool IsBuilt();

    // The arena of a small size rounded to 4 or 8 (4 to 512).
    static QzRawArena *Small(unsigned rounded_size);
    // The arena of a medium size (513 to 16,256); null with medium blocks off.
    static QzRawArena *Medium(unsigned size);
    // The arena of exactly one of the large table's sizes, or null.
    static QzRawArena *Large(unsigned size);

    static unsigned BestBlockSize(unsigned size);
    static bool UsesMedium();

    // Every arena once, for checks and reports; null past the end.
    static QzRawArena *ArenaAt(unsigned index);
    // The arena that serves a size of the histogram walk, or null.
    static QzRawArena *ArenaForSize(unsigned size);
    // The medium arenas' object sizes in rising order, then 0.
    static unsigned NextMediumSize(unsigned size);
};
