// QzSysFile's path text: the absolute prefixes, normalising, pushing and
// joining, popping and splitting, extensions, absolute and relative forms,
// valid names, wildcard matching and the UTF-8 twins. Drive-letter and server
// paths appear as text only; nothing here touches the disk.

#include <string>

#include <gtest/gtest.h>

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"

namespace {

class QzSysFilePathTest : public ::testing::Test {
protected:
    void SetUp() override { QzString::Initialise(); }
    void TearDown() override { QzString::Terminate(); }
};

std::u16string Text(QzWideStringBuffer const &buffer)
{
    return ToU16(buffer.GetString());
}

}  // namespace

// "/" alone falls short of the two characters that "/x" needs; a server
// prefix needs three; a drive needs a letter, a colon and a separator.
TEST_F(QzSysFilePathTest, IsAbsoluteGivesPrefixLength)
{
    struct Row {
        char const *name;
        char16_t const *path;
        bool absolute;
        int prefix;
    } const rows[] = {
        {"empty", u"", false, 0},
        {"slash_alone", u"/", false, 0},
        {"two_slashes", u"//", true, 1},
        {"slash_name", u"/x", true, 1},
        {"backslash_alone", u"\\", false, 0},
        {"one_backslash_name", u"\\x", false, 0},
        {"two_backslashes_only", u"\\\\", false, 0},
        {"server", u"\\\\s", true, 2},
        {"server_share", u"\\\\server\\share", true, 2},
        {"drive_backslash", u"c:\\", true, 3},
        {"drive_slash", u"C:/dir", true, 3},
        {"drive_no_separator", u"c:x", false, 0},
        {"drive_alone", u"c:", false, 0},
        {"digit_drive", u"1:\\", false, 0},
        {"relative", u"a/b", false, 0},
        {"leading_blank", u" /a", false, 0},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        int prefix = -1;
        EXPECT_EQ(QzSysFile::IsAbsoluteW(row.path, &prefix), row.absolute);
        EXPECT_EQ(prefix, row.prefix);
        EXPECT_EQ(QzSysFile::IsAbsoluteW(row.path), row.absolute);
    }
    int prefix = -1;
    EXPECT_FALSE(QzSysFile::IsAbsoluteW(nullptr, &prefix));
    EXPECT_EQ(prefix, 0);
}

// Blanks go at both ends, then trailing backslashes, then trailing slashes,
// and a prefix cut short comes back in its own form.
TEST_F(QzSysFilePathTest, NormalizeTrimsAndRestoresPrefix)
{
    struct Row {
        char const *name;
        char16_t const *path, *expected;
    } const rows[] = {
        {"blanks_and_trailing", u"  /a/b/  ", u"/a/b"},
        {"drive_root_stays", u"c:\\", u"c:\\"},
        {"drive_slash_root", u"c:/", u"c:\\"},
        {"drive_mixed_trailing", u"c:/\\", u"c:\\"},
        {"backslashes_alone", u"\\\\\\", u"\\\\"},
        {"server_share", u"\\\\server\\share\\", u"\\\\server\\share"},
        {"two_slashes", u"//", u"/"},
        {"slash_alone_is_not_absolute", u"/", u""},
        {"slash_then_backslash", u"a/\\", u"a"},
        {"backslash_then_slash", u"a\\/", u"a\\"},
        {"tabs_and_newline", u"\t c:\\dir\\ \n", u"c:\\dir"},
        {"plain", u"a", u"a"},
        {"empty", u"", u""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out(u"sentinel");
        EXPECT_TRUE(QzSysFile::NormalizePathW(row.path, &out));
        EXPECT_EQ(Text(out), row.expected);
    }
    QzWideStringBuffer untouched(u"sentinel");
    EXPECT_TRUE(QzSysFile::NormalizePathW(nullptr, &untouched));
    EXPECT_EQ(Text(untouched), u"sentinel");
}

TEST_F(QzSysFilePathTest, PushPathAddsOneSeparator)
{
    struct Row {
        char const *name;
        char16_t const *base, *tail;
        bool forward_slash;
        char16_t const *expected;
    } const rows[] = {
        {"empty_base", u"", u"b", true, u"b"},
        {"empty_tail", u"a", u"", true, u"a"},
        {"forward", u"a", u"b", true, u"a/b"},
        {"backward", u"a", u"b", false, u"a\\b"},
        {"base_ends_slash", u"a/", u"b", false, u"a/b"},
        {"base_ends_backslash_tail_slash", u"a\\", u"/b", true, u"a\\b"},
        {"tail_leading_backslash", u"a", u"\\b", true, u"a/b"},
        {"only_one_leading_dropped", u"a", u"//b", true, u"a//b"},
        {"root_base", u"/", u"x", true, u"/x"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out;
        QzSysFile::PushPathW(row.base, row.tail, &out, row.forward_slash);
        EXPECT_EQ(Text(out), row.expected);
    }
}

// The output may be the buffer of the tail or of the base.
TEST_F(QzSysFilePathTest, PushPathAllowsAliasing)
{
    QzWideStringBuffer tail(u"tail");
    QzSysFile::PushPathW(u"base", tail.GetString(), &tail, true);
    EXPECT_EQ(Text(tail), u"base/tail");
    QzWideStringBuffer base(u"base");
    QzSysFile::PushPathW(base.GetString(), u"tail", &base, false);
    EXPECT_EQ(Text(base), u"base\\tail");
}

// Without a choice, server and drive paths get "\", everything else "/".
TEST_F(QzSysFilePathTest, JoinPathsChoosesSeparatorByPrefix)
{
    struct Row {
        char const *name;
        char16_t const *a, *b, *c, *d, *expected;
    } const rows[] = {
        {"posix", u"/usr", u"local", u"share", nullptr, u"/usr/local/share"},
        {"drive", u"c:\\dir", u"sub", u"f.txt", nullptr, u"c:\\dir\\sub\\f.txt"},
        {"drive_written_with_slash", u"c:/dir", u"x", nullptr, nullptr, u"c:/dir\\x"},
        {"server", u"\\\\server\\share", u"x", nullptr, nullptr, u"\\\\server\\share\\x"},
        {"empty_first", u"", u"a", u"b", nullptr, u"a/b"},
        {"four_parts", u"/a", u"b", u"c", u"d", u"/a/b/c/d"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out;
        QzSysFile::JoinPathsW(row.a, row.b, row.c, row.d, &out);
        EXPECT_EQ(Text(out), row.expected);
    }
    QzWideStringBuffer two;
    QzSysFile::JoinPathsW(u"c:\\a", u"b", &two);
    EXPECT_EQ(Text(two), u"c:\\a\\b");
}

TEST_F(QzSysFilePathTest, PopPathKeepsPrefix)
{
    struct Row {
        char const *name;
        char16_t const *path, *rest, *last;
    } const rows[] = {
        {"two_elements", u"/a/b", u"/a", u"b"},
        {"below_root", u"/a", u"/", u"a"},
        {"below_drive", u"c:\\a", u"c:\\", u"a"},
        {"drive_root_has_none", u"c:\\", u"", u""},
        {"empty", u"", u"", u""},
        {"relative_single", u"abc", u"", u"abc"},
        {"trailing_separator", u"a/b/", u"a", u"b"},
        {"server_share", u"\\\\server\\share", u"\\\\server", u"share"},
        {"server", u"\\\\server", u"\\\\", u"server"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer rest(u"x"), last(u"x");
        QzSysFile::PopPathW(row.path, &rest, &last);
        EXPECT_EQ(Text(rest), row.rest);
        EXPECT_EQ(Text(last), row.last);
    }
}

TEST_F(QzSysFilePathTest, SplitPathIntoDirNameExt)
{
    struct Row {
        char const *name;
        char16_t const *path, *dir, *stem, *ext;
    } const rows[] = {
        {"posix", u"/a/b.c", u"/a", u"b", u"c"},
        {"below_root", u"/a", u"/", u"a", u""},
        {"below_drive", u"c:\\x.txt", u"c:\\", u"x", u"txt"},
        {"below_drive_slash", u"c:/x", u"c:/", u"x", u""},
        {"no_directory", u"file.tar.gz", u"", u"file.tar", u"gz"},
        {"mixed_separators", u"dir\\sub/name", u"dir\\sub", u"name", u""},
        {"trailing_separator", u"/a/b/", u"/a", u"b", u""},
        {"server", u"\\\\server", u"\\\\", u"server", u""},
        {"drive_root", u"c:\\", u"c:\\", u"", u""},
        {"dot_file_with_blanks", u" /a/.x ", u"/a", u"", u"x"},
        {"dot_in_directory", u"/d.x/file", u"/d.x", u"file", u""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer dir, stem, ext;
        QzSysFile::SplitPathW(row.path, &dir, &stem, &ext);
        EXPECT_EQ(Text(dir), row.dir);
        EXPECT_EQ(Text(stem), row.stem);
        EXPECT_EQ(Text(ext), row.ext);
    }
}

// Without an extension output the name keeps its extension; the other
// outputs may be left out.
TEST_F(QzSysFilePathTest, SplitPathOptionalOutputs)
{
    QzWideStringBuffer name, dir;
    QzSysFile::SplitPathW(u"/a/b.c", nullptr, &name, nullptr);
    EXPECT_EQ(Text(name), u"b.c");
    QzSysFile::SplitFilenameW(u"c:\\d\\e.f", &dir, &name);
    EXPECT_EQ(Text(dir), u"c:\\d");
    EXPECT_EQ(Text(name), u"e.f");
    QzWideStringBuffer path(u"/x/y.z");
    QzSysFile::SplitPathW(path.GetString(), &dir, &path, nullptr);  // output is the input
    EXPECT_EQ(Text(path), u"y.z");
}

TEST_F(QzSysFilePathTest, SplitFilenameExtAtLastDot)
{
    struct Row {
        char const *name;
        char16_t const *text, *stem, *ext;
    } const rows[] = {
        {"two_dots", u"a.b.c", u"a.b", u"c"},
        {"dot_first", u".x", u"", u"x"},
        {"no_dot", u"abc", u"abc", u""},
        {"dot_last", u"a.", u"a", u""},
        {"empty", u"", u"", u""},
        {"dot_anywhere", u"a.b/c", u"a", u"b/c"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer stem, ext;
        QzSysFile::SplitFilenameExtW(row.text, &stem, &ext);
        EXPECT_EQ(Text(stem), row.stem);
        EXPECT_EQ(Text(ext), row.ext);
    }
    QzWideStringBuffer whole;
    QzSysFile::SplitFilenameExtW(u"a.b", &whole, nullptr);
    EXPECT_EQ(Text(whole), u"a.b");
}

// Extensions belong to the last element; given with or without the dot;
// compared without ASCII case.
TEST_F(QzSysFilePathTest, ExtensionOperations)
{
    struct Row {
        char const *name;
        char16_t const *path;
        char16_t const *extension;  // GetFileExtensionW
        char16_t const *removed;    // RemoveFileExtensionW
        char16_t const *replaced;   // ReplaceFileExtensionW with ".new"
    } const rows[] = {
        {"upper_case", u"/d/file.TXT", u"TXT", u"/d/file", u"/d/file.new"},
        {"dot_in_directory", u"/d.x/file", u"", u"/d.x/file", u"/d.x/file.new"},
        {"drive", u"c:\\a.b\\c.d", u"d", u"c:\\a.b\\c", u"c:\\a.b\\c.new"},
        {"two_dots", u"/d/a.b.c", u"c", u"/d/a.b", u"/d/a.b.new"},
        {"trailing_separator", u"/d/a/", u"", u"/d/a", u"/d/a.new"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out;
        QzSysFile::GetFileExtensionW(row.path, &out);
        EXPECT_EQ(Text(out), row.extension);
        QzSysFile::RemoveFileExtensionW(row.path, &out);
        EXPECT_EQ(Text(out), row.removed);
        QzSysFile::ReplaceFileExtensionW(row.path, u".new", &out);
        EXPECT_EQ(Text(out), row.replaced);
    }
    QzWideStringBuffer out;
    QzSysFile::AddFileExtensionW(u"/d/a", u"txt", &out);
    EXPECT_EQ(Text(out), u"/d/a.txt");
    QzSysFile::AddFileExtensionW(u"/d/a", u".txt", &out);
    EXPECT_EQ(Text(out), u"/d/a.txt");
    QzSysFile::AddFileExtensionW(u"/d/a", u"", &out);
    EXPECT_EQ(Text(out), u"/d/a");
    EXPECT_TRUE(QzSysFile::HasFileExtensionW(u"/d/file.TXT", u"txt"));
    EXPECT_TRUE(QzSysFile::HasFileExtensionW(u"/d/file.txt", u".TxT"));
    EXPECT_TRUE(QzSysFile::HasFileExtensionW(u"/d/file", u""));
    EXPECT_FALSE(QzSysFile::HasFileExtensionW(u"/d/file.txt", u"tx"));
    EXPECT_FALSE(QzSysFile::HasFileExtensionW(u"/d.x/file", u"x"));
    QzSysFile::RemovePathnameW(u"c:\\dir\\a.txt", &out);
    EXPECT_EQ(Text(out), u"a.txt");
    QzSysFile::RemovePathnameW(u"/a/", &out);
    EXPECT_EQ(Text(out), u"a");
}

TEST_F(QzSysFilePathTest, MakeAbsoluteWalksElements)
{
    struct Row {
        char const *name;
        char16_t const *relative, *base, *expected;
    } const rows[] = {
        {"push", u"x", u"/a/b", u"/a/b/x"},
        {"up_one", u"../x", u"/a/b", u"/a/x"},
        {"dots_stay", u"./x/./y", u"/a", u"/a/x/y"},
        {"backslash_walk", u"..\\..\\x", u"/a/b/c", u"/a/x"},
        {"up_past_root_stays", u"../../../x", u"/a", u"/x"},
        {"rooted_posix_cuts_at_1", u"/x/y", u"/a/b", u"/x/y"},
        {"rooted_drive_cuts_at_3", u"\\x", u"c:\\a\\b", u"c:\\x"},
        {"rooted_drive_slash", u"/x", u"c:/a", u"c:/x"},
        {"rooted_server_cuts_at_2", u"\\x", u"\\\\server\\share", u"\\\\x"},
        {"drive_push_backslash", u"x/y", u"c:/a", u"c:/a\\x\\y"},
        {"drive_up", u"../x", u"c:\\a\\", u"c:\\x"},
        {"empty_relative", u"", u"/a/b", u"/a/b"},
        {"base_trailing_separator", u"sub", u"/a/b/", u"/a/b/sub"},
        {"empty_elements_skipped", u"x//y", u"/a", u"/a/x/y"},
        {"relative_base", u"x", u"rel/base", u""},
        {"root_is_no_base", u"x", u"/", u""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out(u"sentinel");
        QzSysFile::MakeAbsoluteW(row.relative, row.base, &out);
        EXPECT_EQ(Text(out), row.expected);
    }
    QzWideStringBuffer out(u"../y");
    QzSysFile::MakeAbsoluteW(out.GetString(), u"/a/b", &out);
    EXPECT_EQ(Text(out), u"/a/y");
    QzSysFile::MakeAbsoluteW(nullptr, u"/a", &out);
    EXPECT_EQ(Text(out), u"/a");
}

// Drive letters are not compared; paths that share nothing but the prefix,
// where the path is the deeper, give empty.
TEST_F(QzSysFilePathTest, MakeRelativeFindsCommonBase)
{
    struct Row {
        char const *name;
        char16_t const *path, *base;
        bool forward_slash;
        char16_t const *expected;
    } const rows[] = {
        {"below", u"/a/b/c", u"/a", true, u"b/c"},
        {"rest_keeps_its_separators", u"/a/b/c", u"/a", false, u"b/c"},
        {"sibling_branch", u"/a/x", u"/a/b/c", true, u"../../x"},
        {"sibling_branch_backslash", u"/a/x", u"/a/b/c", false, u"..\\..\\x"},
        {"above", u"/a", u"/a/b/c", true, u"../.."},
        {"same", u"/a/b", u"/a/b/", true, u""},
        {"nothing_shared_same_depth", u"/x", u"/a", true, u"../x"},
        {"nothing_shared_path_deeper", u"/x/y", u"/a", true, u""},
        {"drive_root_base", u"c:\\a", u"c:\\", false, u""},
        {"other_drive_by_text", u"c:\\a\\b", u"d:\\a", false, u"b"},
        {"prefix_lengths_differ", u"c:\\a\\b", u"/a", true, u""},
        {"relative_path", u"rel/a", u"/a", true, u""},
        {"case_matters", u"/a/B", u"/a/b", true, u"../B"},
        {"mixed_separators_match", u"/a\\b\\c", u"/a/b", true, u"c"},
        {"server", u"\\\\srv\\share\\x", u"\\\\srv\\share", false, u"x"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out(u"sentinel");
        QzSysFile::MakeRelativeW(row.path, row.base, &out, row.forward_slash);
        EXPECT_EQ(Text(out), row.expected);
    }
}

TEST_F(QzSysFilePathTest, MakeValidFilenameDropsReservedCharacters)
{
    struct Row {
        char const *name;
        char16_t const *text, *expected;
        bool changed;
    } const rows[] = {
        {"some_reserved", u"a:b*c?", u"abc", true},
        {"plain", u"plain", u"plain", false},
        {"all_nine", u"\\/:*?\"<>|", u"", true},
        {"dot", u".", u"_", true},
        {"dot_dot", u"..", u"_", true},
        {"dot_dot_after_removal", u"<.>.", u"_", true},
        {"three_dots_allowed", u"...", u"...", false},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out;
        EXPECT_EQ(QzSysFile::MakeValidFilenameW(row.text, &out), row.changed);
        EXPECT_EQ(Text(out), row.expected);
    }
}

TEST_F(QzSysFilePathTest, MatchFilenamePatterns)
{
    struct Row {
        char const *name;
        char16_t const *file, *pattern;
        bool matches;
    } const rows[] = {
        {"star_ignores_case", u"File.TXT", u"*.txt", true},
        {"second_pattern", u"file.txt", u"*.doc;*.txt", true},
        {"leading_blank_dropped", u"file.txt", u"*.doc; *.txt", true},
        {"trailing_blank_kept", u"file.txt", u"*.txt ;x", false},
        {"star_dot_star_any_name", u"noext", u"*.*", true},
        {"dot_required_otherwise", u"noext", u"*.?*", false},
        {"question_one_unit", u"abc", u"a?c", true},
        {"question_not_zero_units", u"ac", u"a?c", false},
        {"name_only", u"/dir.x/name", u"dir*", false},
        {"name_after_directory", u"c:\\dir\\name", u"n*", true},
        {"backtracking", u"abcabd", u"*abd", true},
        {"several_stars", u"aXbXc", u"*X*X*c", true},
        {"star_matches_empty", u"", u"*", true},
        {"empty_pattern", u"file", u"", false},
        {"no_brackets", u"[a]", u"[a]", true},
        {"non_ascii_case", u"\u00C4.txt", u"\u00E4.TXT", true},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(QzSysFile::MatchFilenameW(row.file, row.pattern), row.matches);
    }
    EXPECT_FALSE(QzSysFile::MatchFilenameW(nullptr, u"*"));
}

TEST_F(QzSysFilePathTest, PushSearchPathBuildsList)
{
    QzWideStringBuffer list;
    QzSysFile::PushSearchPathW(&list, u"c:\\x");
    QzSysFile::PushSearchPathW(&list, u"");
    QzSysFile::PushSearchPathW(&list, u"/usr/share");
    EXPECT_EQ(Text(list), u"c:\\x;/usr/share");
}

// The twins decode UTF-8, call the wide form and encode back; optional
// outputs stay optional.
TEST_F(QzSysFilePathTest, Utf8TwinsConvertBothWays)
{
    QzStringBuffer out, last, ext;
    EXPECT_TRUE(QzSysFile::NormalizePathU("c:\\dir\\", &out));
    EXPECT_STREQ(out.GetString(), "c:\\dir");
    QzSysFile::JoinPathsU("/a", "\xC3\xA9", &out);  // e acute
    EXPECT_STREQ(out.GetString(), "/a/\xC3\xA9");
    QzSysFile::JoinPathsU("/a", "b", "\xF0\x9F\x98\x80", &out);  // beyond the BMP
    EXPECT_STREQ(out.GetString(), "/a/b/\xF0\x9F\x98\x80");
    QzSysFile::PopPathU("/\xC3\xA9/f", &out, &last);
    EXPECT_STREQ(out.GetString(), "/\xC3\xA9");
    EXPECT_STREQ(last.GetString(), "f");
    QzSysFile::SplitPathU("/d/\xC3\xA9.txt", nullptr, &out, &ext);
    EXPECT_STREQ(out.GetString(), "\xC3\xA9");
    EXPECT_STREQ(ext.GetString(), "txt");
    QzSysFile::MakeRelativeU("/a/b/c", "/a", &out, true);
    EXPECT_STREQ(out.GetString(), "b/c");
    QzSysFile::MakeAbsoluteU("../x", "/a/b", &out);
    EXPECT_STREQ(out.GetString(), "/a/x");
    EXPECT_TRUE(QzSysFile::MatchFilenameU("\xC3\x84.txt", "\xC3\xA4*"));
    int prefix = 0;
    EXPECT_TRUE(QzSysFile::IsAbsoluteU("c:/x", &prefix));
    EXPECT_EQ(prefix, 3);
    QzStringBuffer untouched("sentinel");
    EXPECT_TRUE(QzSysFile::NormalizePathU(nullptr, &untouched));
    EXPECT_STREQ(untouched.GetString(), "sentinel");
}
