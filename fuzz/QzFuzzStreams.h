// QzFuzzStreams.h: what the stream fuzz targets and their seed generators
// share: bringing the streams up once for a whole fuzzing run, and writing a
// seed file.
#pragma once

#include "QzFuzzCheck.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzStream.h"

// Brings the streams up for good (the fuzzer never unloads a target) and
// takes the posts that bad input is expected to make.
inline void QzFuzzSetUpStreams()
{
    QzStream::Initialise();
    QzFuzzTakeInputErrors();
    // The error module formats every post in shared buffers that keep the
    // size of the longest message so far. One post longer than any of the
    // streams' (a few hundred bytes at most) grows them now, before inputs
    // are measured for blocks that did not go back.
    constexpr std::size_t kWarmUpMessageBytes = 1024;
    std::string const long_message(kWarmUpMessageBytes, '.');
    QzError::Post(QzSysError::eDEBUG, nullptr, -1, nullptr, "%s", long_message.c_str());
}

// A seed generator's failure: says what went wrong and ends the program.
[[noreturn]] inline void QzFuzzSeedFailed(char const *generator, char const *what)
{
    std::fprintf(stderr, "%s: %s\n", generator, what);
    std::exit(1);
}

// Writes one seed file; seeds stay small in the tree.
inline void QzFuzzWriteSeed(char const *generator, std::filesystem::path const &folder,
                            char const *name, std::string const &bytes)
{
    constexpr std::size_t kMaxSeedBytes = 8 * 1024;
    if (bytes.size() > kMaxSeedBytes)
        QzFuzzSeedFailed(generator, "a seed is too large");
    std::ofstream file(folder / name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file)
        QzFuzzSeedFailed(generator, "a seed file cannot be written");
}
