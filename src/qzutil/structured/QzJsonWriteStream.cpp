// QzJsonWriteStream.cpp: building the tree in document order and printing it.
#include "qzutil/structured/QzJsonWriteStream.h"

#include <cjson/cJSON.h>

#include "qzutil/structured/internal/QzJsonTree.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"

// "%llu" of the largest 64-bit value has 20 digits; a sign makes 21.
static constexpr int kInt64TextBytes = 24;

void QzJsonWriteStreamBase::BeginWrite()
{
    m_data->Clear();
    m_data->SetError(false);
}

bool QzJsonWriteStreamBase::EndWrite(bool formatted, QzStringBuffer *out)
{
    bool is_complete = !m_data->IsError() && m_data->GetRoot() != nullptr && !HaveCurrentJSON();
    bool is_printed =
        is_complete && QzJsonPrintTree(QzJsonAsCJson(m_data->GetRoot()), formatted, out);
    if (!is_printed) {
        m_data->SetError(true);
        out->SetEmptyString();
    }
    m_data->Clear();
    return is_printed;
}

bool QzJsonWriteStreamBase::PlaceNode(QzJsonNode *node, bool is_container)
{
    cJSON *item = QzJsonAsCJson(node);
    if (m_data->IsError() || item == nullptr) {
        cJSON_Delete(item);
        if (item == nullptr)
            m_data->SetError(true);  // cJSON's allocator failed
        return false;
    }
    cJSON *parent = QzJsonAsCJson(m_data->CurrentcJSON());
    if (parent == nullptr) {
        // The first container is the document; a second one would be lost
        // when printing, which is a caller's mistake worth an error; a
        // plain value outside any container is dropped by design.
        if (is_container && m_data->GetRoot() == nullptr) {
            m_data->SetRoot(node);
            return true;
        }
        cJSON_Delete(item);
        if (is_container)
            m_data->SetError(true);
        return false;
    }
    if (cJSON_IsArray(parent))
        return cJSON_AddItemToArray(parent, item) != 0;  // cannot fail for a fresh node
    if (!m_data->IsPropertyName()) {
        cJSON_Delete(item);
        m_data->SetError(true);
        return false;
    }
    bool is_added = cJSON_AddItemToObject(parent, m_data->GetPropertyName(), item) != 0;
    m_data->ClearPropertyName();
    if (!is_added) {
        cJSON_Delete(item);  // the key could not be copied
        m_data->SetError(true);
    }
    return is_added;
}

void QzJsonWriteStreamBase::BeginContainer(QzJsonNode *node)
{
    if (!PlaceNode(node, /*is_container=*/true))
        return;
    m_data->Push(node);
    if (cJSON_IsObject(QzJsonAsCJson(node)))
        m_data->IncrementActiveObjectCount();
    else
        m_data->IncrementActiveArrayCount();
}

void QzJsonWriteStreamBase::EndContainer(bool is_object)
{
    if (m_data->IsError())
        return;
    cJSON *current = QzJsonAsCJson(m_data->CurrentcJSON());
    if (current == nullptr || cJSON_IsObject(current) != is_object) {
        m_data->SetError(true);
        return;
    }
    m_data->Pop();
    if (is_object)
        m_data->DecrementActiveObjectCount();
    else
        m_data->DecrementActiveArrayCount();
}

void QzJsonWriteStreamBase::BeginObject()
{
    if (!m_data->IsError())
        BeginContainer(QzJsonAsNode(cJSON_CreateObject()));
}

void QzJsonWriteStreamBase::EndObject()
{
    EndContainer(/*is_object=*/true);
}

void QzJsonWriteStreamBase::BeginArray()
{
    if (!m_data->IsError())
        BeginContainer(QzJsonAsNode(cJSON_CreateArray()));
}

void QzJsonWriteStreamBase::EndArray()
{
    EndContainer(/*is_object=*/false);
}

void QzJsonWriteStreamBase::WritePropertyName(char const *name)
{
    if (!m_data->IsError())
        m_data->SetPropertyName(name);
}

void QzJsonWriteStreamBase::WriteBoolean(bool value)
{
    if (!m_data->IsError())
        (void)PlaceNode(QzJsonAsNode(cJSON_CreateBool(value)), false);  // errors are sticky
}

// cJSON_CreateNumber keeps the int and the double side by side; the text is
// made from the double when the tree is printed.
void QzJsonWriteStreamBase::WriteInteger(int value)
{
    WriteDouble(value);
}

void QzJsonWriteStreamBase::WriteDouble(double value)
{
    if (!m_data->IsError())
        (void)PlaceNode(QzJsonAsNode(cJSON_CreateNumber(value)), false);  // errors are sticky
}

void QzJsonWriteStreamBase::WriteString(char const *text)
{
    if (!m_data->IsError())
        (void)PlaceNode(QzJsonAsNode(cJSON_CreateString(text != nullptr ? text : "")), false);
}

// --- QzJsonWriteStream ---

void QzJsonWriteStream::WriteWideString(LtWChar const *text)
{
    if (m_data->IsError())
        return;
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(text, &utf8);  // never fails; null gives null
    WriteString(utf8.GetString());
}

void QzJsonWriteStream::Write(double const *values)
{
    BeginArray();
    for (int i = 0; i < 3; ++i)
        WriteDouble(values[i]);
    EndArray();
}

// Integer conversions do not depend on the numeric locale (no grouping flag
// is used), so these need no "C" scope.
void QzJsonWriteStream::WriteNat64AsString(LtNat64 value)
{
    char text[kInt64TextBytes];
    (void)QzSysString::Sprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(value));
    WriteString(text);
}

void QzJsonWriteStream::WriteInt64AsString(LtInt64 value)
{
    char text[kInt64TextBytes];
    (void)QzSysString::Sprintf(text, sizeof text, "%lld", static_cast<long long>(value));
    WriteString(text);
}

void QzJsonWriteStream::WriteNat64AsNumber(LtNat64 value)
{
    WriteDouble(static_cast<double>(value));
}

void QzJsonWriteStream::WriteInt64AsNumber(LtInt64 value)
{
    WriteDouble(static_cast<double>(value));
}
