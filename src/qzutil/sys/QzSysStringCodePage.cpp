// QzSysStringCodePage.cpp: QzSysString's conversions between UTF-16 and the
// multi-byte code page, in the conventions of the original platform's calls:
// a length of -1 means nul-terminated (the nul is converted and counted), an
// output count of 0 asks for the size, and 0 is the failure result.
#include <algorithm>
#include <climits>
#include <string>

#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCodePage.h"

namespace {

// Where converted characters go: the caller's buffer, or nowhere for a size
// query.
template <typename Unit>
struct ConversionOutput {
    Unit *out;             // nullptr: count only
    std::size_t capacity;  // units of out
    std::size_t length;    // units produced so far
    bool is_too_small;
};

}  // namespace

template <typename Unit>
static bool StoreCharacter(void *context, Unit const *units, std::size_t count)
{
    auto *output = static_cast<ConversionOutput<Unit> *>(context);
    if (output->out != nullptr) {
        if (count > output->capacity - output->length) {
            output->is_too_small = true;
            return false;
        }
        std::copy(units, units + count, output->out + output->length);
    }
    output->length += count;
    return true;
}

// Checks the arguments and resolves a length of -1. Returns false for a null
// or empty input, a length below -1, or an output that does not match its
// count.
template <typename Input, typename Unit>
static bool PrepareConversion(Input const *text, int length, Unit *out, int out_count,
                              std::size_t *input_length, ConversionOutput<Unit> *output)
{
    if (text == nullptr || length == 0 || length < -1 || out_count < 0 ||
        (out == nullptr && out_count > 0))
        return false;
    *input_length =
        length == -1 ? std::char_traits<Input>::length(text) + 1 : static_cast<std::size_t>(length);
    *output = {out_count == 0 ? nullptr : out, static_cast<std::size_t>(out_count), 0, false};
    return true;
}

// The unit count, or 0 when the output was too small or the count would not
// fit the int result.
template <typename Unit>
static int ConversionResult(ConversionOutput<Unit> const &output)
{
    if (output.is_too_small || output.length > static_cast<std::size_t>(INT_MAX))
        return 0;
    return static_cast<int>(output.length);
}

bool QzSysString::IsMultiByteUTF8()
{
    return QzSysCodePage::IsUTF8();
}

int QzSysString::MultiByteToWideChar(char const *text, int length, LtWChar *out, int out_count)
{
    std::size_t input_length = 0;
    ConversionOutput<LtWChar> output{};
    if (!PrepareConversion(text, length, out, out_count, &input_length, &output))
        return 0;
    if (!QzSysCodePage::Decode(text, input_length, /*replace_invalid=*/false,
                               &StoreCharacter<LtWChar>, &output))
        return 0;
    return ConversionResult(output);
}

int QzSysString::WideCharToMultiByte(LtWChar const *text, int length, char *out, int out_count)
{
    std::size_t input_length = 0;
    ConversionOutput<char> output{};
    if (!PrepareConversion(text, length, out, out_count, &input_length, &output))
        return 0;
    QzSysCodePage::Encode(text, input_length, &StoreCharacter<char>, &output);
    return ConversionResult(output);
}
