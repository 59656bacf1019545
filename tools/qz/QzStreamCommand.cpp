// QzStreamCommand.cpp: "qz stream info FILE" checks a stream file's header
// and prints the configuration it declares; "qz stream cat FILE" decodes a
// debug stream into readable ascii without knowing its format; "qz stream
// convert" re-encodes a debug stream between the binary and ascii forms.

#include "QzCommands.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamFile.h"
#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

static char const kInfoUsage[] =
    "usage: qz stream info FILE\n"
    "\n"
    "Reads the header line of the stream file FILE and checks it as a reader\n"
    "would (the magic words, the four settings, and in binary the zero padding\n"
    "after the line). Prints the form (binary or ascii), the precision of Float\n"
    "values, whether debug tokens are present, the wide-string encoding, the\n"
    "object format and the filters that the data pass through.\n"
    "Exits with 0 for a valid header, 1 otherwise.\n";

static char const kCatUsage[] =
    "usage: qz stream cat FILE\n"
    "\n"
    "Decodes the debug-form stream file FILE (binary or ascii) and prints it as\n"
    "an ascii debug stream: every value with its type token, objects with their\n"
    "ids, whatever format wrote them. Exits with 0 when the whole file was\n"
    "decoded, 1 otherwise (the output then stops where the data went wrong).\n";

static char const kConvertUsage[] =
    "usage: qz stream convert --to ascii|binary FILE OUT\n"
    "\n"
    "Re-encodes the debug-form stream file FILE into OUT in the form asked for,\n"
    "value by value, keeping its precision, wide-string encoding and format\n"
    "name, so that its own readers read OUT as they read FILE. Exits with 0 on\n"
    "success, 1 if FILE could not be decoded or OUT not written.\n";

// Stands in for a filter that the header names, so that the header can be
// checked without the filter's own library: nothing is read through it.
class NamedFilter : public QzStreamFilter {
public:
    explicit NamedFilter(std::string name) : m_name(std::move(name)) {}
    int WriteLock(unsigned char **, int *) override { return 0; }
    int WriteProcess(int) override { return 0; }
    QzFileURL::Status ReadLock(unsigned char const **, int *) override
    {
        return QzFileURL::eSTATUS_ERROR;
    }
    int ReadProcess(int) override { return 0; }
    char const *GetName() const override { return m_name.c_str(); }

private:
    std::string m_name;
};

// The first line of the file (at most 4 KiB), without its line end.
static std::string ReadHeaderLine(LtWChar const *path)
{
    std::FILE *file = QzSysFile::fopenW(path, "rb");
    if (file == nullptr)
        return std::string();
    char line[4096];
    std::size_t const size = QzSysFile::fread(line, 1, sizeof line, file);
    QzSysFile::fclose(file);
    std::string text(line, size);
    text = text.substr(0, text.find('\n'));
    if (!text.empty() && text.back() == '\r')
        text.pop_back();
    return text;
}

// The blank-separated words of a header line.
static std::vector<std::string> SplitWords(std::string const &line)
{
    std::vector<std::string> words;
    for (std::size_t at = 0; at <= line.size();) {
        std::size_t const end = std::min(line.find(' ', at), line.size());
        words.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

// The header's words: the magic word, four settings, the format, then the
// filters in chain order.
constexpr std::size_t kFormatWord = 5;

// The last message that the stream posted while reading the header.
static QzStringBuffer *g_stream_message = nullptr;

static int KeepStreamMessage(QzSysError::Severity, QzComponent *, int, void *,
                             LtWChar const *message)
{
    if (g_stream_message != nullptr)
        QzWideString::ExtractUTF8String(message, g_stream_message);
    return 1;
}

// Keeps the last message that the streams post while it lives. Stream
// errors are posted with their id for the component QzStream, and only a
// handler for that id is offered them.
class StreamMessages {
public:
    StreamMessages()
    {
        g_stream_message = &m_text;
        for (int id = 0; id <= QzStream::ErrorNotBegun; ++id)
            m_overrides[id].Init(KeepStreamMessage, QzSysError::eANY,
                                 QzSysError::FindComponent("QzStream"), id);
    }
    ~StreamMessages() { g_stream_message = nullptr; }
    StreamMessages(StreamMessages const &) = delete;
    StreamMessages &operator=(StreamMessages const &) = delete;

    QzStringBuffer const &Last() const { return m_text; }

private:
    QzStringBuffer m_text;
    QzErrorOverride m_overrides[QzStream::ErrorNotBegun + 1];  // restored first
};

static char const *EncodingWord(QzStream::WideStringEncoding encoding)
{
    return encoding == QzStream::eWIDE_MULTIBYTE ? "C (multi-byte)" : "utf8";
}

// One stream file opened for reading, with what its header line says in
// words and the messages its reader posts.
class StreamSource {
public:
    explicit StreamSource(char const *path)
        : m_path(path), m_wide_path(WidePath(path)), m_sink(m_wide_path.GetString()),
          m_stream(&m_sink)
    {
        m_header = ReadHeaderLine(m_wide_path.GetString());
        m_words = SplitWords(m_header);
    }

    // Offers a stand-in for each filter that the header names, so that the
    // header can be checked without the filters' own libraries.
    void AcceptNamedFilters()
    {
        for (std::size_t i = kFormatWord + 1; i < m_words.size(); ++i) {
            m_filters.push_back(std::make_unique<NamedFilter>(m_words[i]));
            m_stream.AddAvailableFilter(m_filters.back().get());
        }
    }

    // Offers a stand-in for the header's object format, so that object
    // records copy without the format's own library: entries by number, as
    // binary files record them, and for an ascii file also the kind names
    // that its definitions use, each given a number of its own.
    void AcceptAnyFormat()
    {
        char const *name = GetFormatWord();
        if (name == nullptr)
            return;
        m_format = std::make_unique<QzStreamFormat>(name, false);
        std::vector<std::string> const kinds = ReadDefinitionNames();
        for (int entry = 0; entry < kStandInEntries; ++entry) {
            std::size_t const index = static_cast<std::size_t>(entry);
            m_format->SetEntry(entry, nullptr, nullptr, nullptr,
                               index < kinds.size() ? kinds[index].c_str() : nullptr, -1);
        }
        m_has_named_kinds = !kinds.empty();
        m_stream.AddAvailableFormat(m_format.get());
    }
    QzStreamFormat const *GetStandInFormat() const { return m_format.get(); }
    // True when an ascii file names its object kinds: their numbers are known
    // only to the format's own library.
    bool HasNamedKinds() const { return m_has_named_kinds; }

    // Reads the header; on failure says why, prefixed by `command`.
    bool Begin(char const *command)
    {
        StreamMessages messages;
        if (m_stream.Begin(1, 0))
            return true;
        if (m_stream.GetError() == QzStream::ErrorNone)
            std::fprintf(stderr, "%s: cannot open %s\n", command, m_path);
        else if (m_stream.GetError() == QzStream::ErrorUnknownConfig)
            std::fprintf(stderr, "%s: %s passes through filters that qz cannot decode: %s\n",
                         command, m_path, m_header.c_str());
        else
            ReportError(command, "invalid header", messages.Last());
        return false;
    }

    // The format word of the header, or null for "linull" or none.
    char const *GetFormatWord() const
    {
        if (m_words.size() <= kFormatWord || m_words[kFormatWord].empty() ||
            m_words[kFormatWord] == "linull")
            return nullptr;
        return m_words[kFormatWord].c_str();
    }

    void ReportError(char const *command, char const *what, QzStringBuffer const &message) const
    {
        std::fprintf(stderr, "%s: %s: %s (error %d%s%s)\n", command, m_path, what,
                     m_stream.GetError(), message.GetLength() > 0 ? ": " : "",
                     message.GetLength() > 0 ? message.GetString() : "");
    }

    char const *GetPath() const { return m_path; }
    std::string const &GetHeader() const { return m_header; }
    QzReadStream &GetStream() { return m_stream; }

private:
    // Entry numbers that the stand-in format covers; extensions of a format
    // are numbered below 16,385.
    static constexpr int kStandInEntries = 16385;

    // The kind names after "DEF <id>" in an ascii file, in order of first
    // use; numbers are left out, since they need no name.
    std::vector<std::string> ReadDefinitionNames() const
    {
        std::vector<std::string> names;
        if (m_words.size() < 2 || m_words[1] != "ascii")
            return names;
        std::FILE *file = QzSysFile::fopenW(m_wide_path.GetString(), "rb");
        if (file == nullptr)
            return names;
        char line[4096];
        while (std::fgets(line, sizeof line, file) != nullptr) {
            char id[32];
            char kind[256];
            if (std::sscanf(line, " DEF %31s %255s", id, kind) != 2 ||
                std::strspn(kind, "0123456789") == std::strlen(kind))
                continue;
            if (std::find(names.begin(), names.end(), kind) == names.end())
                names.push_back(kind);
        }
        QzSysFile::fclose(file);
        return names;
    }

    static QzWideStringBuffer WidePath(char const *path)
    {
        QzWideStringBuffer wide;
        (void)QzString::UTF8ToWideString(path, &wide);  // bad bytes become U+FFFD: the open fails
        return wide;
    }

    char const *m_path;
    QzWideStringBuffer m_wide_path;
    std::string m_header;
    std::vector<std::string> m_words;
    std::vector<std::unique_ptr<NamedFilter>> m_filters;
    std::unique_ptr<QzStreamFormat> m_format;  // the stand-in, if any
    bool m_has_named_kinds = false;
    QzStreamFile m_sink;
    QzReadStream m_stream;
};

static int ShowInfo(char const *path)
{
    StreamSource source(path);
    source.AcceptNamedFilters();
    if (!source.Begin("qz stream info"))
        return 1;
    QzReadStream &stream = source.GetStream();
    std::printf("file:      %s\n", path);
    std::printf("header:    %s\n", source.GetHeader().c_str());
    std::printf("form:      %s\n", stream.IsAscii() ? "ascii" : "binary");
    std::printf("precision: %s\n", stream.IsDouble() ? "double" : "single");
    std::printf("debug:     %s\n", stream.IsDebug() ? "yes (type tokens)" : "no");
    std::printf("encoding:  %s\n", EncodingWord(stream.GetWideStringEncoding()));
    // No format is known to qz itself: the word is shown as the file has it.
    char const *format = source.GetFormatWord();
    std::printf("format:    %s\n", format ? format : "none");
    std::printf("filters:   ");
    if (stream.GetNumActiveFilters() == 0)
        std::printf("none");
    for (int i = 0; i < stream.GetNumActiveFilters(); ++i)
        std::printf("%s%s", i ? ", " : "", stream.GetActiveFilter(i)->GetName());
    std::printf("\n");
    stream.End(0);
    return 0;
}

// Copies the debug stream of `source` into `sink` as a debug stream of the
// same settings but the form `ascii`.
static int Reencode(char const *command, StreamSource &source, QzStreamSink *sink, int ascii)
{
    source.AcceptAnyFormat();
    if (!source.Begin(command))
        return 1;
    QzReadStream &in = source.GetStream();
    if (!ascii && source.HasNamedKinds()) {
        std::fprintf(stderr,
                     "%s: %s names its object kinds; their numbers, which the binary form "
                     "records, are known only to the format that wrote it\n",
                     command, source.GetPath());
        in.End(0);
        return 1;
    }
    if (!in.IsDebug()) {
        std::fprintf(stderr, "%s: %s is not a debug stream: its values carry no type tokens\n",
                     command, source.GetPath());
        in.End(0);
        return 1;
    }
    QzWriteStream out(sink);
    out.CopyConfig(static_cast<QzStream const &>(in));
    out.SetAscii(ascii);
    out.SetFormat(source.GetStandInFormat());  // named by the file's own format word
    StreamMessages messages;
    bool ok = out.Begin(1, 0) != 0;
    bool const copied = ok && in.CopyAllDebugData(&out) != 0;
    ok = ok && out.End() != 0 && copied;
    if (!ok && in.GetError() == QzStream::ErrorBadObjectId)
        std::fprintf(stderr,
                     "%s: %s: an object definition out of sequence: the file counts on objects "
                     "that its program registered by other means, which only its format can "
                     "copy (error %d)\n",
                     command, source.GetPath(), QzStream::ErrorBadObjectId);
    else if (!ok)
        source.ReportError(command, copied ? "cannot write the output" : "cannot decode",
                           messages.Last());
    return ok ? 0 : 1;
}

static int CatStream(char const *path)
{
    StreamSource source(path);
    std::fflush(stdout);
    QzStreamFileHandle sink(stdout);
    int const result = Reencode("qz stream cat", source, &sink, 1);
    std::fflush(stdout);
    return result;
}

static int ConvertStream(char const *form, char const *path, char const *out_path)
{
    if (std::strcmp(form, "ascii") != 0 && std::strcmp(form, "binary") != 0) {
        std::fputs(kConvertUsage, stderr);
        return 2;
    }
    QzWideStringBuffer wide_out;
    (void)QzString::UTF8ToWideString(out_path, &wide_out);
    StreamSource source(path);
    QzStreamFile sink(wide_out.GetString());
    return Reencode("qz stream convert", source, &sink, std::strcmp(form, "ascii") == 0);
}

// One subcommand: its name, usage, argument count (after the name) and run.
struct StreamSubcommand {
    char const *name;
    char const *usage;
    int arguments;
    int (*run)(char **arguments);
};

static int RunInfo(char **arguments)
{
    return ShowInfo(arguments[0]);
}

static int RunCat(char **arguments)
{
    return CatStream(arguments[0]);
}

static int RunConvert(char **arguments)
{
    if (std::strcmp(arguments[0], "--to") != 0) {
        std::fputs(kConvertUsage, stderr);
        return 2;
    }
    return ConvertStream(arguments[1], arguments[2], arguments[3]);
}

static StreamSubcommand const kSubcommands[] = {
    {"info", kInfoUsage, 1, RunInfo},
    {"cat", kCatUsage, 1, RunCat},
    {"convert", kConvertUsage, 4, RunConvert},
};

int RunStreamCommand(int argc, char **argv)
{
    for (StreamSubcommand const &sub : kSubcommands) {
        if (argc < 2 || std::strcmp(argv[1], sub.name) != 0)
            continue;
        if (WantsHelp(argc - 1, argv + 1)) {
            std::fputs(sub.usage, stdout);
            return 0;
        }
        if (argc != 2 + sub.arguments) {
            std::fputs(sub.usage, stderr);
            return 2;
        }
        QzStream::Initialise();
        int const result = sub.run(argv + 2);
        QzStream::Terminate();
        return result;
    }
    for (StreamSubcommand const &sub : kSubcommands)
        std::fputs(sub.usage, stderr);
    return 2;
}
