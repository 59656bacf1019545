// QzSysFilePath.cpp: the path operations of QzSysFile. Pure text: both
// separators, the three absolute prefixes, and the same answers on every
// platform, so that paths written elsewhere resolve the same here.

#include <string>

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/sys/internal/QzSysWideCType.h"
#include "qzutil/text/QzWideStringBuffer.h"

// Working copies: every operation copies its inputs first, so an output may
// be the buffer of an input.
using PathText = std::u16string;

static constexpr LtWChar kSeparators[] = u"/\\";

static bool IsSeparator(LtWChar unit)
{
    return unit == u'/' || unit == u'\\';
}

static bool IsAsciiLetter(LtWChar unit)
{
    return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z');
}

static PathText ToText(LtWChar const *text)
{
    return text != nullptr ? PathText(text) : PathText();
}

static void Store(PathText const &text, QzWideStringBuffer *out)
{
    if (out != nullptr)
        out->SetString(text.c_str(), static_cast<int>(text.size()));
}

// 1 for "/x", 2 for "\\x", 3 for "c:\" or "c:/"; 0 for anything else.
static int AbsolutePrefix(PathText const &path)
{
    std::size_t length = path.size();
    if (length >= 2 && path[0] == u'/')
        return 1;
    if (length >= 3 && path[0] == u'\\' && path[1] == u'\\')
        return 2;
    if (length >= 3 && IsAsciiLetter(path[0]) && path[1] == u':' && IsSeparator(path[2]))
        return 3;
    return 0;
}

// The separator to insert when the caller did not choose: text with a server
// or drive prefix keeps the backslash form.
static LtWChar InsertedSeparator(PathText const &path)
{
    int prefix = AbsolutePrefix(path);
    return prefix == 2 || prefix == 3 ? u'\\' : u'/';
}

static PathText Normalised(PathText path)
{
    std::size_t first = 0;
    while (first < path.size() && QzSysWideCType::IsSpace(path[first]))
        ++first;
    std::size_t end = path.size();
    while (end > first && QzSysWideCType::IsSpace(path[end - 1]))
        --end;
    path = path.substr(first, end - first);
    int prefix = AbsolutePrefix(path);
    // Backslashes first, then slashes: "a/\" loses both, "a\/" keeps its "\".
    while (!path.empty() && path.back() == u'\\')
        path.pop_back();
    while (!path.empty() && path.back() == u'/')
        path.pop_back();
    if (static_cast<int>(path.size()) < prefix) {
        if (prefix == 1)
            path = u"/";
        else if (prefix == 2)
            path = u"\\\\";
        else
            path += u'\\';  // "c:" from "c:\" or "c:/"
    }
    return path;
}

static PathText Pushed(PathText const &base, PathText const &tail, LtWChar separator)
{
    if (base.empty())
        return tail;
    if (tail.empty())
        return base;
    PathText result = base;
    if (!IsSeparator(base.back()))
        result += separator;
    result.append(tail, IsSeparator(tail[0]) ? 1 : 0, PathText::npos);
    return result;
}

// Splits the normalised path at its last separator. The directory of an
// absolute path keeps its whole prefix.
static void SplitDirectory(PathText const &path, PathText *directory, PathText *filename)
{
    PathText normal = Normalised(path);
    int prefix = AbsolutePrefix(normal);
    std::size_t cut = normal.find_last_of(kSeparators);
    if (cut == PathText::npos) {
        directory->clear();
        *filename = normal;
    } else if (static_cast<int>(cut) < prefix) {
        *directory = normal.substr(0, static_cast<std::size_t>(prefix));
        *filename = normal.substr(static_cast<std::size_t>(prefix));
    } else {
        *directory = normal.substr(0, cut);
        *filename = normal.substr(cut + 1);
    }
}

static PathText FileNameOf(PathText const &path)
{
    PathText directory, filename;
    SplitDirectory(path, &directory, &filename);
    return filename;
}

// The extension of the last element, without its dot; npos when none.
static std::size_t ExtensionDot(PathText const &normal)
{
    std::size_t dot = normal.rfind(u'.');
    std::size_t separator = normal.find_last_of(kSeparators);
    if (dot == PathText::npos || (separator != PathText::npos && dot < separator))
        return PathText::npos;
    return dot;
}

static PathText WithoutDot(PathText const &ext)
{
    return !ext.empty() && ext[0] == u'.' ? ext.substr(1) : ext;
}

static bool SameIgnoringAsciiCase(PathText const &a, PathText const &b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        LtWChar x = a[i] >= u'A' && a[i] <= u'Z' ? static_cast<LtWChar>(a[i] + 32) : a[i];
        LtWChar y = b[i] >= u'A' && b[i] <= u'Z' ? static_cast<LtWChar>(b[i] + 32) : b[i];
        if (x != y)
            return false;
    }
    return true;
}

bool QzSysFile::IsAbsoluteW(LtWChar const *path)
{
    return AbsolutePrefix(ToText(path)) != 0;
}

bool QzSysFile::IsAbsoluteW(LtWChar const *path, int *prefix)
{
    int found = AbsolutePrefix(ToText(path));
    if (prefix != nullptr)
        *prefix = found;
    return found != 0;
}

bool QzSysFile::NormalizePathW(LtWChar const *path, QzWideStringBuffer *out)
{
    if (path != nullptr)
        Store(Normalised(path), out);
    return true;
}

void QzSysFile::PushPathW(LtWChar const *base, LtWChar const *tail, QzWideStringBuffer *out,
                          bool forward_slash)
{
    Store(Pushed(ToText(base), ToText(tail), forward_slash ? u'/' : u'\\'), out);
}

void QzSysFile::JoinPathsW(LtWChar const *a, LtWChar const *b, QzWideStringBuffer *out)
{
    JoinPathsW(a, b, nullptr, nullptr, out);
}

void QzSysFile::JoinPathsW(LtWChar const *a, LtWChar const *b, LtWChar const *c,
                           QzWideStringBuffer *out)
{
    JoinPathsW(a, b, c, nullptr, out);
}

void QzSysFile::JoinPathsW(LtWChar const *a, LtWChar const *b, LtWChar const *c, LtWChar const *d,
                           QzWideStringBuffer *out)
{
    PathText joined = ToText(a);
    for (LtWChar const *part : {b, c, d})
        joined = Pushed(joined, ToText(part), InsertedSeparator(joined));
    Store(joined, out);
}

void QzSysFile::PopPathW(LtWChar const *path, QzWideStringBuffer *out, QzWideStringBuffer *last)
{
    PathText directory, filename;
    SplitDirectory(ToText(path), &directory, &filename);
    if (filename.empty())
        directory.clear();
    Store(directory, out);
    Store(filename, last);
}

void QzSysFile::SplitPathW(LtWChar const *path, QzWideStringBuffer *dir, QzWideStringBuffer *name,
                           QzWideStringBuffer *ext)
{
    PathText directory, filename;
    SplitDirectory(ToText(path), &directory, &filename);
    Store(directory, dir);
    // filename is a copy, so name may alias ext or the path.
    SplitFilenameExtW(filename.c_str(), name, ext);
}

void QzSysFile::SplitFilenameW(LtWChar const *path, QzWideStringBuffer *dir,
                               QzWideStringBuffer *filename)
{
    SplitPathW(path, dir, filename, nullptr);
}

void QzSysFile::SplitFilenameExtW(LtWChar const *name, QzWideStringBuffer *stem,
                                  QzWideStringBuffer *ext)
{
    PathText text = ToText(name);
    std::size_t dot = text.rfind(u'.');
    if (ext == nullptr || dot == PathText::npos) {
        Store(text, stem);
        Store(PathText(), ext);
        return;
    }
    Store(text.substr(0, dot), stem);
    Store(text.substr(dot + 1), ext);
}

void QzSysFile::AddFileExtensionW(LtWChar const *path, LtWChar const *ext, QzWideStringBuffer *out)
{
    PathText result = Normalised(ToText(path));
    PathText bare = WithoutDot(ToText(ext));
    if (!bare.empty())
        result += u'.' + bare;
    Store(result, out);
}

void QzSysFile::GetFileExtensionW(LtWChar const *path, QzWideStringBuffer *out)
{
    PathText normal = Normalised(ToText(path));
    std::size_t dot = ExtensionDot(normal);
    Store(dot == PathText::npos ? PathText() : normal.substr(dot + 1), out);
}

bool QzSysFile::HasFileExtensionW(LtWChar const *path, LtWChar const *ext)
{
    PathText normal = Normalised(ToText(path));
    std::size_t dot = ExtensionDot(normal);
    PathText found = dot == PathText::npos ? PathText() : normal.substr(dot + 1);
    return SameIgnoringAsciiCase(found, WithoutDot(ToText(ext)));
}

void QzSysFile::RemoveFileExtensionW(LtWChar const *path, QzWideStringBuffer *out)
{
    PathText normal = Normalised(ToText(path));
    std::size_t dot = ExtensionDot(normal);
    if (dot != PathText::npos)
        normal.resize(dot);
    Store(normal, out);
}

void QzSysFile::ReplaceFileExtensionW(LtWChar const *path, LtWChar const *ext,
                                      QzWideStringBuffer *out)
{
    QzWideStringBuffer stripped;
    RemoveFileExtensionW(path, &stripped);
    AddFileExtensionW(stripped.GetString(), ext, out);
}

void QzSysFile::RemovePathnameW(LtWChar const *path, QzWideStringBuffer *out)
{
    Store(FileNameOf(ToText(path)), out);
}

void QzSysFile::MakeAbsoluteW(LtWChar const *relative, LtWChar const *base, QzWideStringBuffer *out)
{
    PathText base_text = ToText(base);
    PathText walk = ToText(relative);
    int prefix = AbsolutePrefix(base_text);
    if (prefix == 0) {
        Store(PathText(), out);
        return;
    }
    PathText result = base_text;
    if (!walk.empty() && IsSeparator(walk[0])) {
        // Rooted: keep the root of the base ("/", "\\" or "c:\").
        std::size_t root = prefix == 1 ? 1 : IsSeparator(base_text[1]) ? 2 : 3;
        result = base_text.substr(0, root) + walk.substr(1);
    } else if (!walk.empty()) {
        LtWChar separator = InsertedSeparator(base_text);
        std::size_t start = 0;
        while (start <= walk.size()) {
            std::size_t end = walk.find_first_of(kSeparators, start);
            if (end == PathText::npos)
                end = walk.size();
            PathText element = walk.substr(start, end - start);
            if (element == u"..") {
                PathText directory, filename;
                SplitDirectory(result, &directory, &filename);
                if (!filename.empty())  // at the root ".." stays there
                    result = directory;
            } else if (!element.empty() && element != u".") {
                result = Pushed(result, element, separator);
            }
            start = end + 1;
        }
    }
    Store(result, out);
}

// Elements of a remainder (the text behind the prefix).
static int CountElements(PathText const &remainder)
{
    if (remainder.empty())
        return 0;
    int count = 1;
    for (LtWChar unit : remainder)
        count += IsSeparator(unit) ? 1 : 0;
    return count;
}

static void CutLastElement(PathText *remainder)
{
    std::size_t cut = remainder->find_last_of(kSeparators);
    remainder->resize(cut == PathText::npos ? 0 : cut);
}

static bool SameElements(PathText const &a, PathText const &b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && !(IsSeparator(a[i]) && IsSeparator(b[i])))
            return false;
    }
    return true;
}

void QzSysFile::MakeRelativeW(LtWChar const *path, LtWChar const *base, QzWideStringBuffer *out,
                              bool forward_slash)
{
    PathText target = Normalised(ToText(path));
    PathText origin = Normalised(ToText(base));
    int prefix = AbsolutePrefix(target);
    if (prefix == 0 || prefix != AbsolutePrefix(origin) ||
        (prefix == 1 && target[0] != origin[0])) {
        Store(PathText(), out);
        return;
    }
    std::size_t skip = static_cast<std::size_t>(prefix);
    PathText target_rest = target.substr(skip);
    PathText origin_rest = origin.substr(skip);
    int target_count = CountElements(target_rest);
    int origin_count = CountElements(origin_rest);
    bool target_deeper = target_count > origin_count;
    LtWChar separator = forward_slash ? u'/' : u'\\';
    PathText built;
    for (; target_count > origin_count; --target_count)
        CutLastElement(&target_rest);
    for (; origin_count > target_count; --origin_count) {
        built = Pushed(built, u"..", separator);
        CutLastElement(&origin_rest);
    }
    while (!SameElements(target_rest, origin_rest)) {
        built = Pushed(built, u"..", separator);
        CutLastElement(&target_rest);
        CutLastElement(&origin_rest);
    }
    if (target_rest.empty() && target_deeper) {
        Store(PathText(), out);
        return;
    }
    PathText rest = target.substr(skip + target_rest.size());
    if (!rest.empty() && IsSeparator(rest[0]))
        rest.erase(0, 1);  // the separator behind the matched part
    Store(Pushed(built, rest, separator), out);
}

bool QzSysFile::MakeValidFilenameW(LtWChar const *name, QzWideStringBuffer *out)
{
    static constexpr LtWChar kInvalid[] = u"\\/:*?\"<>|";
    PathText text = ToText(name);
    PathText valid;
    for (LtWChar unit : text) {
        if (PathText(kInvalid).find(unit) == PathText::npos)
            valid += unit;
    }
    bool changed = valid.size() != text.size();
    // A component made from outside text must not leave its directory.
    if (valid == u"." || valid == u"..") {
        valid = u"_";
        changed = true;
    }
    Store(valid, out);
    return changed;
}

static bool SameUnitIgnoringCase(LtWChar a, LtWChar b)
{
    return a == b || QzSysWideCType::ToLower(a) == QzSysWideCType::ToLower(b);
}

// "*" and "?" over the whole name, backtracking to the last "*" on a
// mismatch: linear in practice, quadratic at worst.
static bool MatchesWildcard(PathText const &name, PathText const &pattern)
{
    std::size_t at_name = 0;
    std::size_t at_pattern = 0;
    std::size_t star = PathText::npos;
    std::size_t star_name = 0;
    while (at_name < name.size()) {
        if (at_pattern < pattern.size() && pattern[at_pattern] == u'*') {
            star = at_pattern++;
            star_name = at_name;
        } else if (at_pattern < pattern.size() &&
                   (pattern[at_pattern] == u'?' ||
                    SameUnitIgnoringCase(pattern[at_pattern], name[at_name]))) {
            ++at_pattern;
            ++at_name;
        } else if (star != PathText::npos) {
            at_pattern = star + 1;
            at_name = ++star_name;
        } else {
            return false;
        }
    }
    while (at_pattern < pattern.size() && pattern[at_pattern] == u'*')
        ++at_pattern;
    return at_pattern == pattern.size();
}

// Calls visit(entry) for each ";"-separated entry with its leading blanks
// dropped, until visit answers true.
template <typename Visit>
static bool AnyListEntry(PathText const &list, Visit visit)
{
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t end = list.find(u';', start);
        if (end == PathText::npos)
            end = list.size();
        std::size_t first = start;
        while (first < end && list[first] == u' ')
            ++first;
        if (first < end && visit(list.substr(first, end - first)))
            return true;
        start = end + 1;
    }
    return false;
}

bool QzSysFile::MatchFilenameW(LtWChar const *name, LtWChar const *pattern)
{
    if (name == nullptr || pattern == nullptr)
        return false;
    PathText text(name);
    std::size_t cut = text.find_last_of(kSeparators);
    PathText filename = cut == PathText::npos ? text : text.substr(cut + 1);
    return AnyListEntry(PathText(pattern), [&filename](PathText const &entry) {
        return entry == u"*.*" || MatchesWildcard(filename, entry);
    });
}

void QzSysFile::PushSearchPathW(QzWideStringBuffer *list, LtWChar const *dir)
{
    if (list == nullptr || dir == nullptr || *dir == 0)
        return;
    if (!list->IsEmpty())
        list->Append(u';');
    list->Append(dir);
}

bool QzSysFile::SearchPathW(LtWChar const *list, LtWChar const *name, QzWideStringBuffer *out)
{
    PathText found;
    AnyListEntry(ToText(list), [name, &found](PathText const &entry) {
        PathText directory = entry;
        while (!directory.empty() && directory.back() == u' ')
            directory.pop_back();
        PathText candidate = Pushed(directory, ToText(name), InsertedSeparator(directory));
        if (!ExistsW(candidate.c_str()))
            return false;
        found = candidate;
        return true;
    });
    Store(found, out);
    return !found.empty();
}
