// QzJsonReadStream.h: reading a JSON document with a cursor: objects by
// property name (case-insensitive, optional names allowed), arrays in order.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/structured/QzJsonStream.h"

class QzStringBuffer;
class QzWideStringBuffer;

// Parses a text into a tree, then walks it: BeginRead, then containers and
// values in the order of the calls, then EndRead. Inside an object a value
// is chosen by ReadPropertyName first; inside an array values come in order.
// The first BeginObject or BeginArray takes the document itself.
//
// Failure: a sticky error flag. A text that is not an object or array, a
//          value of another type than asked for, a value without a name in
//          an object, or reading past an array's end sets it; after that
//          every read gives 0, false or empty and changes nothing. An absent
//          property is not an error: ReadPropertyName answers false.
// Ownership: the stream data is borrowed; the tree lives in it.
// Threads:  one thread at a time.
class QZUTIL_API QzJsonReadStreamBase : public QzJsonStreamDataContainer {
public:
    explicit QzJsonReadStreamBase(QzJsonStreamData *data) : QzJsonStreamDataContainer(data) {}

    // Clears the data and the error and parses `text`. False, with the error
    // set, unless the text is a JSON object or array.
    bool BeginRead(char const *text);
    // Clears the data. True if no error was set during the read.
    bool EndRead();

    // Enter the next value as a container; false (and the error) if it is
    // not one. BeginArray() gives the element count, 0 on error;
    // BeginArray(expected) also requires that count.
    bool BeginObject();
    bool EndObject();
    int BeginArray();
    bool BeginArray(int expected);
    bool EndArray();

    // Selects the property of the current object that the next value read
    // takes, by a case-insensitive comparison. False without error if the
    // object has none of that name; false with the error outside an object.
    bool ReadPropertyName(char const *name);
    bool ReadBoolean();
    // cJSON's integer of the number: clamped to the int range.
    int ReadInteger();
    double ReadDouble();
    // The UTF-8 text into `out`; empty on error.
    bool ReadString(QzStringBuffer *out);

    // Looks into the next value without taking it: if it is an object whose
    // "Type" is a string and "Version" a number, gives them and true.
    // Otherwise `type` is empty, `version` 0 and the result false. Either way
    // the position and the error flag are as before.
    bool PeekTVObject(QzStringBuffer *type, int *version);
    // Steps over the next element of the current array. Sets the error
    // outside an array or past its end.
    bool SkipArrayItem();

protected:
    // The node that the next value read takes, stepping past it, if its
    // cJSON type bits meet `type_mask`; null with the error set if there is
    // none or it has another type. With no container open, the document.
    QzJsonNode *TakeValue(int type_mask);
    // The text of the next value if it is a string, else null with the
    // error set. Points into the tree: valid until the data is cleared.
    char const *TakeString();

private:
    bool EndContainer(bool is_object);
};

// The read stream with wide text, points and 64-bit values.
class QZUTIL_API QzJsonReadStream : public QzJsonReadStreamBase {
public:
    explicit QzJsonReadStream(QzJsonStreamData *data) : QzJsonReadStreamBase(data) {}

    // A string, decoded from UTF-8 into `out`; ill-formed UTF-8 sets the
    // error. Empty on error.
    bool ReadWideString(QzWideStringBuffer *out);
    // An array of exactly three numbers into values[0..2]; zeros on error.
    bool Read(double *values);
    // A string of decimal digits (with a sign for Int64) that fits the type;
    // anything else sets the error and gives 0.
    LtNat64 ReadNat64AsString();
    LtInt64 ReadInt64AsString();
    // A number truncated toward zero and clamped to the type (NaN gives 0).
    LtNat64 ReadNat64AsNumber();
    LtInt64 ReadInt64AsNumber();

private:
    template <typename Value>
    Value ReadDecimalString();
};
