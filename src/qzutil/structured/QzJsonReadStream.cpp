// QzJsonReadStream.cpp: parsing a text and walking its tree with a cursor.
#include "qzutil/structured/QzJsonReadStream.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <cjson/cJSON.h>

#include "qzutil/structured/internal/QzJsonTree.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

// The type bits of a cJSON node, without its ownership flags.
static int TypeOf(cJSON const *node)
{
    return node->type & 0xFF;
}

bool QzJsonReadStreamBase::BeginRead(char const *text)
{
    m_data->Clear();
    m_data->SetError(false);
    cJSON *root = QzJsonParseTree(text);
    if (root == nullptr || (TypeOf(root) & (cJSON_Object | cJSON_Array)) == 0) {
        cJSON_Delete(root);
        m_data->SetError(true);
        return false;
    }
    m_data->SetRoot(QzJsonAsNode(root));
    return true;
}

bool QzJsonReadStreamBase::EndRead()
{
    m_data->Clear();
    return !m_data->IsError();
}

QzJsonNode *QzJsonReadStreamBase::TakeValue(int type_mask)
{
    if (m_data->IsError())
        return nullptr;
    cJSON *current = QzJsonAsCJson(m_data->CurrentcJSON());
    cJSON *value = nullptr;
    if (current == nullptr) {
        value = QzJsonAsCJson(m_data->GetRoot());
    } else if (cJSON_IsObject(current)) {
        if (m_data->GetPropertyNode() != nullptr)
            value = QzJsonAsCJson(m_data->GetPropertyNode());
        else if (m_data->IsPropertyName())
            value = cJSON_GetObjectItem(current, m_data->GetPropertyName());
        m_data->ClearPropertyName();
    } else {
        value = QzJsonAsCJson(m_data->CurrentArrayElement());
        if (value != nullptr)
            m_data->IncrementCurrentArrayIndex();
    }
    if (value == nullptr || (TypeOf(value) & type_mask) == 0) {
        m_data->SetError(true);
        return nullptr;
    }
    return QzJsonAsNode(value);
}

bool QzJsonReadStreamBase::BeginObject()
{
    QzJsonNode *node = TakeValue(cJSON_Object);
    if (node == nullptr)
        return false;
    m_data->Push(node);
    m_data->IncrementActiveObjectCount();
    return true;
}

int QzJsonReadStreamBase::BeginArray()
{
    QzJsonNode *node = TakeValue(cJSON_Array);
    if (node == nullptr)
        return 0;
    m_data->Push(node);
    m_data->IncrementActiveArrayCount();
    return cJSON_GetArraySize(QzJsonAsCJson(node));
}

bool QzJsonReadStreamBase::BeginArray(int expected)
{
    int count = BeginArray();
    if (!m_data->IsError() && count != expected)
        m_data->SetError(true);
    return !m_data->IsError();
}

bool QzJsonReadStreamBase::EndContainer(bool is_object)
{
    if (m_data->IsError())
        return false;
    cJSON *current = QzJsonAsCJson(m_data->CurrentcJSON());
    if (current == nullptr || cJSON_IsObject(current) != is_object) {
        m_data->SetError(true);
        return false;
    }
    m_data->Pop();
    if (is_object)
        m_data->DecrementActiveObjectCount();
    else
        m_data->DecrementActiveArrayCount();
    return true;
}

bool QzJsonReadStreamBase::EndObject()
{
    return EndContainer(/*is_object=*/true);
}

bool QzJsonReadStreamBase::EndArray()
{
    return EndContainer(/*is_object=*/false);
}

bool QzJsonReadStreamBase::ReadPropertyName(char const *name)
{
    if (m_data->IsError())
        return false;
    cJSON *current = QzJsonAsCJson(m_data->CurrentcJSON());
    if (current == nullptr || !cJSON_IsObject(current)) {
        m_data->SetError(true);
        return false;
    }
    cJSON *child = name != nullptr ? cJSON_GetObjectItem(current, name) : nullptr;
    if (child == nullptr) {
        m_data->ClearPropertyName();
        return false;
    }
    m_data->SetPropertyName(name, QzJsonAsNode(child));
    return true;
}

bool QzJsonReadStreamBase::ReadBoolean()
{
    QzJsonNode *node = TakeValue(cJSON_True | cJSON_False);
    return node != nullptr && cJSON_IsTrue(QzJsonAsCJson(node));
}

int QzJsonReadStreamBase::ReadInteger()
{
    QzJsonNode *node = TakeValue(cJSON_Number);
    return node != nullptr ? QzJsonAsCJson(node)->valueint : 0;
}

double QzJsonReadStreamBase::ReadDouble()
{
    QzJsonNode *node = TakeValue(cJSON_Number);
    return node != nullptr ? QzJsonAsCJson(node)->valuedouble : 0.0;
}

char const *QzJsonReadStreamBase::TakeString()
{
    QzJsonNode *node = TakeValue(cJSON_String);
    return node != nullptr ? QzJsonAsCJson(node)->valuestring : nullptr;
}

bool QzJsonReadStreamBase::ReadString(QzStringBuffer *out)
{
    char const *text = TakeString();
    if (text == nullptr) {
        out->SetEmptyString();
        return false;
    }
    out->SetString(text);
    return true;
}

bool QzJsonReadStreamBase::PeekTVObject(QzStringBuffer *type, int *version)
{
    type->SetEmptyString();
    *version = 0;
    if (m_data->IsError())
        return false;
    // What taking a value changes: the pending name, the array position and,
    // through BeginObject, the stack and the object count.
    QzString const saved_name(m_data->GetPropertyName());
    QzJsonNode *const saved_node = m_data->GetPropertyNode();
    QzJsonItem *top = m_data->CurrentItem();
    QzJsonItem const saved_top = top != nullptr ? *top : QzJsonItem();
    int const saved_depth = m_data->StackSize();

    bool is_versioned = false;
    if (BeginObject()) {
        is_versioned = ReadPropertyName("Type") && ReadString(type) && ReadPropertyName("Version");
        int const read_version = is_versioned ? ReadInteger() : 0;
        is_versioned = is_versioned && !m_data->IsError();
        if (is_versioned)
            *version = read_version;
        m_data->DecrementActiveObjectCount();
    }
    while (m_data->StackSize() > saved_depth)
        m_data->Pop();
    top = m_data->CurrentItem();  // the push may have moved the stack
    if (top != nullptr)
        *top = saved_top;
    if (saved_name.IsNull())
        m_data->ClearPropertyName();
    else
        m_data->SetPropertyName(saved_name.GetString(), saved_node);
    m_data->SetError(false);  // it was clear on entry
    if (!is_versioned)
        type->SetEmptyString();
    return is_versioned;
}

bool QzJsonReadStreamBase::SkipArrayItem()
{
    if (m_data->IsError())
        return false;
    cJSON *current = QzJsonAsCJson(m_data->CurrentcJSON());
    if (current == nullptr || !cJSON_IsArray(current) || m_data->CurrentArrayElement() == nullptr) {
        m_data->SetError(true);
        return false;
    }
    m_data->IncrementCurrentArrayIndex();
    return true;
}

// --- QzJsonReadStream ---

bool QzJsonReadStream::ReadWideString(QzWideStringBuffer *out)
{
    QzStringBuffer utf8;
    if (ReadString(&utf8) && QzString::UTF8ToWideString(utf8.GetString(), out) == 1) {
        if (out->IsNull())
            out->SetEmptyString();
        return true;
    }
    if (!m_data->IsError())
        m_data->SetError(true);  // the string was not well-formed UTF-8
    out->SetEmptyString();
    return false;
}

bool QzJsonReadStream::Read(double *values)
{
    bool is_read = BeginArray(3);
    for (int i = 0; i < 3; ++i)
        values[i] = ReadDouble();
    is_read = is_read && EndArray();
    if (!is_read) {
        for (int i = 0; i < 3; ++i)
            values[i] = 0.0;
    }
    return is_read;
}

static bool IsDecimalDigit(char unit)
{
    return unit >= '0' && unit <= '9';
}

// The value of a run of decimal digits (after a '-' when `is_signed`), the
// whole text and within the type; false for anything else, including the
// blanks and '+' that strtoull and strtoll would let through.
template <typename Value>
static bool ParseDecimal(char const *text, Value *value)
{
    bool const is_signed = std::numeric_limits<Value>::is_signed;
    char const *digits = is_signed && text[0] == '-' ? text + 1 : text;
    if (!IsDecimalDigit(digits[0]))
        return false;
    char *end = nullptr;
    errno = 0;
    if (is_signed)
        *value = static_cast<Value>(std::strtoll(text, &end, 10));
    else
        *value = static_cast<Value>(std::strtoull(text, &end, 10));
    return errno != ERANGE && *end == 0;
}

template <typename Value>
Value QzJsonReadStream::ReadDecimalString()
{
    char const *text = TakeString();
    Value value = 0;
    if (text == nullptr)
        return 0;
    if (!ParseDecimal(text, &value)) {
        m_data->SetError(true);
        return 0;
    }
    return value;
}

LtNat64 QzJsonReadStream::ReadNat64AsString()
{
    return ReadDecimalString<LtNat64>();
}

LtInt64 QzJsonReadStream::ReadInt64AsString()
{
    return ReadDecimalString<LtInt64>();
}

// Truncates toward zero, clamped to the type: converting an out-of-range
// double to an integer is undefined, so the ends are caught first. The
// largest values round up to a power of two as doubles, so ">=" is exact.
template <typename Value>
static Value TruncateClamped(double value)
{
    double const lowest = static_cast<double>(std::numeric_limits<Value>::min());
    double const beyond_highest = static_cast<double>(std::numeric_limits<Value>::max());
    if (std::isnan(value))
        return 0;
    if (value >= beyond_highest)
        return std::numeric_limits<Value>::max();
    if (value <= lowest)
        return std::numeric_limits<Value>::min();
    return static_cast<Value>(value);
}

LtNat64 QzJsonReadStream::ReadNat64AsNumber()
{
    return TruncateClamped<LtNat64>(ReadDouble());
}

LtInt64 QzJsonReadStream::ReadInt64AsNumber()
{
    return TruncateClamped<LtInt64>(ReadDouble());
}
