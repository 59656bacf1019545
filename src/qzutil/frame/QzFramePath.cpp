// QzFramePath.cpp: UTF-16 paths to the kernel's UTF-8 and back, for the log
// file and the dump file.

#include "qzutil/frame/internal/QzFramePath.h"

#include "qzutil/sys/internal/QzUtf8.h"

int QzFramePath::ToSystemPath(LtWChar const *path, char *out, std::size_t capacity)
{
    if (capacity > 0)
        out[0] = '\0';
    if (path == nullptr)
        return -1;
    std::size_t used = 0;
    for (std::size_t i = 0; path[i] != 0;) {
        LtNat32 const unit = path[i];
        char bytes[QzUtf8::kMaxSequenceBytes];
        int count;
        if (unit == '\\') {
            bytes[0] = '/';
            count = 1;
            ++i;
        } else if (QzUtf16::IsHighSurrogate(unit) && QzUtf16::IsLowSurrogate(path[i + 1])) {
            count = QzUtf8::EncodeCharacter(QzUtf16::CombinePair(unit, path[i + 1]), bytes);
            i += 2;
        } else if (QzUtf16::IsSurrogate(unit)) {
            // A lone surrogate keeps its value in the three-byte pattern, so a
            // name the system handed out can be named again.
            bytes[0] = static_cast<char>(0xE0 | (unit >> 12));
            bytes[1] = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
            bytes[2] = static_cast<char>(0x80 | (unit & 0x3F));
            count = 3;
            ++i;
        } else {
            count = QzUtf8::EncodeCharacter(unit, bytes);
            ++i;
        }
        if (used + static_cast<std::size_t>(count) + 1 > capacity) {
            if (capacity > 0)
                out[0] = '\0';
            return -1;
        }
        for (int b = 0; b < count; ++b)
            out[used++] = bytes[b];
    }
    if (capacity == 0)
        return -1;
    out[used] = '\0';
    return static_cast<int>(used);
}

std::size_t QzFramePath::FromSystemText(char const *text, std::size_t length, LtWChar *out,
                                        std::size_t capacity)
{
    std::size_t used = 0;
    std::size_t at = 0;
    while (at < length) {
        LtNat32 code_point = 0xFFFD;
        int const taken = QzUtf8::DecodeCharacter(text + at, length - at, &code_point);
        LtWChar units[QzUtf16::kMaxCharacterUnits];
        int const count = QzUtf16::EncodeCharacter(taken > 0 ? code_point : 0xFFFD, units);
        if (used + static_cast<std::size_t>(count) + 1 > capacity)
            break;
        for (int u = 0; u < count; ++u)
            out[used++] = units[u];
        at += static_cast<std::size_t>(taken > 0 ? taken : -taken);
    }
    out[used] = 0;
    return used;
}

LtWChar QzFramePath::SeparatorAfter(LtWChar const *directory)
{
    if (directory == nullptr)
        return u'/';
    bool const is_drive = ((directory[0] >= u'a' && directory[0] <= u'z') ||
                           (directory[0] >= u'A' && directory[0] <= u'Z')) &&
                          directory[1] == u':';
    bool const is_unc = directory[0] == u'\\' && directory[1] == u'\\';
    return is_drive || is_unc ? u'\\' : u'/';
}
