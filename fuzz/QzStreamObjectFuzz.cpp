// QzStreamObjectFuzz.cpp: libFuzzer target for object graphs with extensions.
// Each input is read as a stream with its own header and the format
// "objfuzz" checked, so its extension list applies: up to eight object
// records (groups, shapes, leaves, tagged shapes, and kinds that only the
// input knows, which are read as their ancestors and keep their tails). A
// debug stream is then copied to its end into a writer of the other form.
// Besides not crashing: no QzMemory block outlives the input, every object
// made is disposed of at End, End answers 0 exactly for a run in error, what
// copies cleanly writes cleanly, and a clean binary graph written back (tails
// included) reads again as the same graph.
#include "QzFuzzCheck.h"
#include "QzFuzzStreams.h"
#include "QzStreamObjectFuzzGraph.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamExtData.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/text/QzStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Streams of this size already reach every path; longer ones only cost time.
constexpr std::size_t kMaxInputBytes = 64 * 1024;
// Nesting beyond this is refused by the read method, which keeps the stack
// of a hostile input's recursion small.
constexpr int kMaxDepth = 64;
// Longer than any message that a stream posts.

static int g_live_nodes = 0;  // made by CreateNode and not yet disposed of
static int g_read_depth = 0;  // ReadNode calls in progress

static void *CreateNode(QzReadStream *, int entry)
{
    auto *node = new QzFuzzNode;
    node->kind = entry;
    ++g_live_nodes;
    return node;
}

static void DisposeNode(QzReadStream *, int, void *object)
{
    auto *node = static_cast<QzFuzzNode *>(object);
    if (node->ext != nullptr)
        node->ext->Unref();
    delete node;
    --g_live_nodes;
}

// Reads one object record and checks what it gives.
static QzFuzzNode *ReadChild(QzReadStream *stream)
{
    int entry = -2;
    QzStreamExtData *ext = nullptr;
    auto *child = static_cast<QzFuzzNode *>(stream->ReadObjectExt(&entry, &ext));
    QZ_FUZZ_CHECK(child == nullptr || !stream->IsError(), "a record that fails gives null");
    QZ_FUZZ_CHECK(ext == nullptr || child != nullptr, "a tail comes with its object");
    if (child != nullptr && child != QzFuzzAnchor())
        QZ_FUZZ_CHECK(entry == child->kind, "an object is read as the entry that made it");
    if (ext != nullptr) {
        QZ_FUZZ_CHECK(ext->GetRefCount() == 0, "a new tail has no reference yet");
        ext->Ref();
        child->ext = ext;
    }
    return child;
}

static int ReadNode(QzReadStream *stream, int entry, void *object)
{
    if (g_read_depth >= kMaxDepth)
        return 0;
    ++g_read_depth;
    auto *node = static_cast<QzFuzzNode *>(object);
    node->value = stream->ReadInt32();
    if (entry != kQzFuzzLeaf) {
        QzStringBuffer *text = stream->TempBuffer();
        stream->ReadString(text);
        node->has_label = !text->IsNull();
        node->label = node->has_label ? text->GetString() : "";
    }
    if (entry == kQzFuzzGroup) {
        LtInt32 const count = stream->ReadArraySize32WithMaximum(kQzFuzzMaxChildren);
        for (LtInt32 i = 0; i < count; ++i)
            node->children.push_back(ReadChild(stream));
    } else if (entry != kQzFuzzLeaf) {
        node->marks.resize(
            static_cast<std::size_t>(stream->ReadArraySize32WithMaximum(kQzFuzzMaxMarks)));
        stream->ReadNat16Array(node->marks.data(), static_cast<LtInt32>(node->marks.size()));
        node->leaf = static_cast<QzFuzzNode *>(stream->ReadCheckedObject(kQzFuzzLeaf));
        QZ_FUZZ_CHECK(node->leaf == nullptr || node->leaf->kind == kQzFuzzLeaf,
                      "a checked read gives only its kind");
    }
    if (entry == kQzFuzzTagged) {
        QzStringBuffer *text = stream->TempBuffer();
        stream->ReadString(text);
        node->tag = text->IsNull() ? "" : text->GetString();
        node->stamp = stream->ReadNat64();
        node->extra = ReadChild(stream);
    }
    --g_read_depth;
    return 1;
}

static QzStreamFormat const *ReaderFormat()
{
    static QzStreamFormat const format = [] {
        QzStreamFormat made("objfuzz", /*extendable=*/true);
        QzFuzzSetUpFormat(&made, 4, &CreateNode, &ReadNode, &DisposeNode);
        return made;
    }();
    return &format;
}

static void SetUpOnce()
{
    static bool is_set_up = false;
    if (is_set_up)
        return;
    is_set_up = true;
    QzFuzzSetUpStreams();
    (void)ReaderFormat();
}

// The graph as text: nodes numbered in the order that a walk from the top
// objects first meets them, so that two reads compare without pointers.
static std::string Describe(std::vector<QzFuzzNode *> const &tops)
{
    std::unordered_map<QzFuzzNode const *, std::size_t> numbers;
    std::vector<QzFuzzNode const *> queue;
    auto const ref = [&](QzFuzzNode const *node) -> std::string {
        if (node == nullptr)
            return "null ";
        if (node == QzFuzzAnchor())
            return "anchor ";
        auto const found = numbers.emplace(node, queue.size());
        if (found.second)
            queue.push_back(node);
        return "#" + std::to_string(found.first->second) + " ";
    };
    std::string text;
    for (QzFuzzNode const *top : tops)
        text += ref(top);
    // Iterative: a hostile graph may be deep.
    for (std::size_t i = 0; i < queue.size(); ++i) {
        QzFuzzNode const *node = queue[i];
        text += "\n" + std::to_string(node->kind) + " " + std::to_string(node->value) +
                (node->has_label ? " '" + node->label + "' " : " null ");
        for (QzFuzzNode const *child : node->children)
            text += ref(child);
        for (LtNat16 mark : node->marks)
            text += std::to_string(mark) + ",";
        text += ref(node->leaf) + "'" + node->tag + "' " + std::to_string(node->stamp) + " " +
                ref(node->extra);
        if (node->ext != nullptr) {
            text += "ext " + std::to_string(node->ext->GetEntry()) + " ";
            if (node->ext->GetSize() > 0)
                text.append(reinterpret_cast<char const *>(node->ext->GetData()),
                            static_cast<std::size_t>(node->ext->GetSize()));
        }
    }
    return text;
}

// Writes the graph back in the reader's binary form and format (its
// extended copy included), with the header and extension list.
static std::string WriteBack(QzReadStream const &reader, std::vector<QzFuzzNode *> const &tops)
{
    QzStreamBuffer written;
    {
        QzWriteStream writer(&written);
        writer.SetDebug(reader.IsDebug());
        writer.SetDouble(reader.IsDouble());
        writer.SetWideStringEncoding(reader.GetWideStringEncoding());
        writer.SetFormat(reader.GetCurrentReadFormat());
        QZ_FUZZ_CHECK(writer.Begin(1, 1), "the writer begins");
        QZ_FUZZ_CHECK(writer.AddObject(QzFuzzAnchor(), kQzFuzzGroup) == 100,
                      "the anchor takes the first id");
        writer.WriteArraySize32(static_cast<LtInt32>(tops.size()));
        for (QzFuzzNode const *top : tops)
            QzFuzzWriteChild(&writer, top);
        QZ_FUZZ_CHECK(writer.End(), "a graph that reads cleanly writes back cleanly");
    }
    return std::string(reinterpret_cast<char const *>(written.GetAlignedBuffer()),
                       static_cast<std::size_t>(written.GetAlignedSize()));
}

struct Outcome {
    bool is_clean = false;     // begun, read and ended without error
    std::string description;   // of the graph, when it read cleanly
    std::string written_back;  // the graph written back, when it may be compared
};

static Outcome ReadGraph(std::string const &bytes, bool write_back)
{
    Outcome outcome;
    std::vector<unsigned char> copy(bytes.begin(), bytes.end());
    QzStreamBuffer input;
    QZ_FUZZ_CHECK(
        input.SetBuffer(copy.data(), static_cast<int>(copy.size()), QzStreamBuffer::HintCopy),
        "the input fits a stream buffer");
    QzReadStream reader(&input);
    reader.AddAvailableFormat(ReaderFormat());
    if (!reader.Begin(1, 1)) {
        QZ_FUZZ_CHECK(reader.End(1) == 0, "a run that did not begin does not end");
        return outcome;
    }
    QZ_FUZZ_CHECK(!reader.IsError(), "a run begins without error");
    QZ_FUZZ_CHECK(reader.GetFormat() == nullptr || reader.GetFormat() == ReaderFormat(),
                  "only the offered format is taken");
    QZ_FUZZ_CHECK(reader.AddObject(QzFuzzAnchor(), -1, 100) == 1, "the anchor takes id 100");

    std::vector<QzFuzzNode *> tops;
    LtInt32 const count = reader.ReadArraySize32WithMaximum(kQzFuzzMaxTopObjects);
    for (LtInt32 i = 0; i < count; ++i)
        tops.push_back(ReadChild(&reader));
    bool const is_read = !reader.IsError();
    if (is_read)
        outcome.description = Describe(tops);
    if (is_read && write_back && !reader.IsAscii() && reader.GetCurrentReadFormat() != nullptr)
        outcome.written_back = WriteBack(reader, tops);

    int is_ended = 0;
    if (reader.IsDebug()) {
        QzStreamBuffer copied;
        QzWriteStream writer(&copied);
        writer.SetAscii(!reader.IsAscii());
        writer.SetDebug(1);
        writer.SetDouble(reader.IsDouble());
        writer.SetFormat(reader.GetCurrentReadFormat());
        QZ_FUZZ_CHECK(writer.Begin(1, 1), "the copy's writer begins");
        is_ended = reader.CopyDebugToEnd(&writer);
        int const is_written = writer.End();
        QZ_FUZZ_CHECK(!is_ended || is_written, "what copies cleanly writes cleanly");
    } else {
        is_ended = reader.End(1);
    }
    QZ_FUZZ_CHECK(is_ended == !reader.IsError(), "End answers 0 exactly for a run in error");
    QZ_FUZZ_CHECK(g_live_nodes == 0, "every object made is disposed of at End");
    QZ_FUZZ_CHECK(g_read_depth == 0, "every read method returned");
    outcome.is_clean = is_ended != 0;
    return outcome;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    SetUpOnce();
    QzFuzzMemoryBalance const balance;
    size = std::min(size, kMaxInputBytes);
    std::string const bytes(reinterpret_cast<char const *>(data), data != nullptr ? size : 0);
    Outcome const first = ReadGraph(bytes, /*write_back=*/true);
    if (first.is_clean && !first.written_back.empty()) {
        Outcome const second = ReadGraph(first.written_back, /*write_back=*/false);
        QZ_FUZZ_CHECK(second.is_clean, "a graph written back reads cleanly");
        QZ_FUZZ_CHECK(second.description == first.description,
                      "a graph written back reads as the same graph");
    }
    return 0;
}
