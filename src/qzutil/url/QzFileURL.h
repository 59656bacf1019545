// QzFileURL.h: the block file calls, the narrow face of URL-addressed files
// that stream sinks and chunk files use: open by URI, read and write at
// 64-bit positions, and the prepare/test/lock hints of the block machinery.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzProgress;

// An open URL-addressed file. Opaque: callers hold the pointer that OpenURL
// gave and pass it back; only QzFileURL looks inside.
class QzFileURLHandle;

// Class of statics over one process-wide table of open files.
//
// Ownership: OpenURL hands out a shared handle; every successful OpenURL is
//            matched by one CloseURL, and the last CloseURL closes the file.
// Threads:   one thread at a time calls these operations for a handle, and
//            OpenURL/CloseURL are single-threaded (the table has no lock).
// Lifetime:  a counted component "QzFileURL"; Terminate at a count of 0
//            closes every handle still open.
class QZUTIL_API QzFileURL {
public:
    enum URLType : int {
        eURL_LOCAL = 0,
        eURL_REMOTE = 1,
        eURL_UNKNOWN = 2,
    };
    // Whether Read and Write may wait for the bytes.
    enum Type : int {
        eTYPE_BLOCKING = 0,
        eTYPE_NON_BLOCKING = 1,
    };
    // The answer of every transfer; 0 is success. Sinks pass these upward
    // unchanged, so "not yet" from a remote file reaches the stream's caller.
    enum Status : int {
        eSTATUS_OK = 0,           // done, or available
        eSTATUS_WAIT = 1,         // under way: call again
        eSTATUS_ERROR = 2,        // failed
        eSTATUS_UNAVAILABLE = 3,  // not here and not coming at present
    };
    // Bits of the `flags` argument of OpenURL.
    enum OpenFlags : unsigned {
        eOPEN_READ_ONLY = 1,      // open for reading only
        eOPEN_TEMPORARY = 2,      // the file is deleted at the last close
        eOPEN_WRITE_RANDOM = 4,   // writes may land anywhere
        eOPEN_WRITE_APPEND = 8,   // writes extend an initially empty file
        eOPEN_REMAP_BLOCKS = 16,  // with eOPEN_WRITE_RANDOM: blocks placed as first written
    };
    // Bits of the `sharing` argument of OpenURL (accepted; files here have
    // no mandatory locks).
    enum Sharing : unsigned {
        eSHARE_READ = 1,
        eSHARE_WRITE = 2,
    };

    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // Opens `uri` (a path or a "file:" URI). A URI that is already open
    // shares its handle, with the open count raised, when `flags` equal the
    // handle's, or when the handle is read-only and temporary and the caller
    // asks for read-only; any other flags give null. Null also for a null
    // URI and for a file that cannot be opened.
    static QzFileURLHandle *OpenURL(LtWChar const *uri, QzProgress *progress, unsigned flags,
                                    unsigned sharing);
    // Takes one from the open count; the last close closes the file. Null is
    // ignored.
    static void CloseURL(QzFileURLHandle *handle);

    // Reads `size` bytes at `position`. A range that passes the end of the
    // file is eSTATUS_ERROR and reads nothing; size 0 is eSTATUS_OK.
    static Status Read(QzFileURLHandle *handle, Type type, LtNat64 position, unsigned char *buffer,
                       unsigned size, QzProgress *progress);
    // Writes `size` bytes at `position`, growing the file as needed.
    static Status Write(QzFileURLHandle *handle, Type type, LtNat64 position,
                        unsigned char const *data, unsigned size, QzProgress *progress);

    // Hints of what will be wanted; size 0 does nothing.
    static void PrepareRead(QzFileURLHandle *handle, LtNat64 position, unsigned size);
    static void PrepareWrite(QzFileURLHandle *handle, LtNat64 position, unsigned size);
    // Whether a range is there, without blocking. A read range that passes
    // the end of the file is eSTATUS_ERROR; size 0 is eSTATUS_OK.
    static Status TestRead(QzFileURLHandle *handle, LtNat64 position, unsigned size);
    static Status TestWrite(QzFileURLHandle *handle, LtNat64 position, unsigned size);
    // Pins a range in memory while a caller reads within it; one range at a
    // time.
    static void LockBuffer(QzFileURLHandle *handle, LtNat64 position, unsigned size);
    static void UnlockBuffer(QzFileURLHandle *handle, LtNat64 position, unsigned size);
    // Ends sequential appending.
    static void EndAppend(QzFileURLHandle *handle);
    // Adjusts the read-progress count by `delta`; it never drops below 0.
    static void ReadStatusHint(QzFileURLHandle *handle, int delta);

    static LtNat64 GetFileSize(QzFileURLHandle *handle);
    // The URI as opened; valid while the handle is open.
    static LtWChar const *GetURI(QzFileURLHandle *handle);
    // Non-zero for a file whose bytes arrive by download.
    static int IsRemote(QzFileURLHandle *handle);
};
