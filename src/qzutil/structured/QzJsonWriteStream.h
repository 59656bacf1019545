// QzJsonWriteStream.h: writing a JSON document by calls in document order
// (objects, arrays, property names, values) and printing it at the end.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/structured/QzJsonStream.h"

class QzStringBuffer;

// Builds a tree by calls in document order: BeginWrite, then containers and
// values, then EndWrite prints the tree. A value inside an object needs a
// WritePropertyName before it; inside an array it is appended. The first
// object or array is the document; a value outside any container is dropped.
//
// Failure: a sticky error flag. A value in an object without a name, a
//          second document, an End... that does not match its Begin..., or a
//          failed allocation sets it; after that every call does nothing and
//          EndWrite gives false with an empty text.
// Ownership: the stream data is borrowed; the tree lives in it.
// Threads:  one thread at a time.
class QZUTIL_API QzJsonWriteStreamBase : public QzJsonStreamDataContainer {
public:
    explicit QzJsonWriteStreamBase(QzJsonStreamData *data) : QzJsonStreamDataContainer(data) {}

    // Drops any previous tree and clears the error.
    void BeginWrite();
    // Prints the document into `out` (indented when `formatted`) and clears
    // the data. False, with `out` empty, if the error is set, no document
    // was begun, a container is still open, or printing fails.
    bool EndWrite(bool formatted, QzStringBuffer *out);

    void BeginObject();
    void EndObject();
    void BeginArray();
    void EndArray();

    // Names the next value written into the current object. Copied.
    void WritePropertyName(char const *name);
    void WriteBoolean(bool value);
    // Numbers are printed by "%.17g" of their double, so any int and any
    // double read back exactly; NaN and infinities print as null.
    void WriteInteger(int value);
    void WriteDouble(double value);
    // UTF-8 text; null writes the empty string.
    void WriteString(char const *text);

protected:
    // Places a new node (owned by the call) by the rules above. Returns true
    // if it is now in the tree; otherwise it has been freed.
    bool PlaceNode(QzJsonNode *node, bool is_container);

private:
    void BeginContainer(QzJsonNode *node);
    void EndContainer(bool is_object);
};

// The write stream with wide text, points and 64-bit values.
class QZUTIL_API QzJsonWriteStream : public QzJsonWriteStreamBase {
public:
    explicit QzJsonWriteStream(QzJsonStreamData *data) : QzJsonWriteStreamBase(data) {}

    // UTF-16 text, written as UTF-8; null writes the empty string.
    void WriteWideString(LtWChar const *text);
    // values[0..2] as an array of three numbers.
    void Write(double const *values);
    // Exact: the decimal digits as a string ("18446744073709551615").
    void WriteNat64AsString(LtNat64 value);
    void WriteInt64AsString(LtInt64 value);
    // Through a double: exact only up to 2 to the 53rd in magnitude.
    void WriteNat64AsNumber(LtNat64 value);
    void WriteInt64AsNumber(LtInt64 value);
};
