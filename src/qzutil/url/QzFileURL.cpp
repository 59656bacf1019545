// QzFileURL.cpp: the QzFileURL component, its table of open files keyed by
// URI, the checks that every kind of file shares, and the bookkeeping of the
// handle base.

#include "qzutil/url/QzFileURL.h"

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/url/internal/QzFileURLHandle.h"
#include "qzutil/url/internal/QzLocalFileURLHandle.h"

static QzComponent g_file_url_component;

// The open files, linked through the handles, most recent first. Each is
// owned here from its first OpenURL to its last CloseURL (or Terminate).
// Single-threaded like the whole interface, so no lock.
static QzFileURLHandle *g_open_files;

// --- The handle base ---

QzFileURLHandle::QzFileURLHandle(LtWChar const *uri, unsigned flags) : m_uri(uri), m_flags(flags)
{}

QzFileURLHandle::~QzFileURLHandle() = default;

void QzFileURLHandle::AdjustBytesRead(LtInt64 delta)
{
    if (delta >= 0) {
        m_bytes_read += static_cast<LtNat64>(delta);
        return;
    }
    LtNat64 const drop = 0 - static_cast<LtNat64>(delta);
    m_bytes_read = drop >= m_bytes_read ? 0 : m_bytes_read - drop;
}

void QzFileURLHandle::PostTransferFailure(char const *operation, unsigned size,
                                          LtNat64 position) const
{
    QzError::Post(QzSysError::eWARNING, GetComponent(),
                  "QzFileURL: %s of %u bytes at %llu failed in %ls (error %d)", operation, size,
                  position, GetURI(), QzSysFile::GetLastError());
}

QzComponent *QzFileURLHandle::GetComponent()
{
    return &g_file_url_component;
}

// --- The open table ---

static QzFileURLHandle *FindOpenFile(LtWChar const *uri)
{
    for (QzFileURLHandle *file = g_open_files; file != nullptr; file = file->GetNextOpen()) {
        if (QzWideString::Equal(file->GetURI(), uri))
            return file;
    }
    return nullptr;
}

static void UnlinkOpenFile(QzFileURLHandle *handle)
{
    if (g_open_files == handle) {
        g_open_files = handle->GetNextOpen();
        return;
    }
    for (QzFileURLHandle *file = g_open_files; file != nullptr; file = file->GetNextOpen()) {
        if (file->GetNextOpen() == handle) {
            file->SetNextOpen(handle->GetNextOpen());
            return;
        }
    }
}

static void CloseAndDelete(QzFileURLHandle *handle)
{
    handle->Close();
    delete handle;
}

// Whether an open file with `held` flags may be shared by an opener asking
// for `asked`: the same flags, or a read-only temporary file wanted for
// reading alone.
static bool MayShare(unsigned held, unsigned asked)
{
    unsigned const read_only_temporary = QzFileURL::eOPEN_READ_ONLY | QzFileURL::eOPEN_TEMPORARY;
    return held == asked || (held == read_only_temporary && asked == QzFileURL::eOPEN_READ_ONLY);
}

// Whether [position, position + size) passes the end of the file.
static bool PassesEnd(QzFileURLHandle const *handle, LtNat64 position, unsigned size)
{
    LtNat64 const file_size = handle->GetFileSize();
    return position > file_size || size > file_size - position;
}

// --- The component ---

void QzFileURL::Initialise()
{
    if (!g_file_url_component.Initialise("QzFileURL", QZ_COMPONENT_INFO))
        return;
    // The block machinery's options, protocols, queues and cache join here;
    // the local-file stand-in needs the strings and posting only.
    QzString::Initialise();
    QzError::Initialise();
}

void QzFileURL::Terminate()
{
    // Closed while the component still stands, so that their messages
    // are posted for a live component.
    if (g_file_url_component.GetInitialisationCount() == 1) {
        while (g_open_files != nullptr) {
            QzFileURLHandle *handle = g_open_files;
            g_open_files = handle->GetNextOpen();
            CloseAndDelete(handle);
        }
    }
    if (!g_file_url_component.Terminate())
        return;
    QzError::Terminate();
    QzString::Terminate();
}

int QzFileURL::IsInitialised()
{
    return g_file_url_component.IsInitialised();
}

// --- Open and close ---

QzFileURLHandle *QzFileURL::OpenURL(LtWChar const *uri, QzProgress *, unsigned flags,
                                    unsigned sharing)
{
    if (uri == nullptr)
        return nullptr;
    if (QzFileURLHandle *open = FindOpenFile(uri)) {
        if (!MayShare(open->GetFlags(), flags))
            return nullptr;
        open->AddOpen();
        return open;
    }
    QzFileURLHandle *handle = QzLocalFileURLHandle::Open(uri, flags, sharing);
    if (handle != nullptr) {
        handle->SetNextOpen(g_open_files);
        g_open_files = handle;
    }
    return handle;
}

void QzFileURL::CloseURL(QzFileURLHandle *handle)
{
    if (handle == nullptr || !handle->ReleaseOpen())
        return;
    UnlinkOpenFile(handle);
    CloseAndDelete(handle);
}

// --- Transfers and hints. A null handle fails or does nothing. ---

QzFileURL::Status QzFileURL::Read(QzFileURLHandle *handle, Type type, LtNat64 position,
                                  unsigned char *buffer, unsigned size, QzProgress *)
{
    if (handle == nullptr)
        return eSTATUS_ERROR;
    if (size == 0)
        return eSTATUS_OK;
    if (PassesEnd(handle, position, size))
        return eSTATUS_ERROR;
    Status const status = handle->Read(type, position, buffer, size);
    // A read that has not started yet is not progress.
    if (status != eSTATUS_WAIT && status != eSTATUS_UNAVAILABLE)
        handle->AdjustBytesRead(size);
    return status;
}

QzFileURL::Status QzFileURL::Write(QzFileURLHandle *handle, Type type, LtNat64 position,
                                   unsigned char const *data, unsigned size, QzProgress *)
{
    if (handle == nullptr)
        return eSTATUS_ERROR;
    if (size == 0)
        return eSTATUS_OK;
    return handle->Write(type, position, data, size);
}

void QzFileURL::PrepareRead(QzFileURLHandle *handle, LtNat64 position, unsigned size)
{
    if (handle != nullptr && size != 0)
        handle->PrepareRead(position, size);
}

void QzFileURL::PrepareWrite(QzFileURLHandle *handle, LtNat64 position, unsigned size)
{
    if (handle != nullptr && size != 0)
        handle->PrepareWrite(position, size);
}

QzFileURL::Status QzFileURL::TestRead(QzFileURLHandle *handle, LtNat64 position, unsigned size)
{
    if (handle == nullptr)
        return eSTATUS_ERROR;
    if (size == 0)
        return eSTATUS_OK;
    if (PassesEnd(handle, position, size))
        return eSTATUS_ERROR;
    return handle->TestRead(position, size);
}

QzFileURL::Status QzFileURL::TestWrite(QzFileURLHandle *handle, LtNat64 position, unsigned size)
{
    if (handle == nullptr)
        return eSTATUS_ERROR;
    if (size == 0)
        return eSTATUS_OK;
    return handle->TestWrite(position, size);
}

void QzFileURL::LockBuffer(QzFileURLHandle *handle, LtNat64 position, unsigned size)
{
    if (handle != nullptr)
        handle->LockBuffer(position, size);
}

void QzFileURL::UnlockBuffer(QzFileURLHandle *handle, LtNat64 position, unsigned size)
{
    if (handle != nullptr)
        handle->UnlockBuffer(position, size);
}

void QzFileURL::EndAppend(QzFileURLHandle *handle)
{
    if (handle != nullptr)
        handle->EndAppend();
}

void QzFileURL::ReadStatusHint(QzFileURLHandle *handle, int delta)
{
    if (handle != nullptr)
        handle->AdjustBytesRead(delta);
}

// --- Plain reads of the handle ---

LtNat64 QzFileURL::GetFileSize(QzFileURLHandle *handle)
{
    return handle != nullptr ? handle->GetFileSize() : 0;
}

LtWChar const *QzFileURL::GetURI(QzFileURLHandle *handle)
{
    return handle != nullptr ? handle->GetURI() : nullptr;
}

int QzFileURL::IsRemote(QzFileURLHandle *handle)
{
    return handle != nullptr ? handle->IsRemote() : 0;
}
