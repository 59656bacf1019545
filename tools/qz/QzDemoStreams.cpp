// QzDemoStreams.cpp: the typed-stream part of "qz demo": one value of every
// type written to files in binary, ascii and debug form, each read back and
// compared, and the ascii file shown.

#include "QzDemo.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamFile.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

namespace {

// One value of each kind that a stream carries.
struct Sample {
    LtInt8 int8 = -8;
    LtNat8 nat8 = 0xA8;
    LtInt16 int16 = -16000;
    LtNat16 nat16 = 0xBEEF;
    LtInt32 int32 = -2000000000;
    LtNat32 nat32 = 0xDEADBEEF;
    LtNat64 nat64 = 0x0123456789ABCDEFULL;
    LtInt64 time = 1795000000LL * 1000000;
    LtSingle single = 3.25f;
    LtDouble real = 2.718281828459045;
    LtFloat float_value = -0.1;
    bool boolean = true;
    LtNat32 enumeration = 3;
    LtNat32 bitfield = 0x5;
    LtInt32 array[4] = {1, -2, 300000, -4000000};
    LtDouble doubles[3] = {0.5, -1.0e-300, 6.02214076e23};
    QzStringBuffer text{"quote \" and backslash \\"};
    QzWideStringBuffer wide{u"\u00e9t\u00e9 \U0001F600"};
    unsigned bits = 0x2D;  // six bits
};

void WriteSample(QzWriteStream &out, Sample const &s)
{
    out.WriteInt8(s.int8);
    out.WriteNat8(s.nat8);
    out.WriteInt16(s.int16);
    out.WriteNat16(s.nat16);
    out.WriteInt32(s.int32);
    out.WriteNat32(s.nat32);
    out.WriteNat64(s.nat64);
    out.WriteTime(s.time);
    out.WriteSingle(s.single);
    out.WriteDouble(s.real);
    out.WriteFloat(s.float_value);
    out.WriteBoolean(s.boolean);
    out.WriteEnum(s.enumeration);
    out.WriteBitfield(s.bitfield);
    out.WriteArraySize32(4);
    out.WriteInt32Array(s.array, 4);
    out.WriteDoubleArray(s.doubles, 3);
    out.WriteString(s.text.GetString());
    out.WriteString(nullptr);
    out.WriteWideString(s.wide.GetString());
    out.BeginBits();
    out.WriteBits(s.bits, 6);
    out.EndBits();
}

// Reads what WriteSample wrote; true if every value came back equal.
bool ReadSampleBack(QzReadStream &in, Sample const &s)
{
    bool same = in.ReadInt8() == s.int8;
    same &= in.ReadNat8() == s.nat8;
    same &= in.ReadInt16() == s.int16;
    same &= in.ReadNat16() == s.nat16;
    same &= in.ReadInt32() == s.int32;
    same &= in.ReadNat32() == s.nat32;
    same &= in.ReadNat64() == s.nat64;
    same &= in.ReadTime() == s.time;
    same &= in.ReadSingle() == s.single;
    same &= in.ReadDouble() == s.real;
    same &= in.ReadFloat() == s.float_value;
    same &= in.ReadBoolean() == s.boolean;
    same &= in.ReadEnum() == s.enumeration;
    same &= in.ReadBitfield() == s.bitfield;
    same &= in.ReadArraySize32() == 4;
    LtInt32 array[4];
    in.ReadInt32Array(array, 4);
    same &= std::memcmp(array, s.array, sizeof array) == 0;
    LtDouble doubles[3];
    in.ReadDoubleArray(doubles, 3);
    same &= std::memcmp(doubles, s.doubles, sizeof doubles) == 0;
    QzStringBuffer text;
    in.ReadString(&text);
    same &= text == s.text.GetString();
    in.ReadString(&text);
    same &= text.IsNull();
    QzWideStringBuffer wide;
    in.ReadWideString(&wide);
    same &= wide == s.wide.GetString();
    in.BeginBits();
    same &= in.ReadBits(6) == s.bits;
    in.EndBits();
    return same && !in.IsError();
}

struct Form {
    char const *label;
    char const *file;
    int ascii;
    int debug;
};

// Writes the sample in one form to `path`, reads it back; prints a line.
bool RoundTrip(Form const &form, LtWChar const *path, Sample const &sample)
{
    QzStreamFile sink(path);
    QzWriteStream out(&sink);
    out.SetAscii(form.ascii);
    out.SetDebug(form.debug);
    bool written = out.Begin(1, 0) != 0;
    if (written) {
        WriteSample(out, sample);
        written = out.End() != 0;
    }
    // The reader is not told the form: the header line says it.
    QzReadStream in(&sink);
    bool const read_back = written && in.Begin(1, 0) && ReadSampleBack(in, sample);
    bool const ended = read_back && in.End(1);
    std::printf("  %-13s %-18s %6llu bytes, %s\n", form.label, form.file,
                static_cast<unsigned long long>(QzSysFile::GetFileSizeW(path)),
                ended ? "every value read back equal"
                      : (written ? "read back FAILED" : "write FAILED"));
    return ended;
}

void PrintFile(LtWChar const *path)
{
    std::FILE *file = QzSysFile::fopenW(path, "rb");
    if (file == nullptr)
        return;
    char buffer[4096];
    std::size_t size;
    while ((size = QzSysFile::fread(buffer, 1, sizeof buffer, file)) > 0)
        std::fwrite(buffer, 1, size, stdout);
    QzSysFile::fclose(file);
}

}  // namespace

bool ShowTypedStreams()
{
    std::printf("\nTyped streams: one value of every type, written and read back:\n");
    QzStream::Initialise();
    QzWideStringBuffer folder;
    bool ok = QzSysFile::MakeTempFileNameW(nullptr, u"qzdemo", nullptr, &folder) &&
              QzSysFile::CreateDirW(folder.GetString());
    if (ok) {
        Sample const sample;
        Form const forms[] = {
            {"binary", "values.bin", 0, 0},
            {"ascii", "values.txt", 1, 0},
            {"binary debug", "values.debug.bin", 0, 1},
            {"ascii debug", "values.debug.txt", 1, 1},
        };
        QzWideStringBuffer path;
        for (Form const &form : forms) {
            QzWideStringBuffer name;
            (void)QzString::UTF8ToWideString(form.file, &name);
            QzSysFile::JoinPathsW(folder.GetString(), name.GetString(), &path);
            ok &= RoundTrip(form, path.GetString(), sample);
        }
        std::printf("\nThe ascii file:\n");
        std::fflush(stdout);
        QzSysFile::JoinPathsW(folder.GetString(), u"values.txt", &path);
        PrintFile(path.GetString());
        QzSysFile::DeleteW(folder.GetString(), true, true);
    } else {
        std::printf("  could not make a scratch folder\n");
    }
    QzStream::Terminate();
    return ok;
}
