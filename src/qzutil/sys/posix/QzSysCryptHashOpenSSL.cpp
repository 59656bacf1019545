// QzSysCryptHashOpenSSL.cpp: QzSysCryptHash over OpenSSL 3's libcrypto: the
// digests fetched once at Initialise, one digest context per handle, DSS key
// blobs imported as DSA keys, and signatures converted between their
// 40-byte form and DER.

#include "qzutil/sys/QzSysCryptHash.h"

#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/dsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/internal/QzSysCryptDSSBlob.h"

namespace {

template <typename T, void (*Free)(T *)>
struct OpenSSLFree {
    void operator()(T *object) const { Free(object); }
};
template <typename T, void (*Free)(T *)>
using OpenSSLPtr = std::unique_ptr<T, OpenSSLFree<T, Free>>;

using KeyPtr = OpenSSLPtr<EVP_PKEY, EVP_PKEY_free>;
using KeyContextPtr = OpenSSLPtr<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using NumberPtr = OpenSSLPtr<BIGNUM, BN_free>;
using SecretNumberPtr = OpenSSLPtr<BIGNUM, BN_clear_free>;  // wiped when freed
using NumberContextPtr = OpenSSLPtr<BN_CTX, BN_CTX_free>;
using ParamBuilderPtr = OpenSSLPtr<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>;
using ParamsPtr = OpenSSLPtr<OSSL_PARAM, OSSL_PARAM_free>;
using SignaturePtr = OpenSSLPtr<DSA_SIG, DSA_SIG_free>;

}  // namespace

// The key of a signing or verifying hash; null until one is set.
struct QzSysCryptProvider {
    KeyPtr m_key;
};

// Ownership: owns both keys; hashes made on it borrow its providers.
class QzSysCryptSignContext {
public:
    QzSysCryptProvider m_signing;
    QzSysCryptProvider m_verifying;
};

static QzComponent g_crypt_hash_component;

// Indexed by HashType; fetched by Initialise before other threads use them,
// read-only until Terminate. Null when the fetch failed.
static EVP_MD *g_digests[2];
static char const *const kDigestNames[2] = {"SHA1", "SHA256"};

// A DER DSA signature with a q of 160 bits is at most 48 bytes: a sequence
// header (2) and two integers of up to 21 bytes with their headers (2 + 21).
static constexpr int kMaxDERSignatureBytes = 64;

// Writes "<call> failed: <reason>\n" with the reason of the latest OpenSSL
// error on this thread, and empties the thread's queue so that old errors
// do not show in later lines.
static void LogFailure(char const *call)
{
    auto error = ERR_peek_last_error();
    ERR_clear_error();
    char line[96];
    std::snprintf(line, sizeof line, "%s failed: %d\n", call, ERR_GET_REASON(error));
    QzSysError::LogUTF8String(line);
}

// LogFailure for a failure that this file detects itself: `reason` is one
// of OpenSSL's common reasons (ERR_R_...).
static void LogOwnFailure(char const *call, int reason)
{
    ERR_raise(ERR_LIB_USER, reason);
    LogFailure(call);
}

void QzSysCryptHash::Initialise()
{
    if (!g_crypt_hash_component.Initialise("QzSysCryptHash", QZ_COMPONENT_INFO))
        return;
    bool fetched_all = true;
    for (int type = eSHA1; type <= eSHA256; ++type) {
        g_digests[type] = EVP_MD_fetch(nullptr, kDigestNames[type], nullptr);
        fetched_all = fetched_all && g_digests[type] != nullptr;
    }
    if (!fetched_all)
        LogFailure("CryptAcquireContext");
}

void QzSysCryptHash::Terminate()
{
    if (!g_crypt_hash_component.Terminate())
        return;
    for (EVP_MD *&digest : g_digests) {
        EVP_MD_free(digest);  // a context still using it holds its own reference
        digest = nullptr;
    }
}

int QzSysCryptHash::IsInitialised()
{
    return g_crypt_hash_component.IsInitialised();
}

// A started hash of that type on `provider` (null: a plain hash), or null,
// logged.
static QzSysCryptHashHandle *MakeHash(QzSysCryptHash::HashType type, QzSysCryptProvider *provider)
{
    std::unique_ptr<QzSysCryptHashHandle> handle;
    if (type == QzSysCryptHash::eSHA1)
        handle.reset(new (std::nothrow) QzSysCryptHashSHA1);
    else if (type == QzSysCryptHash::eSHA256)
        handle.reset(new (std::nothrow) QzSysCryptHashSHA256);
    else {
        LogOwnFailure("CryptCreateHash", ERR_R_PASSED_INVALID_ARGUMENT);
        return nullptr;
    }
    if (handle == nullptr) {
        LogOwnFailure("CryptCreateHash", ERR_R_MALLOC_FAILURE);
        return nullptr;
    }
    return handle->Create(provider) ? handle.release() : nullptr;
}

QzSysCryptHashHandle *QzSysCryptHash::Create(HashType type)
{
    return MakeHash(type, nullptr);
}

// --- Handles ---

static EVP_MD_CTX *DigestOf(void *native)
{
    return static_cast<EVP_MD_CTX *>(native);
}

QzSysCryptHashWinBase::~QzSysCryptHashWinBase()
{
    EVP_MD_CTX_free(DigestOf(m_digest));
}

int QzSysCryptHashWinBase::Create(QzSysCryptProvider *provider)
{
    EVP_MD_CTX *digest = EVP_MD_CTX_new();
    // Before Initialise (or after a failed fetch) the algorithm is null and
    // the init fails with OpenSSL's "no digest set".
    if (digest == nullptr || EVP_DigestInit_ex(digest, g_digests[m_type], nullptr) != 1) {
        EVP_MD_CTX_free(digest);
        LogFailure("CryptCreateHash");
        return 0;
    }
    EVP_MD_CTX_free(DigestOf(m_digest));
    m_digest = digest;
    m_provider = provider;
    return 1;
}

int QzSysCryptHashWinBase::AddData(void const *data, unsigned size)
{
    if (m_digest == nullptr) {
        LogOwnFailure("CryptHashData", ERR_R_PASSED_INVALID_ARGUMENT);
        return 0;
    }
    if (EVP_DigestUpdate(DigestOf(m_digest), data, size) != 1) {
        LogFailure("CryptHashData");
        return 0;
    }
    return 1;
}

int QzSysCryptHashWinBase::GetValue(unsigned char *buffer, unsigned size)
{
    // Taking the value ends the digest: the context goes at once, so that no
    // data can be added to a finished state.
    std::unique_ptr<EVP_MD_CTX, OpenSSLFree<EVP_MD_CTX, EVP_MD_CTX_free>> digest(
        DigestOf(m_digest));
    m_digest = nullptr;
    if (digest == nullptr || buffer == nullptr ||
        size < static_cast<unsigned>(GetHashSizeInBytes())) {
        LogOwnFailure("CryptGetHashParam", ERR_R_PASSED_INVALID_ARGUMENT);
        return 0;
    }
    if (EVP_DigestFinal_ex(digest.get(), buffer, nullptr) != 1) {
        LogFailure("CryptGetHashParam");
        return 0;
    }
    return 1;
}

int QzSysCryptHashWinBase::GetSignatureSizeInBytes() const
{
    return m_provider != nullptr ? static_cast<int>(QzSysCryptDSSBlob::kSignatureBytes) : 0;
}

void *QzSysCryptHashWinBase::GetNativeHandle() const
{
    return m_digest;
}

// --- Signatures ---

// The 40-byte form of a DER signature into `signature`; false if it does
// not parse or a number needs more than 20 bytes.
static bool DERToSignature(unsigned char const *der, int der_bytes, unsigned char *signature)
{
    SignaturePtr parsed(d2i_DSA_SIG(nullptr, &der, der_bytes));
    if (parsed == nullptr)
        return false;
    BIGNUM const *r = nullptr;
    BIGNUM const *s = nullptr;
    DSA_SIG_get0(parsed.get(), &r, &s);
    constexpr int kHalf = QzSysCryptDSSBlob::kSubprimeBytes;
    return BN_bn2lebinpad(r, signature, kHalf) == kHalf &&
           BN_bn2lebinpad(s, signature + kHalf, kHalf) == kHalf;
}

// The DER form of a 40-byte signature into `der` (kMaxDERSignatureBytes);
// its length, or 0.
static int SignatureToDER(unsigned char const *signature, unsigned char *der)
{
    constexpr int kHalf = QzSysCryptDSSBlob::kSubprimeBytes;
    SignaturePtr numbers(DSA_SIG_new());
    NumberPtr r(BN_lebin2bn(signature, kHalf, nullptr));
    NumberPtr s(BN_lebin2bn(signature + kHalf, kHalf, nullptr));
    if (numbers == nullptr || r == nullptr || s == nullptr ||
        DSA_SIG_set0(numbers.get(), r.get(), s.get()) != 1)
        return 0;
    (void)r.release();  // both owned by `numbers` now
    (void)s.release();
    int der_bytes = i2d_DSA_SIG(numbers.get(), nullptr);
    if (der_bytes <= 0 || der_bytes > kMaxDERSignatureBytes)
        return 0;
    return i2d_DSA_SIG(numbers.get(), &der);
}

// A key operation on `key` with SHA-1 as the signature digest, started by
// `start` (EVP_PKEY_sign_init or EVP_PKEY_verify_init); null on failure.
static KeyContextPtr StartKeyOperation(EVP_PKEY *key, int (*start)(EVP_PKEY_CTX *))
{
    KeyContextPtr operation(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (operation == nullptr || start(operation.get()) != 1 ||
        EVP_PKEY_CTX_set_signature_md(operation.get(), g_digests[QzSysCryptHash::eSHA1]) != 1)
        return nullptr;
    return operation;
}

int QzSysCryptHashWinBase::Sign(unsigned char *signature, unsigned size)
{
    static constexpr char kCall[] = "CryptSignHash";
    if (m_provider == nullptr || m_provider->m_key == nullptr || m_type != QzSysCryptHash::eSHA1 ||
        signature == nullptr || size < QzSysCryptDSSBlob::kSignatureBytes) {
        LogOwnFailure(kCall, ERR_R_PASSED_INVALID_ARGUMENT);
        return 0;
    }
    unsigned char value[QzSysCryptDSSBlob::kSubprimeBytes];
    if (!GetValue(value, sizeof value))
        return 0;
    KeyContextPtr operation = StartKeyOperation(m_provider->m_key.get(), EVP_PKEY_sign_init);
    unsigned char der[kMaxDERSignatureBytes];
    std::size_t der_bytes = sizeof der;
    if (operation == nullptr ||
        EVP_PKEY_sign(operation.get(), der, &der_bytes, value, sizeof value) != 1 ||
        !DERToSignature(der, static_cast<int>(der_bytes), signature)) {
        LogFailure(kCall);
        return 0;
    }
    return 1;
}

QzSysCryptHash::VerifyResult QzSysCryptHashWinBase::Verify(unsigned char const *signature,
                                                           unsigned size)
{
    static constexpr char kCall[] = "CryptVerifySignature";
    if (m_provider == nullptr || m_provider->m_key == nullptr || m_type != QzSysCryptHash::eSHA1 ||
        signature == nullptr || size != QzSysCryptDSSBlob::kSignatureBytes) {
        LogOwnFailure(kCall, ERR_R_PASSED_INVALID_ARGUMENT);
        return QzSysCryptHash::eVERIFY_ERROR;
    }
    unsigned char value[QzSysCryptDSSBlob::kSubprimeBytes];
    if (!GetValue(value, sizeof value))
        return QzSysCryptHash::eVERIFY_ERROR;
    KeyContextPtr operation = StartKeyOperation(m_provider->m_key.get(), EVP_PKEY_verify_init);
    unsigned char der[kMaxDERSignatureBytes];
    int der_bytes = SignatureToDER(signature, der);
    int verdict = operation != nullptr && der_bytes > 0
                      ? EVP_PKEY_verify(operation.get(), der, static_cast<std::size_t>(der_bytes),
                                        value, sizeof value)
                      : -1;
    if (verdict == 1)
        return QzSysCryptHash::eVERIFY_OK;
    if (verdict == 0) {
        ERR_clear_error();  // a mismatch is an answer, not a failure
        return QzSysCryptHash::eVERIFY_BAD_SIGNATURE;
    }
    LogFailure(kCall);
    return QzSysCryptHash::eVERIFY_ERROR;
}

// --- Keys ---

// A number from `count` little-endian bytes; null when out of memory.
static BIGNUM *FromLittleEndian(unsigned char const *bytes, unsigned count)
{
    return BN_lebin2bn(bytes, static_cast<int>(count), nullptr);
}

// OpenSSL's parameters for the key of a blob: p, q, g and y, and x for a
// private blob. That carries no y, which is computed as g^x mod p (in
// constant time, as x is secret). Null on failure.
static ParamsPtr KeyParameters(QzSysCryptDSSBlob::Parts const &parts, bool is_private)
{
    NumberPtr p(FromLittleEndian(parts.m_prime, parts.m_prime_bytes));
    NumberPtr q(FromLittleEndian(parts.m_subprime, QzSysCryptDSSBlob::kSubprimeBytes));
    NumberPtr g(FromLittleEndian(parts.m_base, parts.m_prime_bytes));
    NumberPtr y;
    SecretNumberPtr x;
    if (is_private) {
        x.reset(FromLittleEndian(parts.m_key, parts.m_key_bytes));
        y.reset(BN_new());
        NumberContextPtr scratch(BN_CTX_new());
        if (p == nullptr || g == nullptr || x == nullptr || y == nullptr || scratch == nullptr ||
            BN_mod_exp_mont_consttime(y.get(), g.get(), x.get(), p.get(), scratch.get(), nullptr) !=
                1)
            return nullptr;
    } else {
        y.reset(FromLittleEndian(parts.m_key, parts.m_key_bytes));
    }
    ParamBuilderPtr builder(OSSL_PARAM_BLD_new());
    if (builder == nullptr || p == nullptr || q == nullptr || g == nullptr || y == nullptr)
        return nullptr;
    OSSL_PARAM_BLD *to = builder.get();
    bool pushed =
        OSSL_PARAM_BLD_push_BN(to, OSSL_PKEY_PARAM_FFC_P, p.get()) == 1 &&
        OSSL_PARAM_BLD_push_BN(to, OSSL_PKEY_PARAM_FFC_Q, q.get()) == 1 &&
        OSSL_PARAM_BLD_push_BN(to, OSSL_PKEY_PARAM_FFC_G, g.get()) == 1 &&
        OSSL_PARAM_BLD_push_BN(to, OSSL_PKEY_PARAM_PUB_KEY, y.get()) == 1 &&
        (!is_private || OSSL_PARAM_BLD_push_BN(to, OSSL_PKEY_PARAM_PRIV_KEY, x.get()) == 1);
    return ParamsPtr(pushed ? OSSL_PARAM_BLD_to_param(to) : nullptr);
}

// A DSA key from a blob of that kind; null on failure, logged.
static KeyPtr ImportDSSKey(void const *blob, unsigned size, QzSysCryptDSSBlob::Kind kind)
{
    static constexpr char kCall[] = "CryptImportKey";
    QzSysCryptDSSBlob::Parts parts;
    if (!QzSysCryptDSSBlob::Parse(blob, size, kind, &parts)) {
        LogOwnFailure(kCall, ERR_R_PASSED_INVALID_ARGUMENT);
        return nullptr;
    }
    bool is_private = kind == QzSysCryptDSSBlob::ePRIVATE;
    ParamsPtr params = KeyParameters(parts, is_private);
    KeyContextPtr maker(params != nullptr ? EVP_PKEY_CTX_new_from_name(nullptr, "DSA", nullptr)
                                          : nullptr);
    EVP_PKEY *key = nullptr;
    if (maker == nullptr || EVP_PKEY_fromdata_init(maker.get()) != 1 ||
        EVP_PKEY_fromdata(maker.get(), &key, is_private ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY,
                          params.get()) != 1) {
        LogFailure(kCall);
        return nullptr;
    }
    return KeyPtr(key);
}

QzSysCryptSignContext *QzSysCryptHash::CreateDSASignContext()
{
    return new (std::nothrow) QzSysCryptSignContext;
}

void QzSysCryptHash::DestroyDSASignContext(QzSysCryptSignContext *context)
{
    delete context;
}

int QzSysCryptHash::CanContextSign(QzSysCryptSignContext const *context)
{
    return context != nullptr && context->m_signing.m_key != nullptr ? 1 : 0;
}

// Replaces the key of `provider` by one imported from the blob; 1, or 0
// with the old key kept.
static int SetKey(QzSysCryptProvider *provider, void const *blob, unsigned size,
                  QzSysCryptDSSBlob::Kind kind)
{
    KeyPtr key = ImportDSSKey(blob, size, kind);
    if (key == nullptr)
        return 0;
    provider->m_key = std::move(key);
    return 1;
}

int QzSysCryptHash::SetDSAPrivateKey(QzSysCryptSignContext *context, void const *blob,
                                     unsigned size)
{
    if (context == nullptr)
        return 0;
    if (blob == nullptr || size == 0) {
        // Without a blob the key would come from a key container, and
        // there are none here.
        LogOwnFailure("CryptGetUserKey", ERR_R_PASSED_NULL_PARAMETER);
        return 0;
    }
    return SetKey(&context->m_signing, blob, size, QzSysCryptDSSBlob::ePRIVATE);
}

int QzSysCryptHash::SetDSAPublicKey(QzSysCryptSignContext *context, void const *blob, unsigned size)
{
    if (context == nullptr)
        return 0;
    return SetKey(&context->m_verifying, blob, size, QzSysCryptDSSBlob::ePUBLIC);
}

QzSysCryptHashHandle *QzSysCryptHash::CreateDSASignHash(QzSysCryptSignContext *context)
{
    return context != nullptr ? MakeHash(eSHA1, &context->m_signing) : nullptr;
}

QzSysCryptHashHandle *QzSysCryptHash::CreateDSAVerifyHash(QzSysCryptSignContext *context)
{
    return context != nullptr ? MakeHash(eSHA1, &context->m_verifying) : nullptr;
}
