// QzTempFileContents.cpp: a temporary file's bytes kept in a typed stream.
// It lives with the streams because the file class stands below them.

#include <algorithm>
#include <vector>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/sys/QzTempFile.h"

// Bytes moved per array: a stream block's worth, so that neither side holds
// the whole file.
static constexpr std::size_t kPieceBytes = 65536;

// Posts why the bytes could not move and stops the stream, so that the
// caller's End reports the loss.
static void FailTransfer(QzStream *stream, QzStream::ErrorId error, char const *what,
                         LtWChar const *filename)
{
    QzError::Post(QzSysError::eWARNING, nullptr, "QzTempFile: %s %ls", what,
                  filename ? filename : u"(no file)");
    stream->SetError(error);
}

void QzTempFile::WriteContents(QzWriteStream *stream) const
{
    if (stream->IsError())
        return;
    std::FILE *file = IsValid() ? QzSysFile::fopenW(GetFilename(), "rb") : nullptr;
    LtNat64 size = 0;
    if (file == nullptr || !QzSysFile::GetFileSizeW(GetFilename(), &size)) {
        FailTransfer(stream, QzStream::ErrorWriteProcess, "cannot read", GetFilename());
        if (file != nullptr)
            QzSysFile::fclose(file);
        return;
    }
    stream->WriteNat64(size);
    std::vector<LtNat8> piece(kPieceBytes);
    for (LtNat64 left = size; left > 0 && !stream->IsError();) {
        std::size_t const want = static_cast<std::size_t>(std::min<LtNat64>(left, kPieceBytes));
        if (QzSysFile::fread(piece.data(), 1, want, file) != want) {
            // The file shrank under us: what was promised cannot be sent.
            FailTransfer(stream, QzStream::ErrorWriteProcess, "short read of", GetFilename());
            break;
        }
        stream->WriteNat8Array(piece.data(), static_cast<LtInt32>(want));
        left -= want;
    }
    QzSysFile::fclose(file);
}

void QzTempFile::ReadContents(QzReadStream *stream)
{
    LtNat64 const size = stream->ReadNat64();
    if (stream->IsError())
        return;
    std::FILE *file = IsValid() ? QzSysFile::fopenW(GetFilename(), "wb") : nullptr;
    if (file == nullptr) {
        FailTransfer(stream, QzStream::ErrorReadProcess, "cannot write", GetFilename());
        return;
    }
    std::vector<LtNat8> piece(kPieceBytes);
    for (LtNat64 left = size; left > 0 && !stream->IsError();) {
        std::size_t const want = static_cast<std::size_t>(std::min<LtNat64>(left, kPieceBytes));
        stream->ReadNat8Array(piece.data(), static_cast<LtInt32>(want));
        if (stream->IsError())
            break;
        if (!QzSysFile::fwrite(piece.data(), want, file)) {
            FailTransfer(stream, QzStream::ErrorReadProcess, "cannot write", GetFilename());
            break;
        }
        left -= want;
    }
    if (!QzSysFile::fclose(file) && !stream->IsError())
        FailTransfer(stream, QzStream::ErrorReadProcess, "cannot write", GetFilename());
}
