// QzReadStreamFuzzScript.h: what the typed-stream fuzz target and its seed
// generator share: the fixed script of typed values, walked by a reader (the
// target), a writer (both), or a maker of sample values (the generator); the
// "pass" filter and the "fuzzfmt" format that headers may name; and the
// values of one walk, kept as raw bytes so that a round trip compares them
// bit for bit.
#pragma once

#include "QzFuzzCheck.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"

// The widths of the script's bit run: small values, a whole word's width
// that straddles the boundary between two words, and an empty read; 56 bits
// in all, so two words.
constexpr unsigned char kQzFuzzBitWidths[] = {3, 13, 32, 0, 7, 1};

// The values of one walk, one item per value in script order. A scalar or an
// array is its bytes; a string is "N" for null, else "S" and its bytes.
using QzFuzzScriptValues = std::vector<std::string>;

template <typename Value>
inline std::string QzFuzzItemOf(Value const *values, std::size_t count)
{
    return std::string(reinterpret_cast<char const *>(values), sizeof(Value) * count);
}

// Walks the script: every typed read of the stream and its write twin, in an
// order that makes the binary form pad (a Nat8 before an Int32, strings of odd
// length before a Nat16) and puts a sync in the middle. The walker gets both
// member functions of each step and uses the one it needs.
template <typename Walker>
void QzWalkFuzzScript(Walker &walker)
{
    walker.Scalar(&QzReadStream::ReadNat8, &QzWriteStream::WriteNat8);
    walker.Scalar(&QzReadStream::ReadInt32, &QzWriteStream::WriteInt32);
    walker.Scalar(&QzReadStream::ReadInt8, &QzWriteStream::WriteInt8);
    walker.Scalar(&QzReadStream::ReadInt16, &QzWriteStream::WriteInt16);
    walker.Scalar(&QzReadStream::ReadNat16, &QzWriteStream::WriteNat16);
    walker.Scalar(&QzReadStream::ReadNat64, &QzWriteStream::WriteNat64);
    walker.Scalar(&QzReadStream::ReadSingle, &QzWriteStream::WriteSingle);
    walker.Scalar(&QzReadStream::ReadDouble, &QzWriteStream::WriteDouble);
    walker.Scalar(&QzReadStream::ReadFloat, &QzWriteStream::WriteFloat);
    walker.Scalar(&QzReadStream::ReadBoolean, &QzWriteStream::WriteBoolean);
    walker.Scalar(&QzReadStream::ReadEnum, &QzWriteStream::WriteEnum);
    walker.Scalar(&QzReadStream::ReadBitfield, &QzWriteStream::WriteBitfield);
    walker.Scalar(&QzReadStream::ReadTime, &QzWriteStream::WriteTime);
    walker.Size();
    walker.Scalar(&QzReadStream::ReadNat32, &QzWriteStream::WriteNat32);
    walker.Array(&QzReadStream::ReadInt8Array, &QzWriteStream::WriteInt8Array);
    walker.Array(&QzReadStream::ReadNat8Array, &QzWriteStream::WriteNat8Array);
    walker.Array(&QzReadStream::ReadInt16Array, &QzWriteStream::WriteInt16Array);
    walker.Array(&QzReadStream::ReadNat16Array, &QzWriteStream::WriteNat16Array);
    walker.Array(&QzReadStream::ReadInt32Array, &QzWriteStream::WriteInt32Array);
    walker.Array(&QzReadStream::ReadNat32Array, &QzWriteStream::WriteNat32Array);
    walker.Array(&QzReadStream::ReadNat64Array, &QzWriteStream::WriteNat64Array);
    walker.Array(&QzReadStream::ReadSingleArray, &QzWriteStream::WriteSingleArray);
    walker.Array(&QzReadStream::ReadDoubleArray, &QzWriteStream::WriteDoubleArray);
    walker.Array(&QzReadStream::ReadFloatArray, &QzWriteStream::WriteFloatArray);
    walker.String(/*use_temp_buffer=*/false);
    walker.Scalar(&QzReadStream::ReadNat16, &QzWriteStream::WriteNat16);
    walker.WideString(/*use_temp_buffer=*/false);
    walker.Sync();
    walker.Scalar(&QzReadStream::GetNat8, &QzWriteStream::SendNat8);
    walker.Align();
    walker.Scalar(&QzReadStream::GetInt16, &QzWriteStream::SendInt16);
    walker.Scalar(&QzReadStream::GetNat16, &QzWriteStream::SendNat16);
    walker.Scalar(&QzReadStream::GetNat64, &QzWriteStream::SendNat64);
    walker.CheckedValue(QzStream::eTOKEN_INT32, &QzReadStream::GetInt32, &QzWriteStream::SendInt32);
    walker.CheckedRun(QzStream::eTOKEN_NAT32_ARRAY, 3, &QzReadStream::GetNat32,
                      &QzWriteStream::SendNat32);
    walker.Bits();
    walker.String(/*use_temp_buffer=*/true);
    walker.WideString(/*use_temp_buffer=*/true);
    walker.String(/*use_temp_buffer=*/false);
}

// Writes the values of a walk back through the script.
class QzFuzzScriptWriter {
public:
    QzFuzzScriptWriter(QzWriteStream *writer, QzFuzzScriptValues const *values)
        : m_writer(writer), m_values(values)
    {}

    template <typename Value>
    void Scalar(Value (QzReadStream::*)(), void (QzWriteStream::*write)(Value))
    {
        (m_writer->*write)(Next<Value>());
    }

    void Size() { m_writer->WriteArraySize32(Next<LtInt32>()); }

    template <typename Value>
    void Array(void (QzReadStream::*)(Value *, LtInt32),
               void (QzWriteStream::*write)(Value const *, LtInt32))
    {
        m_writer->WriteArraySize32(Next<LtInt32>());
        std::string const &bytes = NextItem();
        std::vector<Value> values(bytes.size() / sizeof(Value));
        if (!values.empty())
            std::memcpy(values.data(), bytes.data(), bytes.size());
        (m_writer->*write)(values.data(), static_cast<LtInt32>(values.size()));
    }

    void String(bool)
    {
        std::string const &item = NextItem();
        if (item == "N")
            m_writer->WriteString(nullptr);
        else
            m_writer->WriteString(item.data() + 1, static_cast<int>(item.size() - 1));
    }

    void WideString(bool)
    {
        std::string const &item = NextItem();
        if (item == "N") {
            m_writer->WriteWideString(nullptr);
            return;
        }
        std::u16string text((item.size() - 1) / sizeof(LtWChar), u'\0');
        if (!text.empty())
            std::memcpy(text.data(), item.data() + 1, text.size() * sizeof(LtWChar));
        m_writer->WriteWideString(text.c_str());
    }

    void Sync() { m_writer->WriteSync(); }
    void Align() { m_writer->RequireAlignment(8); }

    template <typename Value>
    void CheckedValue(QzStream::DebugToken token, Value (QzReadStream::*read)(),
                      void (QzWriteStream::*write)(Value))
    {
        m_writer->SendDebug(token);
        Scalar(read, write);
    }

    template <typename Value>
    void CheckedRun(QzStream::DebugToken token, LtInt32 count, Value (QzReadStream::*read)(),
                    void (QzWriteStream::*write)(Value))
    {
        m_writer->SendDebug(token, count);
        for (LtInt32 i = 0; i < count; ++i)
            Scalar(read, write);
    }

    void Bits()
    {
        m_writer->BeginBits();
        for (unsigned char width : kQzFuzzBitWidths)
            m_writer->WriteBits(Next<unsigned>(), width);
        (void)m_writer->EndBits();  // the reader's word count follows from the widths
        (void)NextItem();
    }

    // True once every value went out, none missing and none left over.
    bool IsComplete() const { return m_next == m_values->size(); }

private:
    std::string const &NextItem()
    {
        QZ_FUZZ_CHECK(m_next < m_values->size(), "the walk has a value for every step");
        return (*m_values)[m_next++];
    }

    template <typename Value>
    Value Next()
    {
        std::string const &item = NextItem();
        QZ_FUZZ_CHECK(item.size() == sizeof(Value), "a scalar item has the scalar's size");
        Value value;
        std::memcpy(&value, item.data(), sizeof value);
        return value;
    }

    QzWriteStream *m_writer;             // borrowed
    QzFuzzScriptValues const *m_values;  // borrowed
    std::size_t m_next = 0;              // index of the next item to write
};

// The filter that headers name "pass": hands bytes on unchanged in both
// directions, so that runs through a filter chain see the same data.
class QzFuzzPassFilter : public QzStreamFilter {
public:
    char const *GetName() const override { return "pass"; }
    int WriteLock(unsigned char **buffer, int *size) override
    {
        return GetSink()->WriteLock(buffer, size);
    }
    int WriteProcess(int count) override { return GetSink()->WriteProcess(count); }
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override
    {
        return GetSink()->ReadLock(buffer, size);
    }
    int ReadProcess(int count) override { return GetSink()->ReadProcess(count); }
};

// The current version of "fuzzfmt"; "fuzzfmt-1" to "fuzzfmt-9" name earlier ones.
constexpr int kQzFuzzFormatVersion = 10;

inline int QzFuzzAcceptEarlierFormat(QzStreamFormat const *, char const *name, int *version)
{
    if (std::strncmp(name, "fuzzfmt-", 8) != 0 || name[8] < '1' || name[8] > '9' || name[9] != 0)
        return 0;
    *version = name[8] - '0';
    return 1;
}

// "fuzzfmt": extendable, so a header that names it is followed by the
// extension list; two plain entries and one that extends another, so that a
// reader's entry map holds both kinds.
inline void QzFuzzSetUpFormat(QzStreamFormat *format)
{
    format->SetVersion(kQzFuzzFormatVersion);
    format->SetEarlierVersionCB(&QzFuzzAcceptEarlierFormat);
    format->SetEntry(0, nullptr, nullptr, nullptr, "Point", -1);
    format->SetEntry(1, nullptr, nullptr, nullptr, "Curve", -1);
    format->SetEntry(2, nullptr, nullptr, nullptr, "Spline", 1);
}
