// QzSysCryptHash.h: SHA-1 and SHA-256 digests, and DSA signatures over
// SHA-1 with keys given as DSS key blobs, by way of the platform's
// cryptography.
#pragma once

#include "qzutil/frame/QzExport.h"

class QzSysCryptHashHandle;
class QzSysCryptSignContext;  // opaque: a signing key and a verifying key
struct QzSysCryptProvider;    // opaque: the key a signing or verifying hash uses

// Class of statics; a counted component with no dependencies.
//
// Key blobs are little-endian, as they lie in a file:
//   public:  type 6, version 2, 0 (2 bytes), algorithm 0x2200 (4 bytes),
//            magic "DSS1", bit length n (4 bytes), p (n/8 bytes), q (20),
//            g (n/8), y (n/8), seed record: counter (4), seed (20).
//   private: type 7, version 2, 0, 0x2200, magic "DSS2", n, p (n/8), q (20),
//            g (n/8), x (20), seed record.
// A blob must be exactly that long; n is a non-zero multiple of 8. The seed
// record is carried but not checked.
//
// Signatures are 40 bytes: r then s, 20 bytes each, little-endian.
//
// Failure: a failure of the platform is written to the log (not posted:
//          nothing here stands on QzError) as "<call> failed: <reason>\n",
//          the reason being the platform's code, with <call> one of
//          CryptAcquireContext (Initialise), CryptCreateHash, CryptHashData,
//          CryptGetHashParam, CryptImportKey, CryptGetUserKey (a private key
//          asked for without a blob: there are no key containers),
//          CryptSignHash and CryptVerifySignature; then the call's result
//          says so. A null handle or context is refused without a line.
// Threads: Initialise and Terminate on one thread, before and after the
//          others use the class. The digest algorithms fetched by Initialise
//          are then shared read-only, so any thread may make and use its own
//          handles and contexts; one handle or context belongs to one thread
//          at a time.
class QZUTIL_API QzSysCryptHash {
public:
    enum HashType : int {
        eSHA1 = 0,
        eSHA256 = 1,
    };

    // Compare with eVERIFY_OK: the values have no truth meaning.
    enum VerifyResult : int {
        eVERIFY_OK = 0,             // the signature matches the data and key
        eVERIFY_BAD_SIGNATURE = 1,  // well formed, but not of this data or key
        eVERIFY_ERROR = 2,          // no verifying key, bad size, platform failure
    };

    // Fetches the digest algorithms; a failure is logged and leaves Create
    // failing, and is not fatal here.
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // A new hash, or null (logged; also for a type outside HashType and
    // before Initialise). Caller owns it: end it with GenerateAndDestroy or
    // Destroy.
    static QzSysCryptHashHandle *Create(HashType type);
    // Adds `size` bytes. 1, or 0 (logged) and the hash is spoilt.
    static int AddData(QzSysCryptHashHandle *handle, void const *data, unsigned size);
    // 20 for SHA-1, 32 for SHA-256; 0 for null.
    static int GetHashSizeInBytes(QzSysCryptHashHandle const *handle);
    // Takes ownership of `handle` and destroys it, having written the value
    // into `buffer` (`size` bytes, at least GetHashSizeInBytes). 1, or 0
    // with the buffer unspecified.
    static int GenerateAndDestroy(QzSysCryptHashHandle *handle, unsigned char *buffer,
                                  unsigned size);
    // Takes ownership of `handle` and destroys it; null is ignored.
    static void Destroy(QzSysCryptHashHandle *handle);

    // A context without keys, or null when out of memory. Caller owns it:
    // end it with DestroyDSASignContext, after every hash made on it.
    static QzSysCryptSignContext *CreateDSASignContext();
    // Takes ownership of `context` and destroys it with its keys.
    static void DestroyDSASignContext(QzSysCryptSignContext *context);
    // Non-zero when the context has a signing key.
    static int CanContextSign(QzSysCryptSignContext const *context);
    // Sets the signing key from a private blob (replacing any). Without a
    // blob (null or size 0) it fails, logging CryptGetUserKey; a malformed
    // or unusable blob fails logging CryptImportKey. 1, or 0 with the
    // previous key kept.
    static int SetDSAPrivateKey(QzSysCryptSignContext *context, void const *blob, unsigned size);
    // Sets the verifying key from a public blob (replacing any). 1, or 0
    // (logged CryptImportKey) with the previous key kept.
    static int SetDSAPublicKey(QzSysCryptSignContext *context, void const *blob, unsigned size);
    // A SHA-1 hash that signs with the context's signing key, or verifies
    // with its verifying key; the key is looked at when the hash is ended,
    // so it may be set after. Null as Create. Caller owns it; the context
    // must outlive it.
    static QzSysCryptHashHandle *CreateDSASignHash(QzSysCryptSignContext *context);
    static QzSysCryptHashHandle *CreateDSAVerifyHash(QzSysCryptSignContext *context);
    // 40 for a signing or verifying hash, 0 for a plain one or null.
    static int GetDSASignatureSizeInBytes(QzSysCryptHashHandle const *handle);
    // Takes ownership of `handle` and destroys it, having signed its value
    // into `signature` (`size` bytes, at least 40). 1, or 0 (logged).
    static int DSASignHashAndDestroy(QzSysCryptHashHandle *handle, unsigned char *signature,
                                     unsigned size);
    // Takes ownership of `handle` and destroys it, having checked the
    // 40-byte `signature` against its value. Only eVERIFY_ERROR is logged.
    static VerifyResult DSAVerifyHashAndDestroy(QzSysCryptHashHandle *handle,
                                                unsigned char const *signature, unsigned size);
};

// A hash in progress. The slots below are the whole interface; callers go
// through QzSysCryptHash, which makes and destroys the concrete handles.
//
// Ownership: owns the platform's digest state; neither copyable nor
//            movable. Made with the global new (the component stands on no
//            other, so not on QzMemory) and destroyed by delete.
// Threads:   one thread at a time.
// Invariant: the value is taken once; after GetValue, Sign or Verify the
//            handle accepts nothing more.
class QZUTIL_API QzSysCryptHashHandle {
public:
    QzSysCryptHashHandle() = default;
    QzSysCryptHashHandle(QzSysCryptHashHandle const &) = delete;
    QzSysCryptHashHandle &operator=(QzSysCryptHashHandle const &) = delete;
    virtual ~QzSysCryptHashHandle();

    // Starts the digest. `provider` (borrowed, must outlive the handle)
    // carries the key of a signing or verifying hash; null makes a plain
    // hash. 1, or 0 (logged CryptCreateHash).
    virtual int Create(QzSysCryptProvider *provider) = 0;
    // 1, or 0 (logged CryptHashData).
    virtual int AddData(void const *data, unsigned size) = 0;
    // Ends the digest into `buffer` (`size` bytes, at least the hash size).
    // 1, or 0 (logged CryptGetHashParam).
    virtual int GetValue(unsigned char *buffer, unsigned size) = 0;
    virtual int GetHashSizeInBytes() const = 0;
    // 40 when made on a provider, 0 for a plain hash.
    virtual int GetSignatureSizeInBytes() const = 0;
    // The platform's digest state (an EVP_MD_CTX *), still owned by the
    // handle; null before Create and once the value is taken.
    virtual void *GetNativeHandle() const = 0;
    // Ends the digest and signs it with the provider's key into `signature`
    // (`size` bytes, at least 40). 1, or 0 (logged CryptSignHash).
    virtual int Sign(unsigned char *signature, unsigned size) = 0;
    // Ends the digest and checks the 40-byte `signature` with the
    // provider's key; eVERIFY_ERROR is logged as CryptVerifySignature.
    virtual QzSysCryptHash::VerifyResult Verify(unsigned char const *signature, unsigned size) = 0;
};

// The digest state and provider common to both algorithms; the concrete
// classes give the algorithm and its size.
//
// Ownership: owns the digest state; borrows the provider.
class QZUTIL_API QzSysCryptHashWinBase : public QzSysCryptHashHandle {
public:
    ~QzSysCryptHashWinBase() override;

    int Create(QzSysCryptProvider *provider) override;
    int AddData(void const *data, unsigned size) override;
    int GetValue(unsigned char *buffer, unsigned size) override;
    int GetSignatureSizeInBytes() const override;
    void *GetNativeHandle() const override;
    int Sign(unsigned char *signature, unsigned size) override;
    QzSysCryptHash::VerifyResult Verify(unsigned char const *signature, unsigned size) override;

protected:
    explicit QzSysCryptHashWinBase(QzSysCryptHash::HashType type) : m_type(type) {}

private:
    QzSysCryptHash::HashType m_type;
    QzSysCryptProvider *m_provider = nullptr;  // borrowed; null for a plain hash
    void *m_digest = nullptr;                  // owned; null before Create and after the value
};

class QZUTIL_API QzSysCryptHashSHA1 final : public QzSysCryptHashWinBase {
public:
    QzSysCryptHashSHA1() : QzSysCryptHashWinBase(QzSysCryptHash::eSHA1) {}
    int GetHashSizeInBytes() const override;  // 20
};

class QZUTIL_API QzSysCryptHashSHA256 final : public QzSysCryptHashWinBase {
public:
    QzSysCryptHashSHA256() : QzSysCryptHashWinBase(QzSysCryptHash::eSHA256) {}
    int GetHashSizeInBytes() const override;  // 32
};
