// QzJsonReadStreamFuzz.cpp: libFuzzer target for the JSON read stream. Each
// input is parsed once by cJSON itself, which serves as the map of the
// document; the stream then walks the same text: every value read with its
// own type (by each of the reads that fit it), peeked, or skipped, and the
// values compared with the map. Further walks each stop at one value read as
// a wrong type, which must set the error and freeze the stream.
#include "qzutil/structured/QzJsonReadStream.h"

#include "QzFuzzCheck.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include <cjson/cJSON.h>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Longer documents cost time and reach no path that 64 KiB does not.
constexpr std::size_t kMaxInputBytes = 64 * 1024;
// Walks that each end in one wrong-type read, at the first values.
constexpr int kWrongTypeWalks = 6;

static void SetUpOnce()
{
    static bool is_set_up = false;
    if (is_set_up)
        return;
    is_set_up = true;
    QzJsonStream::Initialise();  // for good: the fuzzer never unloads the target
    QzFuzzTakeInputErrors();
}

static int TypeOf(cJSON const *node)
{
    return node->type & 0xFF;
}

static bool IsDigits(char const *text)
{
    if (*text == 0)
        return false;
    for (; *text != 0; ++text) {
        if (*text < '0' || *text > '9')
            return false;
    }
    return true;
}

// The 64-bit reading of a number, worked out apart from the library:
// truncation toward zero, the ends of the range for anything beyond it.
static LtInt64 ExpectedInt64(double value)
{
    if (std::isnan(value))
        return 0;
    if (value >= 9223372036854775808.0)
        return std::numeric_limits<LtInt64>::max();
    if (value <= -9223372036854775808.0)
        return std::numeric_limits<LtInt64>::min();
    return static_cast<LtInt64>(std::trunc(value));
}

static LtNat64 ExpectedNat64(double value)
{
    if (std::isnan(value) || value <= 0.0)
        return 0;
    if (value >= 18446744073709551616.0)
        return std::numeric_limits<LtNat64>::max();
    return static_cast<LtNat64>(std::trunc(value));
}

// The "Type" and "Version" that PeekTVObject should find in `node`.
static bool ExpectedTypeVersion(cJSON const *node, std::string *type, int *version)
{
    if (!cJSON_IsObject(node))
        return false;
    cJSON const *type_node = cJSON_GetObjectItem(node, "Type");
    cJSON const *version_node = cJSON_GetObjectItem(node, "Version");
    if (!cJSON_IsString(type_node) || !cJSON_IsNumber(version_node))
        return false;
    *type = type_node->valuestring;
    *version = version_node->valueint;
    return true;
}

// One walk over the document. `wrong_type_at` names the value (counted in
// walk order) to read as a wrong type and stop at; -1 for none.
class DocumentWalk {
public:
    DocumentWalk(QzJsonReadStream *reader, LtNat32 choices, int wrong_type_at)
        : m_reader(reader), m_choices(choices), m_wrong_type_at(wrong_type_at)
    {}

    // Walks `node`, the value that the stream takes next (inside an array
    // when `is_element`). False once the walk has stopped at its wrong read.
    bool Walk(cJSON const *node, bool is_element)
    {
        int const index = m_visited++;
        if (index == m_wrong_type_at) {
            ReadAsWrongType(node);
            return false;
        }
        LtNat32 const choice = Choice(index);
        switch (TypeOf(node)) {
        case cJSON_Object:
            return WalkObject(node);
        case cJSON_Array:
            return WalkArray(node, choice);
        case cJSON_Number:
            ReadNumber(node, choice);
            break;
        case cJSON_String:
            ReadString(node, choice);
            break;
        case cJSON_True:
        case cJSON_False:
            QZ_FUZZ_CHECK(m_reader->ReadBoolean() == (cJSON_IsTrue(node) != 0),
                          "ReadBoolean gives the value");
            break;
        default:  // null: no read takes it; in an array it is stepped over
            if (is_element)
                QZ_FUZZ_CHECK(m_reader->SkipArrayItem(), "SkipArrayItem steps over a null");
            break;
        }
        QZ_FUZZ_CHECK(!m_reader->IsError(), "reading a value as its own type is no error");
        return true;
    }

private:
    // A few bits per value from the input's choices, so that the fuzzer
    // steers which read, peek or skip each value gets.
    LtNat32 Choice(int index) const { return m_choices >> (static_cast<LtNat32>(index) % 29); }

    bool WalkObject(cJSON const *node)
    {
        QZ_FUZZ_CHECK(m_reader->BeginObject(), "BeginObject enters an object");
        // A name that documents seldom hold: found exactly when the map has it.
        char const *const rare_name = "\x01Rare";
        QZ_FUZZ_CHECK(m_reader->ReadPropertyName(rare_name) ==
                          (cJSON_GetObjectItem(node, rare_name) != nullptr),
                      "ReadPropertyName finds a name exactly when the object has it");
        QZ_FUZZ_CHECK(!m_reader->IsError(), "an absent property is no error");
        for (cJSON const *child = node->child; child != nullptr; child = child->next) {
            // Names compare without case, and the first match wins.
            cJSON const *selected = cJSON_GetObjectItem(node, child->string);
            QZ_FUZZ_CHECK(selected != nullptr, "the map finds its own names");
            QZ_FUZZ_CHECK(m_reader->ReadPropertyName(child->string),
                          "ReadPropertyName finds every name of the object");
            PeekAndCompare(selected);
            if (!Walk(selected, /*is_element=*/false))
                return false;
        }
        QZ_FUZZ_CHECK(m_reader->EndObject(), "EndObject leaves the object");
        return true;
    }

    bool WalkArray(cJSON const *node, LtNat32 choice)
    {
        int const count = cJSON_GetArraySize(node);
        if ((choice & 1) != 0)
            QZ_FUZZ_CHECK(m_reader->BeginArray(count), "BeginArray accepts the true count");
        else
            QZ_FUZZ_CHECK(m_reader->BeginArray() == count, "BeginArray gives the element count");
        for (cJSON const *element = node->child; element != nullptr; element = element->next) {
            LtNat32 const element_choice = Choice(m_visited);
            if ((element_choice & 2) != 0)
                PeekAndCompare(element);
            if ((element_choice & 4) != 0) {
                QZ_FUZZ_CHECK(m_reader->SkipArrayItem(), "SkipArrayItem steps over an element");
                continue;
            }
            if (!Walk(element, /*is_element=*/true))
                return false;
        }
        QZ_FUZZ_CHECK(!m_reader->SkipArrayItem() && m_reader->IsError(),
                      "SkipArrayItem past the end is an error");
        m_reader->SetError(false);  // the walk goes on; the position did not move
        QZ_FUZZ_CHECK(m_reader->EndArray(), "EndArray leaves the array");
        return true;
    }

    void PeekAndCompare(cJSON const *node)
    {
        QzStringBuffer type;
        int version = -1;
        std::string expected_type;
        int expected_version = 0;
        bool const is_expected = ExpectedTypeVersion(node, &expected_type, &expected_version);
        bool const is_versioned = m_reader->PeekTVObject(&type, &version);
        QZ_FUZZ_CHECK(is_versioned == is_expected, "PeekTVObject finds Type and Version");
        QZ_FUZZ_CHECK(!m_reader->IsError(), "PeekTVObject leaves the error alone");
        if (is_versioned)
            QZ_FUZZ_CHECK(expected_type == type.GetString() && version == expected_version,
                          "PeekTVObject gives Type and Version");
        else
            QZ_FUZZ_CHECK(type.IsEmpty() && version == 0, "a failed peek gives empty and 0");
    }

    void ReadNumber(cJSON const *node, LtNat32 choice)
    {
        double const value = node->valuedouble;
        switch (choice % 4) {
        case 0:
            QZ_FUZZ_CHECK(m_reader->ReadInteger() == node->valueint, "ReadInteger gives valueint");
            break;
        case 1: {
            double read = m_reader->ReadDouble();
            QZ_FUZZ_CHECK(std::memcmp(&read, &value, sizeof value) == 0,
                          "ReadDouble gives the double");
            break;
        }
        case 2:
            QZ_FUZZ_CHECK(m_reader->ReadInt64AsNumber() == ExpectedInt64(value),
                          "ReadInt64AsNumber truncates and clamps");
            break;
        default:
            QZ_FUZZ_CHECK(m_reader->ReadNat64AsNumber() == ExpectedNat64(value),
                          "ReadNat64AsNumber truncates and clamps");
            break;
        }
    }

    void ReadString(cJSON const *node, LtNat32 choice)
    {
        char const *text = node->valuestring;
        std::size_t const length = std::strlen(text);
        if (IsDigits(text) && length < 20 && (choice & 1) != 0) {
            QZ_FUZZ_CHECK(m_reader->ReadNat64AsString() == std::strtoull(text, nullptr, 10),
                          "ReadNat64AsString reads digits");
            return;
        }
        if (QzString::IsValidUTF8(text) && (choice & 2) != 0) {
            QzWideStringBuffer wide;
            QZ_FUZZ_CHECK(m_reader->ReadWideString(&wide), "valid UTF-8 reads as wide text");
            QZ_FUZZ_CHECK(!wide.IsNull() && wide.GetLength() <= static_cast<int>(length),
                          "wide text has at most one unit per byte");
            return;
        }
        QzStringBuffer read;
        QZ_FUZZ_CHECK(m_reader->ReadString(&read) && !read.IsNull() &&
                          std::strcmp(read.GetString(), text) == 0,
                      "ReadString gives the text");
    }

    // Reads `node` as a type it does not have: the error is set, the result
    // is empty, and the stream does nothing more.
    void ReadAsWrongType(cJSON const *node)
    {
        QzStringBuffer text("stale");
        int const type = TypeOf(node);
        if (type == cJSON_String) {
            QZ_FUZZ_CHECK(m_reader->ReadInteger() == 0, "a wrong-type read gives 0");
        } else if (type == cJSON_Number) {
            QZ_FUZZ_CHECK(!m_reader->ReadString(&text) && text.IsEmpty(),
                          "a wrong-type string read gives empty");
        } else if (type == cJSON_Object) {
            QZ_FUZZ_CHECK(m_reader->BeginArray() == 0, "a wrong-type BeginArray gives 0");
        } else {
            QZ_FUZZ_CHECK(!m_reader->BeginObject(), "a wrong-type BeginObject fails");
        }
        QZ_FUZZ_CHECK(m_reader->IsError(), "a wrong-type read sets the error");
        QZ_FUZZ_CHECK(!m_reader->SkipArrayItem() && !m_reader->EndArray() &&
                          !m_reader->EndObject() && !m_reader->ReadBoolean() &&
                          m_reader->ReadDouble() == 0.0,
                      "after an error every call does nothing");
    }

    QzJsonReadStream *m_reader;
    LtNat32 m_choices;
    int m_wrong_type_at;
    int m_visited = 0;
};

// Walks the whole document once, then stops one walk at each of the first
// values with a wrong-type read.
static void CheckDocument(std::string const &text, cJSON const *map, LtNat32 choices)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    QZ_FUZZ_CHECK(reader.BeginRead(text.c_str()), "BeginRead takes an object or array");
    DocumentWalk full_walk(&reader, choices, -1);
    QZ_FUZZ_CHECK(full_walk.Walk(map, /*is_element=*/false), "a full walk reaches the end");
    QZ_FUZZ_CHECK(data.StackSize() == 0 && data.GetActiveArrayCount() == 0 &&
                      data.GetActiveObjectCount() == 0,
                  "a full walk closes every container");
    QZ_FUZZ_CHECK(reader.EndRead(), "a full walk ends without error");

    for (int stop_at = 0; stop_at < kWrongTypeWalks; ++stop_at) {
        QZ_FUZZ_CHECK(reader.BeginRead(text.c_str()), "the data serves again");
        DocumentWalk walk(&reader, choices, stop_at);
        if (walk.Walk(map, /*is_element=*/false)) {
            QZ_FUZZ_CHECK(reader.EndRead(), "a walk with fewer values than its stop ends well");
            break;
        }
        QZ_FUZZ_CHECK(!reader.EndRead(), "EndRead reports the wrong-type read");
    }
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    SetUpOnce();
    size = std::min(size, kMaxInputBytes);
    std::string bytes;
    if (size > 0)
        bytes.assign(reinterpret_cast<char const *>(data), size);
    std::string const text(bytes.c_str());  // as a C caller passes it: up to a nul
    // The last four bytes steer the choices of the walk.
    LtNat32 choices = 0;
    for (std::size_t i = size >= 4 ? size - 4 : 0; i < size; ++i)
        choices = (choices << 8) | data[i];

    LtNat64 const allocated_before = QzMemory::GetDirectMemoryAllocated();
    cJSON *map = cJSON_ParseWithOpts(text.c_str(), nullptr, 1);
    bool const is_document = map != nullptr && (cJSON_IsObject(map) || cJSON_IsArray(map));
    if (is_document) {
        CheckDocument(text, map, choices);
    } else {
        QzJsonStreamData stream_data;
        QzJsonReadStream reader(&stream_data);
        QZ_FUZZ_CHECK(!reader.BeginRead(text.c_str()) && reader.IsError(),
                      "BeginRead refuses what is no object or array");
        QZ_FUZZ_CHECK(!reader.BeginObject() && reader.BeginArray() == 0,
                      "nothing reads after a refused text");
        QZ_FUZZ_CHECK(!reader.EndRead(), "EndRead reports the refusal");
    }
    {
        QzStringBuffer copy;
        QZ_FUZZ_CHECK(QzJsonStream::CopyJson(text.c_str(), (choices & 1) != 0, &copy) ==
                          (map != nullptr),
                      "CopyJson copies exactly what parses");
    }
    cJSON_Delete(map);
    QZ_FUZZ_CHECK(QzMemory::GetDirectMemoryAllocated() == allocated_before,
                  "every block went back to QzMemory");
    return 0;
}
