// QzSysCryptHash.cpp: the portable half of QzSysCryptHash: the operations
// that end a handle, the sizes of the algorithms, and the parsing of DSS key
// blobs. The platform's half is posix/QzSysCryptHashOpenSSL.cpp.

#include "qzutil/sys/QzSysCryptHash.h"

#include <memory>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/sys/internal/QzSysCryptDSSBlob.h"

// Blob header fields, as the key blob format fixes them.
static constexpr LtNat8 kPublicBlobType = 6;
static constexpr LtNat8 kPrivateBlobType = 7;
static constexpr LtNat8 kBlobVersion = 2;
static constexpr LtNat32 kDSSSignAlgorithm = 0x2200;
static constexpr LtNat32 kPublicMagic = 0x31535344;   // "DSS1" as it lies in the blob
static constexpr LtNat32 kPrivateMagic = 0x32535344;  // "DSS2"

static constexpr unsigned kHeaderBytes = 16;      // type, version, 0, algorithm, magic, bits
static constexpr unsigned kSeedRecordBytes = 24;  // counter (4), seed (20)

static constexpr int kSHA1Bytes = 20;
static constexpr int kSHA256Bytes = 32;

QzSysCryptHashHandle::~QzSysCryptHashHandle() = default;

int QzSysCryptHashSHA1::GetHashSizeInBytes() const
{
    return kSHA1Bytes;
}

int QzSysCryptHashSHA256::GetHashSizeInBytes() const
{
    return kSHA256Bytes;
}

int QzSysCryptHash::AddData(QzSysCryptHashHandle *handle, void const *data, unsigned size)
{
    return handle != nullptr ? handle->AddData(data, size) : 0;
}

int QzSysCryptHash::GetHashSizeInBytes(QzSysCryptHashHandle const *handle)
{
    return handle != nullptr ? handle->GetHashSizeInBytes() : 0;
}

int QzSysCryptHash::GenerateAndDestroy(QzSysCryptHashHandle *handle, unsigned char *buffer,
                                       unsigned size)
{
    std::unique_ptr<QzSysCryptHashHandle> owned(handle);
    return owned != nullptr ? owned->GetValue(buffer, size) : 0;
}

void QzSysCryptHash::Destroy(QzSysCryptHashHandle *handle)
{
    delete handle;
}

int QzSysCryptHash::GetDSASignatureSizeInBytes(QzSysCryptHashHandle const *handle)
{
    return handle != nullptr ? handle->GetSignatureSizeInBytes() : 0;
}

int QzSysCryptHash::DSASignHashAndDestroy(QzSysCryptHashHandle *handle, unsigned char *signature,
                                          unsigned size)
{
    std::unique_ptr<QzSysCryptHashHandle> owned(handle);
    return owned != nullptr ? owned->Sign(signature, size) : 0;
}

QzSysCryptHash::VerifyResult QzSysCryptHash::DSAVerifyHashAndDestroy(QzSysCryptHashHandle *handle,
                                                                     unsigned char const *signature,
                                                                     unsigned size)
{
    std::unique_ptr<QzSysCryptHashHandle> owned(handle);
    return owned != nullptr ? owned->Verify(signature, size) : eVERIFY_ERROR;
}

static LtNat32 ReadNat32LittleEndian(unsigned char const *bytes)
{
    return static_cast<LtNat32>(bytes[0]) | static_cast<LtNat32>(bytes[1]) << 8 |
           static_cast<LtNat32>(bytes[2]) << 16 | static_cast<LtNat32>(bytes[3]) << 24;
}

bool QzSysCryptDSSBlob::Parse(void const *blob, unsigned size, Kind kind, Parts *parts)
{
    if (blob == nullptr || size < kHeaderBytes)
        return false;
    auto const *bytes = static_cast<unsigned char const *>(blob);
    bool is_private = kind == ePRIVATE;
    if (bytes[0] != (is_private ? kPrivateBlobType : kPublicBlobType) || bytes[1] != kBlobVersion ||
        bytes[2] != 0 || bytes[3] != 0 || ReadNat32LittleEndian(bytes + 4) != kDSSSignAlgorithm ||
        ReadNat32LittleEndian(bytes + 8) != (is_private ? kPrivateMagic : kPublicMagic))
        return false;
    LtNat32 bit_length = ReadNat32LittleEndian(bytes + 12);
    if (bit_length == 0 || bit_length % 8 != 0)
        return false;

    unsigned prime_bytes = bit_length / 8;
    unsigned key_bytes = is_private ? kSubprimeBytes : prime_bytes;
    // In 64 bits: a hostile bit length must not wrap the sum to a small size.
    LtNat64 expected = LtNat64{kHeaderBytes} + 2 * LtNat64{prime_bytes} + kSubprimeBytes +
                       key_bytes + kSeedRecordBytes;
    if (expected != size)
        return false;

    parts->m_prime = bytes + kHeaderBytes;
    parts->m_subprime = parts->m_prime + prime_bytes;
    parts->m_base = parts->m_subprime + kSubprimeBytes;
    parts->m_key = parts->m_base + prime_bytes;
    parts->m_prime_bytes = prime_bytes;
    parts->m_key_bytes = key_bytes;
    return true;
}
