// QzStreamObjects.h: the per-run object tables of the write and read
// streams. Begin creates them and End frees them; their presence is what
// tells End that a run is in progress.
#pragma once

#include <charconv>
#include <unordered_map>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzStream.h"

// Writer side: each object already sent, by address, with the id it was
// given (ids count up from 100 per run).
struct QzStreamWriteObjects {
    std::unordered_map<void const *, unsigned> ids;
};

// Reader side.
//
// Invariant: objects and entries run in parallel, one slot per id handed
//            out so far: objects[id - 100] was read with format entry
//            entries[id - 100]. A slot whose object is null with entry -2
//            stands for a definition that was skipped or failed. entry_map
//            maps an entry number found in the data to an entry of the
//            current read format, -1 where the data's entry is not part of it.
struct QzStreamReadObjects {
    std::vector<void *> objects;
    std::vector<int> entries;
    std::vector<int> entry_map;
};

// Ids 0 and 1 mean null and use in a record; object ids count from here.
constexpr unsigned kQzFirstObjectId = 100;

// The entry of a slot that holds no object of the format: a definition that
// was skipped within a tail, or one that failed.
constexpr int kQzSkippedObjectEntry = -2;

// Sets a stream's debug flag for one scope and puts the old value back.
class QzStreamDebugScope {
public:
    QzStreamDebugScope(QzStream *stream, int debug) : m_stream(stream), m_saved(stream->IsDebug())
    {
        stream->SetDebug(debug);
    }
    ~QzStreamDebugScope() { m_stream->SetDebug(m_saved); }
    QzStreamDebugScope(QzStreamDebugScope const &) = delete;
    QzStreamDebugScope &operator=(QzStreamDebugScope const &) = delete;

private:
    QzStream *m_stream;  // borrowed
    int m_saved;
};

// A number as decimal text, for the read value of a parse message.
struct QzStreamDecimal {
    explicit QzStreamDecimal(LtInt64 value) { std::to_chars(text, text + sizeof text - 1, value); }
    char text[24] = {};  // "-9223372036854775808" and the terminator fit
};
