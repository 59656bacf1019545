// QzStreamObjectSeeds.cpp: writes the seed corpus of QzStreamObjectFuzz with
// the library's own QzWriteStream: a graph of every kind, the newest kind
// unknown to the fuzzed reader (so that it keeps tails), in each form; a
// cycle; a graph of the reader's own format; a stream without a format; and
// records and extension lists that a reader must refuse.
//
// Built with the fuzz preset only. Rerun after changing the graph or a seed,
// from the source root, and review the diff:
//   cmake --build build/fuzz --target QzStreamObjectSeeds
//   build/fuzz/fuzz/QzStreamObjectSeeds fuzz/corpus/QzStreamObjectFuzz
#include "QzFuzzStreams.h"
#include "QzStreamObjectFuzzGraph.h"

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>

#include "qzutil/stream/QzStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"

[[noreturn]] static void Fail(char const *what)
{
    QzFuzzSeedFailed("QzStreamObjectSeeds", what);
}

// The settings of one written stream.
struct SeedForm {
    int ascii;
    int is_double;
    int debug;
};

constexpr SeedForm kBinary = {0, 1, 0};
constexpr SeedForm kBinaryDebug = {0, 1, 1};

// One graph of every kind: a root group with a shape, a tagged shape that
// refers back to it, a striped shape whose own part has one more leaf (unless
// the format lacks the kind), a use of a leaf, a null, and the anchor; then
// uses at the top, one of them of the leaf inside the striped part, and a
// group that holds itself.
class FullGraph {
public:
    explicit FullGraph(bool with_striped)
    {
        QzFuzzNode *const leaves[] = {Leaf(30), Leaf(31), Leaf(32), Leaf(33), Leaf(35)};
        QzFuzzNode *shape = Make(kQzFuzzShape, 2, "shape");
        shape->marks = {1, 2, 0xFFFF};
        shape->leaf = leaves[0];
        m_tagged = Make(kQzFuzzTagged, 3, "");
        m_tagged->has_label = false;
        m_tagged->leaf = leaves[1];
        m_tagged->tag = "t";
        m_tagged->stamp = 0x1122334455667788ULL;
        m_tagged->extra = shape;
        QzFuzzNode *striped = Make(kQzFuzzStriped, 4, "st");
        striped->marks = {9};
        striped->leaf = leaves[2];
        striped->tag = "s";
        striped->stamp = 5;
        striped->extra = leaves[3];
        striped->striped_child = leaves[4];
        m_inner_leaf = leaves[4];
        m_root = Make(kQzFuzzGroup, 1, "root");
        m_root->children = {shape,     m_tagged, with_striped ? striped : leaves[3],
                            leaves[0], nullptr,  QzFuzzAnchor()};
        m_cycle = Make(kQzFuzzGroup, 6, "cycle");
        m_cycle->children = {m_cycle};
    }

    void Write(QzWriteStream *writer) const
    {
        QzFuzzNode const *const tops[] = {m_root, m_tagged, m_inner_leaf, m_cycle};
        writer->WriteArraySize32(4);
        for (QzFuzzNode const *top : tops)
            QzFuzzWriteChild(writer, top);
    }

private:
    QzFuzzNode *Make(int kind, LtInt32 value, char const *label)
    {
        m_nodes.emplace_back();
        QzFuzzNode *node = &m_nodes.back();
        node->kind = kind;
        node->value = value;
        node->label = label;
        return node;
    }
    QzFuzzNode *Leaf(LtInt32 value) { return Make(kQzFuzzLeaf, value, ""); }

    std::deque<QzFuzzNode> m_nodes;  // stable addresses
    QzFuzzNode *m_root;
    QzFuzzNode *m_tagged;
    QzFuzzNode *m_inner_leaf;
    QzFuzzNode *m_cycle;
};

// Writes one stream with a header; `format_name` names a format that the
// writer does not have, for lists and records written by hand.
template <typename Body>
static std::string WriteStream(SeedForm const &form, QzStreamFormat const *format,
                               char const *format_name, Body const &write_body)
{
    QzStreamBuffer buffer;
    {
        QzWriteStream writer(&buffer);
        writer.SetAscii(form.ascii);
        writer.SetDouble(form.is_double);
        writer.SetDebug(form.debug);
        writer.SetFormat(format);
        if (format_name != nullptr)
            writer.SetFormatName(format_name);
        if (!writer.Begin(1, 1))
            Fail("a writer does not begin");
        if (writer.AddObject(QzFuzzAnchor(), kQzFuzzGroup) != 100)
            Fail("the anchor does not take id 100");
        write_body(&writer);
        if (!writer.End())
            Fail("a writer does not end cleanly");
    }
    return std::string(reinterpret_cast<char const *>(buffer.GetAlignedBuffer()),
                       static_cast<std::size_t>(buffer.GetAlignedSize()));
}

static void WriteSeed(std::filesystem::path const &folder, char const *name,
                      std::string const &bytes)
{
    QzFuzzWriteSeed("QzStreamObjectSeeds", folder, name, bytes);
}

// A list of one extension record, by hand, ahead of an empty body.
static std::string ExtensionSeed(LtInt32 index, char const *name, LtInt32 parent)
{
    return WriteStream(kBinary, nullptr, "objfuzz", [&](QzWriteStream *writer) {
        writer->WriteInt32(index);
        writer->WriteString(name);
        writer->WriteInt32(parent);
        writer->WriteInt32(-1);
        writer->WriteArraySize32(0);
    });
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus folder>\n", argv[0]);
        return 2;
    }
    std::filesystem::path const folder = argv[1];
    std::filesystem::create_directories(folder);
    QzStream::Initialise();
    {
        QzStreamFormat newer("objfuzz", /*extendable=*/true);
        QzFuzzSetUpFormat(&newer, 5, nullptr, nullptr, nullptr);
        QzStreamFormat reader_format("objfuzz", /*extendable=*/true);
        QzFuzzSetUpFormat(&reader_format, 4, nullptr, nullptr, nullptr);
        FullGraph const graph(/*with_striped=*/true);
        auto const write_graph = [&graph](QzWriteStream *writer) { graph.Write(writer); };
        FullGraph const known_graph(/*with_striped=*/false);

        struct Named {
            char const *name;
            SeedForm form;
        };
        Named const forms[] = {{"binary_release", kBinary},
                               {"binary_debug", kBinaryDebug},
                               {"binary_single_debug", {0, 0, 1}},
                               {"ascii_release", {1, 1, 0}},
                               {"ascii_debug", {1, 1, 1}}};
        for (Named const &named : forms)
            WriteSeed(folder, named.name, WriteStream(named.form, &newer, nullptr, write_graph));
        WriteSeed(
            folder, "reader_format_binary_debug",
            WriteStream(kBinaryDebug, &reader_format, nullptr,
                        [&known_graph](QzWriteStream *writer) { known_graph.Write(writer); }));

        // Cut within the striped shape's own part.
        std::string const debug_stream = WriteStream(kBinaryDebug, &newer, nullptr, write_graph);
        WriteSeed(folder, "cut_in_tail", debug_stream.substr(0, debug_stream.size() * 2 / 3));

        WriteSeed(folder, "no_format_null_record",
                  WriteStream(kBinary, nullptr, nullptr, [](QzWriteStream *writer) {
                      writer->WriteArraySize32(1);
                      writer->WriteObject(nullptr, kQzFuzzGroup);
                  }));
        WriteSeed(folder, "use_99",
                  WriteStream(kBinary, &reader_format, nullptr, [](QzWriteStream *writer) {
                      writer->WriteArraySize32(1);
                      writer->SendNat32(1);
                      writer->SendNat32(99);
                  }));
        WriteSeed(folder, "definition_out_of_sequence",
                  WriteStream(kBinary, &reader_format, nullptr, [](QzWriteStream *writer) {
                      writer->WriteArraySize32(1);
                      writer->SendNat32(105);
                      writer->SendNat32(kQzFuzzLeaf);
                      writer->WriteInt32(7);
                  }));
        WriteSeed(folder, "extension_index_16385", ExtensionSeed(16385, "Wide", 1));
        WriteSeed(folder, "extension_parent_unmapped", ExtensionSeed(5, "Loose", 4));
        WriteSeed(folder, "extension_known_other_parent", ExtensionSeed(3, "Tagged", 2));
    }
    QzStream::Terminate();
    return 0;
}
