// QzFramePath.h: path text at the frame's own system boundary (the log file,
// the dump file), below the text classes that the rest of the library uses
// for this. Internal: never installed.
#pragma once

#include <cstddef>

#include "qzutil/frame/LtTypes.h"

// Class of statics over UTF-16 path text and the UTF-8 that the kernel takes.
//
// Threads: stateless; any thread. ToSystemPath is async-signal-safe.
class QzFramePath {
public:
    // Writes `path` as the kernel takes it: UTF-8 (pairs combined, a lone
    // surrogate in its three-byte form), each "\" as "/", nul-terminated.
    // Returns the byte count without the nul, or -1 when path is null or
    // `capacity` bytes cannot hold it all (out is then "" if capacity > 0).
    [[nodiscard]] static int ToSystemPath(LtWChar const *path, char *out, std::size_t capacity);

    // Decodes `length` bytes of UTF-8 from the system (each ill-formed
    // sequence as one U+FFFD) into out, nul-terminated, stopping before a
    // character that would not fit. Returns the units written without the
    // nul; out has room for `capacity` (at least 1) units.
    static std::size_t FromSystemText(char const *text, std::size_t length, LtWChar *out,
                                      std::size_t capacity);

    // The separator to put after `directory` when a name is added: "\" when
    // it starts with a drive ("c:") or a UNC prefix ("\\"), so Windows-style
    // text keeps its form, and "/" otherwise.
    static LtWChar SeparatorAfter(LtWChar const *directory);
};
