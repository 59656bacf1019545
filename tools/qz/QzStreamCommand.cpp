// QzStreamCommand.cpp: "qz stream info FILE" reads a stream file's header
// line through the library's reader, says whether it is valid, and prints
// the configuration it declares.

#include "QzCommands.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamFile.h"
#include "qzutil/stream/QzStreamFilter.h"
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

static char const *EncodingWord(QzStream::WideStringEncoding encoding)
{
    return encoding == QzStream::eWIDE_MULTIBYTE ? "C (multi-byte)" : "utf8";
}

static int ShowInfo(char const *path)
{
    QzWideStringBuffer wide_path;
    (void)QzString::UTF8ToWideString(path, &wide_path);  // bad bytes become U+FFFD: the open fails
    std::string const header = ReadHeaderLine(wide_path.GetString());
    std::vector<std::string> const words = SplitWords(header);
    std::vector<std::unique_ptr<NamedFilter>> filters;
    for (std::size_t i = kFormatWord + 1; i < words.size(); ++i)
        filters.push_back(std::make_unique<NamedFilter>(words[i]));

    QzStreamFile sink(wide_path.GetString());
    QzReadStream stream(&sink);
    for (auto const &filter : filters)
        stream.AddAvailableFilter(filter.get());

    // Stream errors are posted with their id for the component QzStream.
    QzStringBuffer message;
    g_stream_message = &message;
    QzErrorOverride overrides[QzStream::ErrorNotBegun + 1];
    for (int id = 0; id <= QzStream::ErrorNotBegun; ++id)
        overrides[id].Init(KeepStreamMessage, QzSysError::eANY,
                           QzSysError::FindComponent("QzStream"), id);
    int const begun = stream.Begin(1, 0);
    g_stream_message = nullptr;
    if (!begun) {
        if (stream.GetError() == QzStream::ErrorNone)
            std::fprintf(stderr, "qz stream info: cannot open %s\n", path);
        else
            std::fprintf(stderr, "qz stream info: %s: invalid header (error %d%s%s)\n", path,
                         stream.GetError(), message.GetLength() > 0 ? ": " : "",
                         message.GetLength() > 0 ? message.GetString() : "");
        return 1;
    }
    std::printf("file:      %s\n", path);
    std::printf("header:    %s\n", header.c_str());
    std::printf("form:      %s\n", stream.IsAscii() ? "ascii" : "binary");
    std::printf("precision: %s\n", stream.IsDouble() ? "double" : "single");
    std::printf("debug:     %s\n", stream.IsDebug() ? "yes (type tokens)" : "no");
    std::printf("encoding:  %s\n", EncodingWord(stream.GetWideStringEncoding()));
    // No format is known to qz itself: the word is shown as the file has it.
    std::string const format = words.size() > kFormatWord ? words[kFormatWord] : "";
    std::printf("format:    %s\n", format.empty() || format == "linull" ? "none" : format.c_str());
    std::printf("filters:   ");
    if (stream.GetNumActiveFilters() == 0)
        std::printf("none");
    for (int i = 0; i < stream.GetNumActiveFilters(); ++i)
        std::printf("%s%s", i ? ", " : "", stream.GetActiveFilter(i)->GetName());
    std::printf("\n");
    stream.End(0);
    return 0;
}

int RunStreamCommand(int argc, char **argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "info") == 0) {
        if (WantsHelp(argc - 1, argv + 1)) {
            std::fputs(kInfoUsage, stdout);
            return 0;
        }
        if (argc != 3) {
            std::fputs(kInfoUsage, stderr);
            return 2;
        }
        QzStream::Initialise();
        int const result = ShowInfo(argv[2]);
        QzStream::Terminate();
        return result;
    }
    std::fputs(kInfoUsage, stderr);
    return 2;
}
