// QzStepToWideFuzz.cpp: libFuzzer target for QzStringConv::STEPToWide, the
// reader of the strings of STEP files. Besides not crashing, the decoder
// must give C text no longer than its input, ignore every byte outside 32
// to 126, and read back whatever a plain STEP writer makes of its output.
// Only public headers: the target sees the library as a user does.
#include "QzFuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "qzutil/text/QzStringConv.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// STEP strings are short; longer inputs reach no other path.
constexpr std::size_t kMaxInputBytes = 16 * 1024;

static char const kHexDigits[] = "0123456789ABCDEF";

// The text without the bytes the decoder must skip.
static std::string PrintableBytesOf(std::string const &text)
{
    std::string printable;
    for (char byte : text) {
        auto value = static_cast<unsigned char>(byte);
        if (value >= 32 && value <= 126)
            printable += byte;
    }
    return printable;
}

// A plain writer: printable ASCII but the backslash as itself, every other
// unit in one "\X2\" group.
static std::string WriteStep(std::u16string const &units)
{
    std::string step;
    for (char16_t unit : units) {
        if (unit >= 32 && unit <= 126 && unit != '\\') {
            step += static_cast<char>(unit);
            continue;
        }
        step += "\\X2\\";
        for (int shift = 12; shift >= 0; shift -= 4)
            step += kHexDigits[(unit >> shift) & 0xF];
        step += "\\X0\\";
    }
    return step;
}

static void CheckStep(std::string const &text)
{
    QzWideStringBuffer wide(u"left over");
    bool const is_good = QzStringConv::STEPToWide(text.c_str(), &wide);
    QZ_FUZZ_CHECK(!wide.IsNull(), "decoding text gives a block");
    QZ_FUZZ_CHECK(wide.GetLength() == QzWideString::GetLength(wide.GetString()),
                  "the result holds no nul before its length");
    std::u16string const units = QzFuzzUnitsOf(wide);
    QZ_FUZZ_CHECK(units.size() <= text.size(), "each unit comes from at least one byte");

    std::string const printable = PrintableBytesOf(text);
    QzWideStringBuffer filtered;
    QZ_FUZZ_CHECK(QzStringConv::STEPToWide(printable.c_str(), &filtered) == is_good &&
                      QzFuzzUnitsOf(filtered) == units,
                  "bytes outside 32 to 126 change nothing");
    if (printable.find('\\') == std::string::npos)
        QZ_FUZZ_CHECK(is_good && units == std::u16string(printable.begin(), printable.end()),
                      "text without a backslash stands for itself");

    QzWideStringBuffer again;
    QZ_FUZZ_CHECK(QzStringConv::STEPToWide(WriteStep(units).c_str(), &again) &&
                      QzFuzzUnitsOf(again) == units,
                  "what a plain writer makes of the result reads back as the result");
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    // Once per process: the fuzzer never unloads the target.
    static bool const is_set_up = (QzStringConv::Initialise(), true);
    (void)is_set_up;
    QzFuzzMemoryBalance const balance;
    CheckStep(QzFuzzInputText(data, size, kMaxInputBytes));
    return 0;
}
