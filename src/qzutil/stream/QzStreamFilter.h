// QzStreamFilter.h: a sink that transforms what passes through it and hands
// it on to the next sink of a stream's chain (compression, encryption).
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamSink.h"

// Base of filters. The stream wires the chain: at Begin it begins each
// filter and links its next sink; when a run ends it clears every filter's
// next sink before calling the filter's WriteEnd or ReadEnd. So a filter must
// push all its data out by WriteFlush and may do only its own clean-up in
// WriteEnd.
//
// A subclass implements WriteLock, WriteProcess, ReadLock, ReadProcess and
// GetName, the word by which a stream's header line names the filter.
//
// Ownership: the next sink is borrowed. Threads: as QzStreamSink.
class QZUTIL_API QzStreamFilter : public QzStreamSink {
public:
    QzStreamFilter() = default;
    ~QzStreamFilter() override;

    QzStreamSink *GetSink() const { return m_sink; }
    void SetSink(QzStreamSink *sink) { m_sink = sink; }

    // Forwards to the next sink's WriteFlush; 0 without a next sink.
    int WriteFlush() override;

    virtual char const *GetName() const = 0;

private:
    QzStreamSink *m_sink = nullptr;  // borrowed; null while not wired
};
