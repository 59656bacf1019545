// QzStreamObjectFuzzGraph.h: the object graph that QzStreamObjectFuzz reads
// and QzStreamObjectSeeds writes: the node type, its write method, and the
// entries of the format "objfuzz". A stream's body is an array size (at most
// kQzFuzzMaxTopObjects) and that many object records; before them both sides
// give the anchor id 100 with AddObject.
#pragma once

#include <string>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzStreamExtData.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"

// The kinds, by entry. The reader's format has the first four; the seeds'
// newer format adds kQzFuzzStriped, whose own part holds a value of every
// kind of token, so that readers keep it as a tail.
enum QzFuzzKind : int {
    kQzFuzzGroup = 0,    // value, label, up to kQzFuzzMaxChildren objects
    kQzFuzzShape = 1,    // value, label, Nat16 marks, one Leaf (read as checked)
    kQzFuzzLeaf = 2,     // value
    kQzFuzzTagged = 3,   // extends Shape: a tag, a stamp, one more object
    kQzFuzzStriped = 4,  // extends Tagged: every kind of value, one more object
};

constexpr int kQzFuzzMaxTopObjects = 8;
constexpr int kQzFuzzMaxChildren = 8;
constexpr int kQzFuzzMaxMarks = 64;

struct QzFuzzNode {
    int kind = kQzFuzzGroup;
    LtInt32 value = 0;
    bool has_label = true;
    std::string label;
    std::vector<QzFuzzNode *> children;  // Group
    std::vector<LtNat16> marks;          // Shape
    QzFuzzNode *leaf = nullptr;          // Shape
    std::string tag;                     // Tagged
    LtNat64 stamp = 0;
    QzFuzzNode *extra = nullptr;
    QzFuzzNode *striped_child = nullptr;  // Striped, written by the seeds only
    QzStreamExtData *ext = nullptr;       // a kept tail; one reference
};

// Known to both sides without being written: id 100 in every stream.
inline QzFuzzNode *QzFuzzAnchor()
{
    static QzFuzzNode anchor;
    return &anchor;
}

inline void QzFuzzWriteChild(QzWriteStream *stream, QzFuzzNode const *child)
{
    if (child == nullptr)
        stream->WriteObject(nullptr, kQzFuzzGroup);
    else
        stream->WriteObjectExt(child, child->kind, child->ext);
}

// One value of every kind that Group, Shape and Tagged do not use, and a
// sync.
inline void QzFuzzWriteEveryKind(QzWriteStream *stream)
{
    static LtNat8 const bytes[] = {0, 0x5A, 0xFF};
    static LtInt16 const int16s[] = {-32768, 7};
    static LtInt32 const int32s[] = {-1};
    static LtNat32 const nat32s[] = {0xDEADBEEF, 0};
    static LtNat64 const nat64s[] = {0x0123456789ABCDEFULL};
    static LtSingle const singles[] = {0.5f, -1e-30f};
    static LtDouble const doubles[] = {1.0 / 3.0};
    static LtFloat const floats[] = {-2.5, 1e10};
    stream->WriteNat8(0x80);
    stream->WriteInt16(-300);
    stream->WriteNat16(0xFFFF);
    stream->WriteNat32(0x12345678);
    stream->WriteSingle(3.25f);
    stream->WriteDouble(-0.1);
    stream->WriteFloat(0.125);
    stream->WriteBoolean(true);
    stream->WriteEnum(4);
    stream->WriteBitfield(0x81);
    stream->WriteSync();  // within a tail, it must come back with it
    stream->WriteString("a \"tail\" string\\");
    stream->WriteNat8Array(bytes, 3);
    stream->WriteInt16Array(int16s, 2);
    stream->WriteInt32Array(int32s, 1);
    stream->WriteNat32Array(nat32s, 2);
    stream->WriteNat64Array(nat64s, 1);
    stream->WriteSingleArray(singles, 2);
    stream->WriteDoubleArray(doubles, 1);
    stream->WriteFloatArray(floats, 2);
    stream->WriteNat16Array(nullptr, 0);
}

inline int QzFuzzWriteNode(QzWriteStream *stream, int entry, void const *object)
{
    auto const *node = static_cast<QzFuzzNode const *>(object);
    stream->WriteInt32(node->value);
    if (entry == kQzFuzzLeaf)
        return 1;
    stream->WriteString(node->has_label ? node->label.c_str() : nullptr);
    if (entry == kQzFuzzGroup) {
        stream->WriteArraySize32(static_cast<LtInt32>(node->children.size()));
        for (QzFuzzNode const *child : node->children)
            QzFuzzWriteChild(stream, child);
        return 1;
    }
    stream->WriteArraySize32(static_cast<LtInt32>(node->marks.size()));
    stream->WriteNat16Array(node->marks.data(), static_cast<LtInt32>(node->marks.size()));
    QzFuzzWriteChild(stream, node->leaf);
    if (entry == kQzFuzzShape)
        return 1;
    stream->WriteString(node->tag.c_str());
    stream->WriteNat64(node->stamp);
    QzFuzzWriteChild(stream, node->extra);
    if (entry == kQzFuzzTagged)
        return 1;
    QzFuzzWriteEveryKind(stream);
    QzFuzzWriteChild(stream, node->striped_child);
    return 1;
}

// Fills the entries of "objfuzz" up to `count` (4 for the reader, 5 for the
// seeds' newer writer) with the given read side methods.
inline void QzFuzzSetUpFormat(QzStreamFormat *format, int count,
                              void *(*create)(QzReadStream *, int),
                              int (*read)(QzReadStream *, int, void *),
                              void (*dispose)(QzReadStream *, int, void *))
{
    char const *const names[] = {"Group", "Shape", "Leaf", "Tagged", "Striped"};
    int const parents[] = {-1, -1, -1, kQzFuzzShape, kQzFuzzTagged};
    for (int entry = 0; entry < count; ++entry) {
        format->SetEntry(entry, &QzFuzzWriteNode, create, read, names[entry], parents[entry]);
        format->EditEntry(entry).dispose = dispose;
    }
}
