// QzReadStreamConfig.cpp: the reader's side of the header line: the words
// that set the form, the format and the filters, the formats and filters on
// offer, and the entry map that a run starts with.

#include <cstring>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/internal/QzStreamObjects.h"

// Longest word of the header line; a longer one ends the line's words.
static constexpr int kMaxConfigWord = 128;

void QzReadStream::AddAvailableFormat(QzStreamFormat const *format)
{
    m_available_formats.push_back(format);
}

QzStreamFormat const *QzReadStream::GetAvailableFormat(int index) const
{
    if (index < 0 || index >= GetNumAvailableFormats())
        return nullptr;
    return m_available_formats[static_cast<std::size_t>(index)];
}

void QzReadStream::AddAvailableFilter(QzStreamFilter *filter)
{
    m_available_filters.push_back(filter);
}

QzStreamFilter *QzReadStream::GetAvailableFilter(int index) const
{
    if (index < 0 || index >= GetNumAvailableFilters())
        return nullptr;
    return m_available_filters[static_cast<std::size_t>(index)];
}

void QzReadStream::CopyConfig(QzReadStream const &other)
{
    QzStream::CopyConfig(other);
    m_available_formats = other.m_available_formats;
    m_available_filters = other.m_available_filters;
}

static bool IsNamed(char const *name, char const *word)
{
    return name != nullptr && std::strcmp(name, word) == 0;
}

int QzReadStream::ReadConfig(int check_format)
{
    CheckAscii("#QzStream-V1.1 ");
    // The four settings come from the data whatever the caller asked for, so
    // that one reader takes any stream.
    int const is_ascii = CheckOption("ascii ", "binary ");
    if (is_ascii < 0)
        return 0;
    SetAscii(is_ascii);
    int const is_double = CheckOption("double ", "single ");
    if (is_double < 0)
        return 0;
    SetDouble(is_double);
    int const is_debug = CheckOption("debug ", "release ");
    if (is_debug < 0)
        return 0;
    SetDebug(is_debug);
    int const is_utf8 = CheckOption("utf8 ", "C ");
    if (is_utf8 < 0)
        return 0;
    SetWideStringEncoding(is_utf8 ? eWIDE_UTF8 : eWIDE_MULTIBYTE);

    // The format word, then one word per filter in chain order.
    ClearActiveFilters();
    char word[kMaxConfigWord + 1];
    int length = 0;
    int is_filter = 0;
    while (length < kMaxConfigWord) {
        char const c = GetChar();
        if (IsError())
            return 0;
        if (c == '\r')
            continue;
        if (c != ' ' && c != '\n') {
            word[length++] = c;
            continue;
        }
        word[length] = '\0';
        if (!ConfigItem(word, is_filter, check_format)) {
            PostError(ErrorUnknownConfig, this, "Unknown configuration");
            return 0;
        }
        is_filter = 1;
        length = 0;
        if (c == '\n')
            break;
    }
    ReadSync();
    return IsError() ? 0 : 1;
}

int QzReadStream::ConfigItem(char const *word, int is_filter, int check_format)
{
    if (is_filter) {
        for (QzStreamFilter *filter : m_available_filters) {
            if (filter != nullptr && IsNamed(filter->GetName(), word)) {
                AddActiveFilter(filter);
                return 1;
            }
        }
        return 0;
    }
    if (std::strcmp(word, "linull") == 0) {
        SetFormat(nullptr);
        return 1;
    }
    for (QzStreamFormat const *format : m_available_formats) {
        if (format != nullptr && IsNamed(format->GetName(), word)) {
            SetFormat(format);
            m_current_read_version = format->GetVersion();
            return 1;
        }
    }
    // A newer program knows the names under which its formats were written
    // before; the callback recognises them and tells the version.
    for (QzStreamFormat const *format : m_available_formats) {
        QzStreamEarlierVersionCB const callback =
            format != nullptr ? format->GetEarlierVersionCB() : nullptr;
        if (callback != nullptr && callback(format, word, &m_current_read_version)) {
            SetFormat(format);
            return 1;
        }
    }
    return check_format ? 0 : 1;
}

void QzReadStream::FillEntryMap()
{
    if (m_current_read_format == nullptr)
        return;
    int const count = m_current_read_format->GetNumEntries();
    std::vector<int> &entry_map = m_objects->entry_map;
    entry_map.assign(static_cast<std::size_t>(count), -1);
    for (int entry = 0; entry < count; ++entry) {
        if (m_current_read_format->GetEntry(entry).parent == -1)
            entry_map[static_cast<std::size_t>(entry)] = entry;
    }
}
