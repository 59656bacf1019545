// QzSysDynamicLib.h: loading shared libraries and finding their functions,
// and scope guards over the search paths for programs and libraries.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

struct QzSysDynamicLibHandle;  // a loaded library; opaque

// Class of statics over the system's dynamic loader. Paths are wide text;
// "\" counts as "/".
//
// Threads:  any thread; the loader serialises itself.
// Lifetime: OpenW and FindFunction's callers need QzString up (paths are
//           converted in allocated buffers).
class QZUTIL_API QzSysDynamicLib {
public:
    // What FindFunction answers: cast to the function's real type.
    using Function = void (*)();

    // Loads a library with all its symbols bound at once and kept out of
    // the global namespace. A bare name (no "/") is looked for first in each
    // directory of the live QzSysDllDirectoryModifier guards, the newest
    // first, then by the loader's own search; a file found in a guard's
    // directory is the answer even if it fails to load. Returns the handle,
    // or null (the loader's reason is logged). Loading a library twice
    // gives handles that each need Close.
    static QzSysDynamicLibHandle *OpenW(LtWChar const *path);
    // Drops one reference from OpenW. False for null or a loader failure.
    static bool Close(QzSysDynamicLibHandle *handle);
    // The named function of the library, or null (also for null arguments).
    static Function FindFunction(QzSysDynamicLibHandle *handle, char const *name);
    // The extension of shared libraries with its dot: ".so".
    static LtWChar const *GetDynamicLibExtensionW();
};

// Changes the program search path (PATH) for one scope and restores it,
// unset if it was, on destruction.
//
// Threads:   the environment is the process's: construct and destroy while
//            no other thread reads or writes it (start-up, tests).
// Ownership: owns a copy of the earlier value; neither copyable nor movable.
// Lifetime:  needs QzString up.
class QZUTIL_API QzSysPathModifier {
public:
    // A fixed type: any int may arrive; values outside the list change nothing.
    enum ModifyMode : int {
        ePREPEND = 0,  // the directory is searched first
        eAPPEND = 1,   // the directory is searched last
        eREPLACE = 2,  // the directory is all that is searched
    };

    // A null or empty directory changes nothing.
    QzSysPathModifier(LtWChar const *directory, ModifyMode mode);
    ~QzSysPathModifier();
    QzSysPathModifier(QzSysPathModifier const &) = delete;
    QzSysPathModifier &operator=(QzSysPathModifier const &) = delete;

private:
    char *m_previous;  // the earlier PATH in a QzString block; null if it was unset
    bool m_is_changed;
};

// Adds a directory to the library's own search list for bare library names
// (see QzSysDynamicLib::OpenW) for one scope: the loader reads
// LD_LIBRARY_PATH only at process start, so that cannot serve.
//
// Threads:   OpenW on any thread sees a consistent list (it is locked);
//            guards must end in the reverse order of their construction.
// Ownership: owns a copy of the directory; neither copyable nor movable.
// Lifetime:  needs QzString up.
class QZUTIL_API QzSysDllDirectoryModifier {
public:
    // A null or empty directory adds nothing.
    explicit QzSysDllDirectoryModifier(LtWChar const *directory);
    ~QzSysDllDirectoryModifier();
    QzSysDllDirectoryModifier(QzSysDllDirectoryModifier const &) = delete;
    QzSysDllDirectoryModifier &operator=(QzSysDllDirectoryModifier const &) = delete;

private:
    friend class QzSysDynamicLib;  // walks the list

    char *m_directory;                  // UTF-8, in a QzString block; null if none added
    QzSysDllDirectoryModifier *m_next;  // the guard made before this one
};
