// QzStreamObjects.h: the per-run object tables of the write and read
// streams. Begin creates them and End frees them; their presence is what
// tells End that a run is in progress.
#pragma once

#include <unordered_map>
#include <vector>

// Writer side: each object already sent, by address, with the id it was
// given (ids count up from 100 per run).
struct QzStreamWriteObjects {
    std::unordered_map<void const *, unsigned> ids;
};

// Reader side.
//
// Invariant: objects and entries run in parallel: objects[i] was read with
//            format entry entries[i]. entry_map maps an entry number found
//            in the data to an entry of the current read format, -1 where
//            the data's entry is not part of it.
struct QzStreamReadObjects {
    std::vector<void *> objects;
    std::vector<int> entries;
    std::vector<int> entry_map;
};
