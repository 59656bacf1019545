// QzStreamObjectTest.cpp: object records (null, use, definition) in every
// form, references and cycles, the extension list and what an older reader
// makes of a newer writer's objects, debug copies, and disposal at End.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamExtData.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"

#include "stream/QzStreamTestHelpers.h"
#include "support/QzTestSupport.h"

namespace {

// The entries of the formats: the older one has the first three, the newer
// one adds a shape with a colour, weights and one more child.
constexpr int kGroup = 0, kShape = 1, kLeaf = 2, kColouredShape = 3;

struct Node {
    int kind = kGroup;  // the entry that created it
    LtInt32 value = 0;
    std::vector<Node *> children;
    LtNat32 colour = 0;
    std::vector<LtDouble> weights;
    Node *extra = nullptr;
    QzStreamExtData *ext = nullptr;  // one reference, held for a write back
};

// Owns the nodes of one side; readers find it in user slot 0.
struct Graph {
    ~Graph()
    {
        for (auto &node : nodes) {
            if (node->ext != nullptr)
                node->ext->Unref();
        }
    }
    Node *Add(int kind, LtInt32 value, std::vector<Node *> children = {})
    {
        nodes.push_back(std::make_unique<Node>());
        Node *node = nodes.back().get();
        node->kind = kind;
        node->value = value;
        node->children = std::move(children);
        return node;
    }
    std::vector<std::unique_ptr<Node>> nodes;
    std::vector<LtInt32> disposed;  // values, in the order of the dispose calls
};

void WriteChild(QzWriteStream *stream, Node const *child)
{
    if (child == nullptr)
        stream->WriteObject(nullptr, kGroup);
    else
        stream->WriteObjectExt(child, child->kind, child->ext);
}

int WriteNode(QzWriteStream *stream, int entry, void const *object)
{
    auto const *node = static_cast<Node const *>(object);
    stream->WriteInt32(node->value);
    if (entry == kLeaf)
        return 1;
    stream->WriteArraySize32(static_cast<LtInt32>(node->children.size()));
    for (Node const *child : node->children)
        WriteChild(stream, child);
    if (entry == kColouredShape) {
        stream->WriteNat32(node->colour);
        stream->WriteSync();  // a sync within a tail goes back with it
        stream->WriteArraySize32(static_cast<LtInt32>(node->weights.size()));
        stream->WriteDoubleArray(node->weights.data(), static_cast<LtInt32>(node->weights.size()));
        WriteChild(stream, node->extra);
    }
    return 1;
}

Graph *GraphOf(QzReadStream *stream)
{
    return static_cast<Graph *>(stream->GetUserData(QzStream::eSLOT_USER_0));
}

void *CreateNode(QzReadStream *stream, int entry)
{
    return GraphOf(stream)->Add(entry, 0);
}

Node *ReadChild(QzReadStream *stream)
{
    int entry = -1;
    QzStreamExtData *ext = nullptr;
    auto *child = static_cast<Node *>(stream->ReadObjectExt(&entry, &ext));
    if (ext != nullptr) {
        ext->Ref();
        child->ext = ext;
    }
    return child;
}

int ReadNode(QzReadStream *stream, int entry, void *object)
{
    auto *node = static_cast<Node *>(object);
    node->value = stream->ReadInt32();
    if (entry == kLeaf)
        return 1;
    LtInt32 const count = stream->ReadArraySize32WithMaximum(16);
    for (LtInt32 i = 0; i < count; ++i)
        node->children.push_back(ReadChild(stream));
    if (entry == kColouredShape) {
        node->colour = stream->ReadNat32();
        stream->ReadSync();
        node->weights.resize(static_cast<std::size_t>(stream->ReadArraySize32WithMaximum(16)));
        stream->ReadDoubleArray(node->weights.data(), static_cast<LtInt32>(node->weights.size()));
        node->extra = ReadChild(stream);
    }
    return !stream->IsError();
}

void DisposeNode(QzReadStream *stream, int, void *object)
{
    GraphOf(stream)->disposed.push_back(static_cast<Node *>(object)->value);
}

QzStreamFormat MakeFormat(bool is_newer)
{
    QzStreamFormat format("objtest", /*extendable=*/true);
    char const *const names[] = {"Group", "Shape", "Leaf", "ColouredShape"};
    int const parents[] = {-1, -1, -1, kShape};
    for (int entry = 0; entry < (is_newer ? 4 : 3); ++entry) {
        format.SetEntry(entry, WriteNode, CreateNode, ReadNode, names[entry], parents[entry]);
        format.EditEntry(entry).dispose = DisposeNode;
    }
    return format;
}

// The newer writer's graph, added to `graph`: a group holding a coloured
// shape (with a leaf child, and in its own part weights and a leaf of its
// own) and a leaf. Returns the group.
Node *AddNewerGraph(Graph *graph)
{
    Node *coloured = graph->Add(kColouredShape, 20, {graph->Add(kLeaf, 30)});
    coloured->colour = 0xFF8000;
    coloured->weights = {0.5, -2.25};
    coloured->extra = graph->Add(kLeaf, 40);
    return graph->Add(kGroup, 10, {coloured, graph->Add(kLeaf, 50)});
}

struct Form {
    char const *name;
    int ascii, debug;
};

Form const kForms[] = {
    {"binary", 0, 0}, {"binary_debug", 0, 1}, {"ascii", 1, 0}, {"ascii_debug", 1, 1}};

// A run of a writer in `form` over a buffer of its own; the bytes written.
template <typename Body>
std::string WriteRun(Form const &form, QzStreamFormat const *format, int header, Body body,
                     char const *format_name = nullptr)
{
    QzStreamBuffer buffer;
    QzWriteStream writer(&buffer);
    writer.SetAscii(form.ascii);
    writer.SetDebug(form.debug);
    writer.SetFormat(format);
    if (format_name != nullptr)
        writer.SetFormatName(format_name);
    EXPECT_EQ(writer.Begin(header, 1), 1);
    body(&writer);
    EXPECT_EQ(writer.End(), 1);
    return std::string(reinterpret_cast<char const *>(buffer.GetAlignedBuffer()),
                       static_cast<std::size_t>(buffer.GetAlignedSize()));
}

// A reader over a copy of `bytes` that creates its nodes in its own graph.
// Without a header it takes the form given to BeginBare; with one, `format`
// is on offer.
struct ReadSide {
    ReadSide(std::string bytes, QzStreamFormat const *format)
    {
        EXPECT_EQ(buffer.SetBuffer(reinterpret_cast<unsigned char *>(bytes.data()),
                                   static_cast<int>(bytes.size()), QzStreamBuffer::HintCopy),
                  1);
        reader.AddAvailableFormat(format);
        reader.SetFormat(format);
        reader.SetUserData(QzStream::eSLOT_USER_0, &graph);
    }
    int BeginBare(Form const &form)
    {
        reader.SetAscii(form.ascii);
        reader.SetDebug(form.debug);
        return reader.Begin(0, 0);
    }
    Graph graph;  // outlives the reader, which disposes into it
    QzStreamBuffer buffer;
    QzReadStream reader{&buffer};
};

}  // namespace

class QzStreamObjectTest : public QzStreamFixture {
protected:
    void SetUp() override
    {
        QzStreamFixture::SetUp();
        m_old = std::make_unique<QzStreamFormat>(MakeFormat(false));
        m_new = std::make_unique<QzStreamFormat>(MakeFormat(true));
    }
    void TearDown() override
    {
        m_old.reset();
        m_new.reset();
        QzStreamFixture::TearDown();
    }

    // Made once the component (and with it the allocator) is up.
    std::unique_ptr<QzStreamFormat> m_old;
    std::unique_ptr<QzStreamFormat> m_new;
};

// Null is a record of its own and takes no id; a pointer is defined once and
// then used by the id of its definition.
TEST_F(QzStreamObjectTest, NullThenOnePointerTwice)
{
    std::string const value_line = std::string(16, ' ') + "7\n";  // indent 4, " ", " %11d"
    std::string const expected[] = {
        Le32(0, 100, kLeaf, 7, 1, 100),
        Le32(22, 0, 22, 100, kLeaf, 5, 7, 23, 22, 1, 100, 1),
        "  NULL_OBJECT\n  DEF 100 Leaf\n  {\n" + value_line + "  }\n  USE 100\n",
        "  Object\n  NULL_OBJECT\n  Object\n  DEF 100 Leaf\n  {\n    Int32\n" + value_line +
            "  ObjectEndDef\n  }\n  Object\n  USE 100\n  Sync\n",
    };
    for (std::size_t i = 0; i < std::size(kForms); ++i) {
        SCOPED_TRACE(kForms[i].name);
        Graph written;
        Node *leaf = written.Add(kLeaf, 7);
        std::vector<unsigned> ids;
        std::string const bytes = WriteRun(kForms[i], m_new.get(), 0, [&](QzWriteStream *w) {
            ids = {w->WriteObject(nullptr, kLeaf), w->WriteObject(leaf, kLeaf),
                   w->WriteObject(leaf, kLeaf)};
        });
        EXPECT_EQ(ids, (std::vector<unsigned>{0, 100, 100}));
        EXPECT_EQ(bytes, expected[i]);

        ReadSide side(bytes, m_new.get());
        ASSERT_EQ(side.BeginBare(kForms[i]), 1);
        int entries[3] = {};
        EXPECT_EQ(side.reader.ReadObject(&entries[0]), nullptr);
        auto *first = static_cast<Node *>(side.reader.ReadObject(&entries[1]));
        EXPECT_EQ(side.reader.ReadObject(&entries[2]), first);
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(first->value, 7);
        EXPECT_EQ(std::vector<int>(entries, entries + 3), (std::vector<int>{-1, kLeaf, kLeaf}));
        EXPECT_EQ(side.reader.GetObjectW(100), first);
        EXPECT_EQ(side.reader.End(1), 1) << Messages();
    }
}

// Hand-made records that a reader must refuse, with the message it posts.
TEST_F(QzStreamObjectTest, BadRecordsAreParseErrors)
{
    struct Case {
        char const *name;
        Form form;
        std::string bytes;
        char const *message;
    };
    Case const cases[] = {
        {"use_99", kForms[0], Le32(1, 99), "Read \"Bad reference id\", expected \"Object!\"|"},
        {"ascii_use_99", kForms[2], "  USE 99\n",
         "Read \"Bad reference id\", expected \"Object!\" at line 1|"},
        {"def_101", kForms[0], Le32(101, kLeaf, 7, 0), "Read \"101\", expected \"100\"|"},
        {"ascii_def_101", kForms[2], "  DEF 101 Leaf\n  {\n   7\n  }\n",
         "Read \"101\", expected \"100\" at line 2|"},
        {"unknown_entry", kForms[0], Le32(100, 7), "Read \"7\", expected \"Entry!\"|"},
        {"ascii_unknown_entry", kForms[2], "  DEF 100 Spline\n",
         "Read \"Bad definition format entry\", expected \"Object!\" at line 1|"},
        {"ascii_bad_word", kForms[2], "  FOO\n", "Read \"FOO\", expected \"Object!\" at line 1|"},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        ReadSide side(c.bytes, m_old.get());
        ASSERT_EQ(side.BeginBare(c.form), 1);
        EXPECT_EQ(side.reader.ReadObject(), nullptr);
        EXPECT_EQ(side.reader.GetError(), QzStream::ErrorParse);
        EXPECT_EQ(Messages(), c.message);
        // A definition out of sequence still takes its id: 101 is next.
        if (std::string(c.name).find("def_101") != std::string::npos) {
            EXPECT_EQ(side.reader.AddObject(&side.graph, kGroup, 101), 1);
        }
        EXPECT_EQ(side.reader.End(0), 0);
        EXPECT_TRUE(side.graph.nodes.empty());
    }
}

// A cycle reads back because an object is registered before it is read;
// dispose methods then run in id order, not in the order reads finished, and
// also for the objects of a run cut short.
TEST_F(QzStreamObjectTest, CycleReadsBackAndDisposesInIdOrder)
{
    for (Form const &form : kForms) {
        SCOPED_TRACE(form.name);
        Graph written;
        Node *root = written.Add(kGroup, 1);
        Node *shape = written.Add(kShape, 2, {root, written.Add(kLeaf, 3)});
        root->children = {shape};
        std::string const bytes = WriteRun(form, m_old.get(), 1, [&](QzWriteStream *w) {
            EXPECT_EQ(w->WriteObject(root, kGroup), 100u);
        });

        ReadSide side(bytes, m_old.get());
        ASSERT_EQ(side.reader.Begin(1, 1), 1) << Messages();
        auto *read_root = static_cast<Node *>(side.reader.ReadCheckedObject(kGroup));
        ASSERT_NE(read_root, nullptr) << Messages();
        ASSERT_EQ(read_root->children.size(), 1u);
        Node const *read_shape = read_root->children[0];
        ASSERT_EQ(read_shape->children.size(), 2u);
        EXPECT_EQ(read_shape->children[0], read_root);
        EXPECT_EQ(read_shape->children[1]->value, 3);
        EXPECT_EQ(side.reader.End(1), 1) << Messages();
        EXPECT_EQ(side.graph.disposed, (std::vector<LtInt32>{1, 2, 3}));

        if (form.ascii)
            continue;
        // Cut right after the leaf's head: the leaf is made but never read.
        std::size_t const leaf_head = bytes.find(Le32(102, kLeaf));
        ASSERT_NE(leaf_head, std::string::npos);
        ReadSide cut(bytes.substr(0, leaf_head + 8), m_old.get());
        ASSERT_EQ(cut.reader.Begin(1, 1), 1);
        EXPECT_EQ(cut.reader.ReadObject(), nullptr);
        EXPECT_EQ(cut.reader.End(1), 0);
        EXPECT_EQ(cut.graph.disposed, (std::vector<LtInt32>{1, 2, 0}));
    }
}

// An older reader reads the newer kind as its ancestor, keeps the rest as a
// tail, and writes it back byte for byte; the newer reader then gets the
// object whole.
TEST_F(QzStreamObjectTest, OlderReaderKeepsAndWritesBackAnExtendedObject)
{
    for (Form const &form : kForms) {
        SCOPED_TRACE(form.name);
        Graph newer;
        Node *newer_root = AddNewerGraph(&newer);
        std::string const original = WriteRun(
            form, m_new.get(), 1, [&](QzWriteStream *w) { w->WriteObject(newer_root, kGroup); });

        ReadSide old_side(original, m_old.get());
        ASSERT_EQ(old_side.reader.Begin(1, 1), 1) << Messages();
        QzStreamFormat const *extended = old_side.reader.GetExtendedFormat();
        ASSERT_NE(extended, nullptr);
        EXPECT_EQ(old_side.reader.GetCurrentReadFormat(), extended);
        ASSERT_EQ(extended->GetNumEntries(), 4);
        EXPECT_STREQ(extended->GetEntry(3).name.GetString(), "ColouredShape");
        EXPECT_EQ(extended->GetEntry(3).parent, kShape);
        EXPECT_EQ(extended->GetEntry(3).substitute, kShape);
        EXPECT_EQ(m_old->GetNumEntries(), 3);  // the shared format stays as it was

        auto *root = static_cast<Node *>(old_side.reader.ReadObject());
        ASSERT_NE(root, nullptr) << Messages();
        ASSERT_EQ(root->children.size(), 2u);
        Node const *as_shape = root->children[0];
        EXPECT_EQ(as_shape->kind, kShape);
        EXPECT_EQ(as_shape->value, 20);
        ASSERT_EQ(as_shape->children.size(), 1u);
        EXPECT_EQ(as_shape->children[0]->value, 30);
        ASSERT_NE(as_shape->ext, nullptr);
        EXPECT_EQ(as_shape->ext->GetEntry(), kColouredShape);
        EXPECT_EQ(as_shape->ext->GetRefCount(), 1);
        EXPECT_EQ(root->children[1]->value, 50);  // the id after the tail's leaf
        EXPECT_EQ(old_side.reader.End(1), 1) << Messages();
        EXPECT_EQ(old_side.graph.disposed, (std::vector<LtInt32>{10, 20, 30, 50}));

        std::string const written_back =
            WriteRun(form, extended, 1, [&](QzWriteStream *w) { w->WriteObject(root, kGroup); });
        EXPECT_EQ(written_back, original);

        ReadSide new_side(written_back, m_new.get());
        ASSERT_EQ(new_side.reader.Begin(1, 1), 1) << Messages();
        EXPECT_EQ(new_side.reader.GetExtendedFormat(), nullptr);
        auto *new_root = static_cast<Node *>(new_side.reader.ReadObject());
        ASSERT_NE(new_root, nullptr) << Messages();
        Node const *coloured = new_root->children[0];
        EXPECT_EQ(coloured->kind, kColouredShape);
        EXPECT_EQ(coloured->colour, 0xFF8000u);
        EXPECT_EQ(coloured->weights, (std::vector<LtDouble>{0.5, -2.25}));
        ASSERT_NE(coloured->extra, nullptr);
        EXPECT_EQ(coloured->extra->value, 40);
        EXPECT_EQ(new_side.reader.End(1), 1) << Messages();
    }
}

// Definitions within a skipped tail take ids: a use past them resolves, and
// a use of one of them reads as null with entry -2.
TEST_F(QzStreamObjectTest, SkippedTailDefinitionsTakeIds)
{
    for (Form const &form : kForms) {
        SCOPED_TRACE(form.name);
        Graph newer;
        Node *coloured = AddNewerGraph(&newer)->children[0];
        Node *later = newer.Add(kLeaf, 60);
        std::string const bytes = WriteRun(form, m_new.get(), 1, [&](QzWriteStream *w) {
            EXPECT_EQ(w->WriteObject(coloured, kColouredShape), 100u);  // leaves 101, 102
            EXPECT_EQ(w->WriteObject(later, kLeaf), 103u);
            w->WriteObject(later, kLeaf);
            w->WriteObject(coloured->extra, kLeaf);
        });
        ReadSide side(bytes, m_old.get());
        ASSERT_EQ(side.reader.Begin(1, 1), 1) << Messages();
        QzStreamExtData *ext = nullptr;
        int entry = -1;
        void *shape = side.reader.ReadObjectExt(&entry, &ext);
        ASSERT_NE(shape, nullptr) << Messages();
        EXPECT_EQ(entry, kShape);
        ASSERT_NE(ext, nullptr);
        delete ext;  // never referenced
        auto *read_later = static_cast<Node *>(side.reader.ReadObject());
        ASSERT_NE(read_later, nullptr) << Messages();
        EXPECT_EQ(read_later->value, 60);
        EXPECT_EQ(side.reader.ReadObject(&entry), read_later);
        EXPECT_EQ(side.reader.ReadObject(&entry), nullptr);
        EXPECT_EQ(entry, -2);
        EXPECT_EQ(side.reader.End(1), 1) << Messages();
    }
}

// Extension records that contradict the data (error 17) or the reader's
// format (error 19) stop Begin without a message.
TEST_F(QzStreamObjectTest, BadExtensionRecordsStopBegin)
{
    struct Case {
        char const *name;
        LtInt32 index, parent;
        char const *extension;
        QzStream::ErrorId error;
    };
    Case const cases[] = {
        {"index_16385", 16385, 1, "Spline", QzStream::ErrorBadExtension},
        {"parent_not_before", 3, 3, "Spline", QzStream::ErrorBadExtension},
        {"empty_name", 3, 1, "", QzStream::ErrorBadExtension},
        {"parent_unmapped", 5, 4, "Spline", QzStream::ErrorExtensionConflict},
        {"index_mapped", 1, 0, "Spline", QzStream::ErrorExtensionConflict},
        {"known_other_parent", 3, 1, "Leaf", QzStream::ErrorExtensionConflict},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        // The header names the format; the writer has none, so the list is
        // written by hand.
        std::string const bytes = WriteRun(
            kForms[0], nullptr, 1,
            [&](QzWriteStream *w) {
                w->WriteInt32(c.index);
                w->WriteString(c.extension);
                w->WriteInt32(c.parent);
                w->WriteInt32(-1);
            },
            "objtest");
        ReadSide side(bytes, m_old.get());
        EXPECT_EQ(side.reader.Begin(1, 1), 0);
        EXPECT_EQ(side.reader.GetError(), c.error);
        EXPECT_EQ(Messages(), "");
    }
}

// Every kind of token, and objects with their ids, survive a debug copy from
// binary to ascii and back to the very same bytes. (A copy ends at the first
// sync, so no coloured shape, which syncs within, takes part.)
TEST_F(QzStreamObjectTest, DebugCopyToAsciiAndBackIsExact)
{
    Graph graph;
    Node *leaf = graph.Add(kLeaf, 5);
    Node *root = graph.Add(kGroup, 1, {graph.Add(kShape, 2, {leaf}), leaf, nullptr});
    LtNat8 const bytes[] = {0, 0x7F, 0xFF};
    LtInt16 const int16s[] = {-32768};
    LtNat16 const nat16s[] = {0xBEEF, 1};
    LtInt32 const int32s[] = {-1, 0, 2147483647};
    LtNat32 const nat32s[] = {0xDEADBEEF};
    LtNat64 const nat64s[] = {0xFEDCBA9876543210ULL, 0};
    LtSingle const singles[] = {0.5f, -1.25f};
    LtDouble const doubles[] = {0.1, -1e300};
    LtFloat const floats[] = {3.0};
    auto const write_all = [&](QzWriteStream *w) {
        // Each scalar by its operator: Nat8, Int16, Nat16, Int32, Nat32,
        // Nat64, Single, Double, Boolean and String.
        *w << LtNat8{0xA5} << LtInt16{-2} << LtNat16{0x1234} << LtInt32{-7} << LtNat32{0x80000000}
           << LtNat64{0x0123456789ABCDEF} << 0.75f << 0.1 << true << "quote \" and \\";
        w->WriteString(nullptr);
        w->WriteFloat(-0.375);
        w->WriteEnum(3);
        w->WriteBitfield(0x11);
        w->WriteNat8Array(bytes, 3);
        w->WriteNat8Array(bytes, 0);
        w->WriteInt16Array(int16s, 1);
        w->WriteNat16Array(nat16s, 2);
        w->WriteInt32Array(int32s, 3);
        w->WriteNat32Array(nat32s, 1);
        w->WriteNat64Array(nat64s, 2);
        w->WriteSingleArray(singles, 2);
        w->WriteDoubleArray(doubles, 2);
        w->WriteFloatArray(floats, 1);
        w->WriteObject(root, kGroup);
        w->WriteObject(root, kGroup);
    };
    std::string const original = WriteRun(kForms[1], m_new.get(), 1, write_all);

    auto const copy = [&](std::string const &from, Form const &to) {
        ReadSide side(from, m_new.get());
        EXPECT_EQ(side.reader.Begin(1, 1), 1) << Messages();
        std::string const copied = WriteRun(to, m_new.get(), 1, [&](QzWriteStream *w) {
            EXPECT_EQ(side.reader.CopyDebugToEnd(w), 1) << Messages();
        });
        EXPECT_TRUE(side.graph.nodes.empty()) << "a copy makes no objects";
        return copied;
    };
    std::string const ascii = copy(original, kForms[3]);
    EXPECT_NE(ascii.find("DEF 101 Shape"), std::string::npos) << ascii;
    EXPECT_EQ(copy(ascii, kForms[1]), original);
}

// A debug copy refuses tokens outside the table and definitions out of
// sequence; a release stream is not copied at all.
TEST_F(QzStreamObjectTest, DebugCopyRefusesBadTokensAndIds)
{
    struct Case {
        char const *name;
        Form form;
        std::string bytes;
        QzStream::ErrorId error;
        char const *message;
    };
    Case const cases[] = {
        {"token_99", kForms[1], Le32(99), QzStream::ErrorParse,
         "Read \"99\", expected \"Debug Token!\"|"},
        {"token_bad", kForms[1], Le32(0), QzStream::ErrorParse,
         "Read \"0\", expected \"Debug Token!\"|"},
        {"ascii_word", kForms[3], "  Nonsense\n", QzStream::ErrorParse,
         "Read \"Nonsense\", expected \"Debug Token!\" at line 1|"},
        {"def_105", kForms[1], Le32(22, 105, kLeaf, 5, 7, 23, 1, 0), QzStream::ErrorBadObjectId,
         ""},
        {"release", kForms[0], Le32(5, 0), QzStream::ErrorNone, ""},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        ReadSide side(c.bytes, m_new.get());
        ASSERT_EQ(side.BeginBare(c.form), 1);
        QzStreamBuffer sink;
        QzWriteStream writer(&sink);
        writer.SetDebug(1);
        ASSERT_EQ(writer.Begin(0, 0), 1);
        EXPECT_EQ(side.reader.CopyDebugToEnd(&writer), 0);
        EXPECT_EQ(side.reader.GetError(), c.error);
        EXPECT_EQ(Messages(), c.message);
        EXPECT_EQ(writer.End(), 1);
    }
}

// A checked read of another kind gives null and error 24, without a message;
// the object was made all the same and is disposed of at End.
TEST_F(QzStreamObjectTest, CheckedReadRefusesAnotherKind)
{
    ReadSide side(Le32(100, kLeaf, 7, 0), m_old.get());
    ASSERT_EQ(side.BeginBare(kForms[0]), 1);
    EXPECT_EQ(side.reader.ReadCheckedObject(kGroup), nullptr);
    EXPECT_EQ(side.reader.GetError(), QzStream::ErrorWrongType);
    EXPECT_EQ(side.reader.End(1), 0);
    EXPECT_EQ(side.graph.disposed, (std::vector<LtInt32>{7}));
    EXPECT_EQ(Messages(), "");
}

// A writer refuses objects that its format cannot write, and writes nothing.
TEST_F(QzStreamObjectTest, WriterRefusesEntriesWithoutMethods)
{
    QzStreamFormat no_write = *m_old;
    no_write.EditEntry(kShape).write = nullptr;
    struct Case {
        char const *name;
        QzStreamFormat const *format;
        int entry;
        QzStream::ErrorId error;
        char const *message;
    };
    Case const cases[] = {
        {"no_format", nullptr, kLeaf, QzStream::ErrorNoFormat, "No format for stream|"},
        {"entry_9", m_old.get(), 9, QzStream::ErrorNoEntry, "No entry 9 in format for object|"},
        {"no_write", &no_write, kShape, QzStream::ErrorNoEntry,
         "No method for entry 1 in format for object|"},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        Graph graph;
        Node const *node = graph.Add(kShape, 1);
        QzStreamBuffer buffer;
        QzWriteStream writer(&buffer);
        writer.SetFormat(c.format);
        ASSERT_EQ(writer.Begin(0, 0), 1);
        EXPECT_EQ(writer.WriteObject(node, c.entry), 0u);
        EXPECT_EQ(writer.GetObjectId(node), 0u);
        EXPECT_EQ(writer.GetError(), c.error);
        EXPECT_EQ(Messages(), c.message);
        EXPECT_EQ(writer.End(), 0);
        EXPECT_EQ(buffer.GetAlignedSize(), 0);
    }
}
