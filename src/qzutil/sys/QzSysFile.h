// QzSysFile.h: paths as text (both slash forms, drive and server prefixes),
// and the files, directories, temporary names and process facts of the
// operating system.
#pragma once

#include <cstddef>
#include <cstdio>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzStringBuffer;
class QzWideStringBuffer;

// One directory listing, taken whole when opened (QzSysFile::OpenDirW).
// Opaque; released by QzSysFile::CloseDir.
class QzSysDirHandle;
// One file's size, time and kind, taken when opened
// (QzSysFile::OpenFileInfoW). Opaque; released by QzSysFile::CloseFileInfo.
class QzSysFileInfoHandle;

// Class of statics; no component and no state beyond the temp-directory
// override.
//
// Path operations treat "/" and "\" alike and know three absolute prefixes:
// "/x" (prefix length 1), "\\server" (2) and "c:\" or "c:/" (3). They touch no
// disk, never post, and give empty results for what they cannot do; every
// output may be the buffer of an input. Where an operation inserts a
// separator without being told which, it uses "\" for a path with a server or
// drive prefix and "/" otherwise, so text keeps its form.
//
// File operations take paths in either slash form and answer false (or null)
// on failure, after which GetLastError says why. They never post.
//
// Each W operation takes UTF-16 text; its U twin takes UTF-8 and fills
// QzStringBuffer outputs with UTF-8.
//
// Threads:  all operations may run on any thread. The temp-directory override
//           and the current directory are process-wide, and the environment
//           is not thread-safe: set those at start-up only.
// Lifetime: the outputs are string buffers, so QzString::Initialise must have
//           run.
class QZUTIL_API QzSysFile {
public:
    // Bits: read, write, and append (writes go to the end; implies write).
    enum AccessMode : int {
        eACCESS_READ = 1,
        eACCESS_WRITE = 2,
        eACCESS_READ_WRITE = 3,
        eACCESS_APPEND = 6,
    };
    enum CreationMode : int {
        eCREATE_NEW = 1,         // fails if the file exists
        eCREATE_ALWAYS = 2,      // creates, or empties an existing file
        eOPEN_EXISTING = 3,      // fails if the file is missing
        eOPEN_ALWAYS = 4,        // opens, or creates a missing file
        eTRUNCATE_EXISTING = 5,  // empties an existing file; fails if missing
    };
    // Accepted for compatibility; files here have no mandatory locks.
    enum ShareMode : int {
        eSHARE_NONE = 0,
        eSHARE_READ = 1,
        eSHARE_WRITE = 2,
        eSHARE_DELETE = 4,
    };
    // Text mode reads a CR LF pair as LF; writing never translates.
    enum Translation : int {
        eBINARY = 0,
        eTEXT = 1,
    };
    // Attribute bits of OpenFile.
    enum OpenAttributes : unsigned {
        eATTR_NONE = 0,
        eATTR_RANDOM_ACCESS = 1,    // a hint: reads will not be sequential
        eATTR_NO_BUFFERING = 2,     // the page cache drops what each transfer moved
        eATTR_DELETE_ON_CLOSE = 4,  // the name is gone once the open succeeds
        eATTR_TEMPORARY = 8,        // as delete on close
    };
    enum SeekOrigin : int {
        eSEEK_SET = 0,
        eSEEK_CUR = 1,
        eSEEK_END = 2,
    };
    enum OSDirectory : int {
        eOS_DIR_HOME = 0,
        eOS_DIR_ROAMING_APP_DATA = 1,
        eOS_DIR_LOCAL_APP_DATA = 2,
        eOS_DIR_COMMON_APP_DATA = 3,
    };
    enum PEImageType : int {
        ePE_IMAGE_UNKNOWN = 0,  // not an executable image, or unreadable
        ePE_IMAGE_32BIT = 1,
        ePE_IMAGE_64BIT = 2,
    };
    // The reasons that GetLastError gives. The numbers are those that the
    // library's messages have always shown ("ReadFile error %d").
    enum ErrorCode : int {
        eERROR_NONE = 0,
        eERROR_FILE_NOT_FOUND = 2,
        eERROR_PATH_NOT_FOUND = 3,
        eERROR_TOO_MANY_OPEN_FILES = 4,
        eERROR_ACCESS_DENIED = 5,
        eERROR_INVALID_HANDLE = 6,
        eERROR_NOT_ENOUGH_MEMORY = 8,
        eERROR_NOT_SAME_DEVICE = 17,
        eERROR_GENERAL_FAILURE = 31,
        eERROR_SHARING_VIOLATION = 32,
        eERROR_NOT_SUPPORTED = 50,
        eERROR_FILE_EXISTS = 80,
        eERROR_INVALID_PARAMETER = 87,
        eERROR_DISK_FULL = 112,
        eERROR_DIR_NOT_EMPTY = 145,
        eERROR_FILENAME_TOO_LONG = 206,
    };

    // --- Path text ---

    // True for "/x" (two characters at least), "\\x" (three at least) and
    // "c:\" or "c:/" with *prefix the prefix length (1, 2, 3); else false and
    // 0. Null and empty are false; so is "/" alone.
    static bool IsAbsoluteW(LtWChar const *path);
    static bool IsAbsoluteW(LtWChar const *path, int *prefix);

    // Trims white space at both ends, then the trailing "\"s, then the
    // trailing "/"s; a prefix that this cut short is restored ("c:\" stays
    // "c:\", "//" becomes "/"). A null path leaves out alone. Always true.
    static bool NormalizePathW(LtWChar const *path, QzWideStringBuffer *out);

    // `base`, one separator ("/" with forward_slash, else "\") unless base
    // ends in one, then `tail` less one leading separator. An empty base
    // gives the tail, an empty tail the base.
    static void PushPathW(LtWChar const *base, LtWChar const *tail, QzWideStringBuffer *out,
                          bool forward_slash);
    // PushPathW of each part in turn, with the separator that the path so
    // far calls for.
    static void JoinPathsW(LtWChar const *a, LtWChar const *b, QzWideStringBuffer *out);
    static void JoinPathsW(LtWChar const *a, LtWChar const *b, LtWChar const *c,
                           QzWideStringBuffer *out);
    static void JoinPathsW(LtWChar const *a, LtWChar const *b, LtWChar const *c, LtWChar const *d,
                           QzWideStringBuffer *out);
    // Cuts the normalised path's last element into *last and the rest into
    // *out; an absolute path keeps at least its prefix. A path with no element
    // beyond its prefix (or empty) gives both empty.
    static void PopPathW(LtWChar const *path, QzWideStringBuffer *out, QzWideStringBuffer *last);

    // Splits the normalised path at its last separator into directory and
    // name, and the name by SplitFilenameExtW. The directory of an absolute
    // path is never shorter than its prefix. Any output may be null; with a
    // null ext the name keeps its extension.
    static void SplitPathW(LtWChar const *path, QzWideStringBuffer *dir, QzWideStringBuffer *name,
                           QzWideStringBuffer *ext);
    // SplitPathW into directory and whole file name.
    static void SplitFilenameW(LtWChar const *path, QzWideStringBuffer *dir,
                               QzWideStringBuffer *filename);
    // The extension is what follows the last "." of the name ("a.b.c": "a.b"
    // and "c"; ".x": "" and "x"); without a dot it is empty. A null ext puts
    // the whole name in stem.
    static void SplitFilenameExtW(LtWChar const *name, QzWideStringBuffer *stem,
                                  QzWideStringBuffer *ext);

    // Extensions are given with or without their dot and compared ignoring
    // ASCII case; they belong to the last element of the path only.
    static void AddFileExtensionW(LtWChar const *path, LtWChar const *ext, QzWideStringBuffer *out);
    // The extension without its dot; empty if none.
    static void GetFileExtensionW(LtWChar const *path, QzWideStringBuffer *out);
    static bool HasFileExtensionW(LtWChar const *path, LtWChar const *ext);
    static void RemoveFileExtensionW(LtWChar const *path, QzWideStringBuffer *out);
    static void ReplaceFileExtensionW(LtWChar const *path, LtWChar const *ext,
                                      QzWideStringBuffer *out);
    // The file name with its extension, without the directory.
    static void RemovePathnameW(LtWChar const *path, QzWideStringBuffer *out);

    // Resolves `relative` against the absolute `base` element by element:
    // "." stays, ".." goes up (never above the prefix), other elements are
    // pushed. A relative text that starts with a separator replaces all of
    // the base but its root ("/", "\\" or "c:\"). A base that is not absolute
    // gives empty. An absolute `relative` is not recognised: test first.
    static void MakeAbsoluteW(LtWChar const *relative, LtWChar const *base,
                              QzWideStringBuffer *out);
    // The way from the absolute `base` to the absolute `path`: a ".." for
    // each element of the base behind the common part (separated by "/" with
    // forward_slash, else "\"), then the rest of the path as written. The
    // prefixes must have the same length (drive letters are not compared),
    // else out is empty. Elements compare exactly, either separator matching
    // either. When nothing below the prefix is common and the path has more
    // elements than the base, out is empty too.
    static void MakeRelativeW(LtWChar const *path, LtWChar const *base, QzWideStringBuffer *out,
                              bool forward_slash);

    // Copies the name without any of \ / : * ? " < > |; a result of "." or
    // ".." becomes "_". True if anything was changed.
    static bool MakeValidFilenameW(LtWChar const *name, QzWideStringBuffer *out);
    // Matches the file name part of `name` against patterns separated by ";"
    // (leading blanks dropped): "*" any run, "?" any one unit, both ignoring
    // case; "*.*" matches every name. No brackets, no escapes.
    static bool MatchFilenameW(LtWChar const *name, LtWChar const *pattern);

    // Search lists are directories separated by ";". PushSearchPathW appends
    // `dir` (nothing for an empty one). SearchPathW answers the first
    // directory joined with `name` that exists, or false with out empty.
    static void PushSearchPathW(QzWideStringBuffer *list, LtWChar const *dir);
    static bool SearchPathW(LtWChar const *list, LtWChar const *name, QzWideStringBuffer *out);

    // --- Queries ---

    static bool ExistsW(LtWChar const *path);
    static bool IsDirectoryW(LtWChar const *path);
    // Whether the process may read (write) the path now.
    static bool CanReadW(LtWChar const *path);
    static bool CanWriteW(LtWChar const *path);
    // Bytes in the file; the value form gives 0 on failure.
    static bool GetFileSizeW(LtWChar const *path, LtNat64 *size);
    static LtNat64 GetFileSizeW(LtWChar const *path);
    // Last-write time in whole seconds since 1970 UTC, and bytes; either
    // output may be null.
    static bool StatW(LtWChar const *path, LtInt64 *time, LtNat64 *size);
    // True if b exists and a does not, or both are files and a was written
    // strictly later (to the nanosecond). False for a null argument, a
    // missing b, or a path that is not a regular file.
    static bool IsNewerW(LtWChar const *a, LtWChar const *b);
    // Adler-32 of the whole file into *checksum; false on any read failure
    // or a file that changed size meanwhile.
    static bool GetChecksum(LtWChar const *path, int *checksum);

    // --- Files and directories ---

    // Creates (or empties) the file and gives it `size` bytes, not written:
    // they read as zero and may take no disk space until written.
    static bool CreateFileW(LtWChar const *path, LtNat64 size);
    // As CreateFileW, but the space is taken on the disk now (by zero writes
    // where the file system cannot allocate). A file that was made but cannot
    // be opened again to take the space still answers true.
    static bool CreateUninitialisedFileW(LtWChar const *path, LtNat64 size);
    // Copies bytes and permission bits; with fail_if_exists an existing
    // target is left alone and the answer is false. A failed copy leaves no
    // target behind.
    static bool CopyFileW(LtWChar const *from, LtWChar const *to, bool fail_if_exists);
    // Renames; an existing target is replaced.
    static bool RenameW(LtWChar const *from, LtWChar const *to);
    // Removes a file. A read-only file (no owner write bit) is refused
    // unless `force`.
    static bool UnlinkW(LtWChar const *path, bool force);
    // Removes a file, or a directory: with `recursive` its content first,
    // else only when empty. Links are removed, never followed. `force` as in
    // UnlinkW.
    static bool DeleteW(LtWChar const *path, bool recursive, bool force);
    // Removes an empty directory.
    static bool RemoveDirectoryW(LtWChar const *path);
    // Creates the directory and its missing parents; true also when it
    // exists already.
    static bool CreateDirW(LtWChar const *path);
    // Sets the permission bits (mode & 07777).
    static bool ChangePermissionsW(LtWChar const *path, int mode);
    // Removes every directory below root that holds no file, depth first;
    // root stays. The Recurse form removes `path` itself too when
    // `remove_self` and it ends up empty. True if `path` ends up empty.
    static bool PruneEmptyDirectoriesW(LtWChar const *root);
    static bool PruneEmptyDirectoriesRecurse(LtWChar const *path, bool remove_self);

    // The entries of a directory but "." and "..", sorted by name ignoring
    // ASCII case, then by bytes. Null on failure. Close with CloseDir.
    static QzSysDirHandle *OpenDirW(LtWChar const *path);
    // The next entry: its name and whether it is a directory (a link to one
    // counts as no directory). False after the last.
    static bool ReadDirW(QzSysDirHandle *dir, QzWideStringBuffer *name, bool *is_directory);
    static void CloseDir(QzSysDirHandle *dir);  // null is fine

    // Null on failure. Close with CloseFileInfo.
    static QzSysFileInfoHandle *OpenFileInfoW(LtWChar const *path);
    static LtNat64 GetFileInfoSize(QzSysFileInfoHandle const *info);
    static LtInt64 GetFileInfoTime(QzSysFileInfoHandle const *info);     // seconds since 1970
    static int GetFileInfoPermissions(QzSysFileInfoHandle const *info);  // mode & 07777
    static bool IsFileInfoDirectory(QzSysFileInfoHandle const *info);
    static void CloseFileInfo(QzSysFileInfoHandle *info);  // null is fine

    // --- Raw handles: null is invalid ---

    // Opens or creates per the modes (`attributes` from OpenAttributes).
    // Caller owns the handle; release with CloseFile.
    static void *OpenFile(LtWChar const *path, AccessMode access, ShareMode share,
                          CreationMode creation, unsigned attributes);
    static bool CloseFile(void *handle);
    // Reads up to `size` bytes; *done (may be null) gets the count, 0 at the
    // end of the file. Short counts only at the end.
    static bool ReadFile(void *handle, void *buffer, std::size_t size, std::size_t *done);
    // Writes all `size` bytes, or false with *done the count written.
    static bool WriteFile(void *handle, void const *buffer, std::size_t size, std::size_t *done);
    // Moves the position; *position (may be null) gets the new one.
    static bool SeekFile(void *handle, LtInt64 offset, SeekOrigin origin, LtInt64 *position);
    // Forces written data to the disk.
    static bool FlushFileBuffer(void *handle);

    // --- Buffered files with 64-bit positions ---

    // Caller owns the stream; release with QzSysFile::fclose. In text mode a
    // stream that reads drops the CR of each CR LF. Positions are bytes of the
    // file in both modes.
    static std::FILE *fopenW(LtWChar const *path, AccessMode access, CreationMode creation,
                             Translation translation, ShareMode share);
    // C modes: "r", "w", "a", each with "+", then "b" or "t" (text is the
    // default), "x" for a file that must not exist. Null for a bad mode.
    static std::FILE *fopenW(LtWChar const *path, char const *mode);
    static std::FILE *fopenU(char const *path, char const *mode);
    // True if the stream was flushed and closed; null is false.
    static bool fclose(std::FILE *file);
    // Whole items read (written).
    static std::size_t fread(void *buffer, std::size_t size, std::size_t count, std::FILE *file);
    static std::size_t fwrite(void const *data, std::size_t size, std::size_t count,
                              std::FILE *file);
    // True if all `bytes` were written.
    static bool fwrite(void const *data, std::size_t bytes, std::FILE *file);
    static bool fseek(std::FILE *file, LtInt64 offset, SeekOrigin origin);
    // The position, or -1.
    static LtInt64 ftell(std::FILE *file);

    // --- Temporary files ---

    // A free name "<stem>_<pid>_<hex><hex>.<ext>" (no "." without ext) in
    // `dir` (the temp directory if null or empty). The stem is cut to 30
    // units and made valid; null is "file". After 100 taken names, false with
    // out empty.
    static bool MakeTempFileNameW(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext,
                                  QzWideStringBuffer *out);
    static bool MakeTempFileNameW(QzWideStringBuffer *out);
    // As MakeTempFileNameW, and creates the file (a name that appears
    // meanwhile counts as taken) with `size` bytes as CreateFileW gives them.
    static bool MakeTempFileW(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext,
                              LtNat64 size, QzWideStringBuffer *out);
    static bool MakeTempFileW(LtNat64 size, QzWideStringBuffer *out);
    // The override if set; else $TMPDIR if it names an absolute existing
    // directory; else "/tmp". No trailing separator.
    static bool GetTempDir(QzWideStringBuffer *out);
    // False with out empty when no override is set.
    static bool GetOverrideTempDir(QzWideStringBuffer *out);
    // Sets the override (null or empty clears it). With `create` a missing
    // directory is made; false, and nothing set, if that fails.
    static bool SetOverrideTempDir(LtWChar const *dir, bool create);

    // The home, roaming, local or common application-data directory; false
    // for an unknown number, and logged when the system cannot say.
    static bool GetOSDirectoryPath(OSDirectory which, QzWideStringBuffer *out);

    // --- The process ---

    static bool GetCurrentDirectoryW(QzWideStringBuffer *out);
    static bool SetCurrentDirectoryW(LtWChar const *path);
    // False with out empty for an unset name. Names are case-sensitive.
    static bool GetEnvironmentVariableW(LtWChar const *name, QzWideStringBuffer *out);
    // A null value removes the variable.
    static bool SetEnvironmentVariableW(LtWChar const *name, LtWChar const *value);
    static bool GetExecutablePathW(QzWideStringBuffer *out);
    static bool GetExecutableDirW(QzWideStringBuffer *out);
    // The file of the loaded object that contains the address `module`; null
    // means the executable.
    static bool GetModuleFileNameW(void const *module, QzWideStringBuffer *out);
    // Starts `path`: an executable file with `arguments` split at blanks
    // (double quotes group, \" is a quote), anything else by the desktop's
    // opener, arguments ignored. No shell is involved. With `wait`, true only
    // if the program exited with 0; without, true once it started.
    static bool RunExecutable(LtWChar const *path, LtWChar const *arguments, bool wait);
    // Reads the header of an ELF or PE image. Logs why it could not.
    static PEImageType GetPEImageType(LtWChar const *path);
    static bool IsWow64Process();
    // The reason of the calling thread's last failed file operation.
    static int GetLastError();
    // The step of file times in the units of the original interface: 1, the
    // smallest, as file systems here keep nanoseconds.
    static int GetFileTimeStampResolution();

    // --- UTF-8 twins ---

    static bool IsAbsoluteU(char const *path, int *prefix);
    static bool NormalizePathU(char const *path, QzStringBuffer *out);
    static void PushPathU(char const *base, char const *tail, QzStringBuffer *out,
                          bool forward_slash);
    static void JoinPathsU(char const *a, char const *b, QzStringBuffer *out);
    static void JoinPathsU(char const *a, char const *b, char const *c, QzStringBuffer *out);
    static void PopPathU(char const *path, QzStringBuffer *out, QzStringBuffer *last);
    static void SplitPathU(char const *path, QzStringBuffer *dir, QzStringBuffer *name,
                           QzStringBuffer *ext);
    static void SplitFilenameExtU(char const *name, QzStringBuffer *stem, QzStringBuffer *ext);
    static void AddFileExtensionU(char const *path, char const *ext, QzStringBuffer *out);
    static void GetFileExtensionU(char const *path, QzStringBuffer *out);
    static bool HasFileExtensionU(char const *path, char const *ext);
    static void RemoveFileExtensionU(char const *path, QzStringBuffer *out);
    static void ReplaceFileExtensionU(char const *path, char const *ext, QzStringBuffer *out);
    static void RemovePathnameU(char const *path, QzStringBuffer *out);
    static void MakeAbsoluteU(char const *relative, char const *base, QzStringBuffer *out);
    static void MakeRelativeU(char const *path, char const *base, QzStringBuffer *out,
                              bool forward_slash);
    static bool MakeValidFilenameU(char const *name, QzStringBuffer *out);
    static bool MatchFilenameU(char const *name, char const *pattern);
    static bool ExistsU(char const *path);
    static bool IsDirectoryU(char const *path);
    static bool GetFileSizeU(char const *path, LtNat64 *size);
    static bool UnlinkU(char const *path, bool force);
    static bool CreateDirU(char const *path);
};
