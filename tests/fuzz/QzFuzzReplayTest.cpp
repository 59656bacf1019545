// QzFuzzReplayTest.cpp: runs every seed of each fuzz target's corpus through
// the target, so the targets' checks run in every build and a seed that
// breaks one fails here, not only under the fuzz preset. The targets are
// built into this executable under names of their own (see CMakeLists.txt).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

extern "C" int QzTextDecodeFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzReadDumpFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzStepToWideFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzSevenBitFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzEncodeFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzJsonReadStreamFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzReadStreamFuzzOneInput(std::uint8_t const *data, std::size_t size);
extern "C" int QzStreamObjectFuzzOneInput(std::uint8_t const *data, std::size_t size);

struct FuzzTarget {
    char const *name;  // also the folder of its seeds under the corpus directory
    int (*run)(std::uint8_t const *data, std::size_t size);
};

// The name alone in test names and messages, not the bytes of the record.
static void PrintTo(FuzzTarget const &target, std::ostream *out)
{
    *out << target.name;
}

const FuzzTarget kFuzzTargets[] = {
    {"QzTextDecodeFuzz", &QzTextDecodeFuzzOneInput},
    {"QzReadDumpFuzz", &QzReadDumpFuzzOneInput},
    {"QzStepToWideFuzz", &QzStepToWideFuzzOneInput},
    {"QzSevenBitFuzz", &QzSevenBitFuzzOneInput},
    {"QzEncodeFuzz", &QzEncodeFuzzOneInput},
    {"QzJsonReadStreamFuzz", &QzJsonReadStreamFuzzOneInput},
    {"QzReadStreamFuzz", &QzReadStreamFuzzOneInput},
    {"QzStreamObjectFuzz", &QzStreamObjectFuzzOneInput},
};

// The seed files of a target, in name order so failures repeat alike.
static std::vector<std::filesystem::path> SeedFiles(char const *target_name)
{
    std::vector<std::filesystem::path> files;
    std::error_code error;  // a missing folder yields no files, which the test reports
    std::filesystem::path folder = std::filesystem::path(QZ_FUZZ_CORPUS_DIR) / target_name;
    for (auto const &entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

static bool ReadBytes(std::filesystem::path const &file, std::string *bytes)
{
    std::ifstream stream(file, std::ios::binary);
    bytes->assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    return !stream.bad() && stream.is_open();
}

class QzFuzzReplayTest : public ::testing::TestWithParam<FuzzTarget> {};

// A target stops the process on a broken check, so reaching the end of the
// loop means every seed passed; the result of 0 is libFuzzer's "keep going".
TEST_P(QzFuzzReplayTest, EverySeedPassesTheTargetChecks)
{
    FuzzTarget const &target = GetParam();
    std::vector<std::filesystem::path> const files = SeedFiles(target.name);
    ASSERT_FALSE(files.empty()) << "no seeds in " << QZ_FUZZ_CORPUS_DIR << "/" << target.name;
    for (std::filesystem::path const &file : files) {
        SCOPED_TRACE(file.filename().string());
        std::string bytes;
        ASSERT_TRUE(ReadBytes(file, &bytes)) << "cannot read " << file;
        EXPECT_EQ(target.run(reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size()),
                  0);
    }
}

// The empty input and one of each byte value, which no seed file holds.
TEST_P(QzFuzzReplayTest, EmptyAndSingleByteInputsPass)
{
    FuzzTarget const &target = GetParam();
    EXPECT_EQ(target.run(nullptr, 0), 0);
    for (int value = 0; value < 256; ++value) {
        auto byte = static_cast<std::uint8_t>(value);
        EXPECT_EQ(target.run(&byte, 1), 0) << "byte " << value;
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, QzFuzzReplayTest, ::testing::ValuesIn(kFuzzTargets),
                         [](::testing::TestParamInfo<FuzzTarget> const &param_info) {
                             return std::string(param_info.param.name);
                         });
