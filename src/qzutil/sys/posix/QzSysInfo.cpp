// QzSysInfo.cpp (posix): host, user and system facts from the kernel and
// the password database; processors from the affinity mask, /proc and
// /sys; the floating-point traps through glibc's fenv.
#include "qzutil/sys/QzSysInfo.h"

#include <pwd.h>
#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cfenv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/QzSysCPU.h"
#include "qzutil/sys/QzSysFP.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/text/QzString.h"

#if !defined(__x86_64__) && !defined(__aarch64__)
#error "QzSysInfo knows the processors of x86-64 and arm64 only"
#endif

// Longest line of /proc/cpuinfo or os-release looked at; the fields read
// ("model name", "cpu MHz", PRETTY_NAME) are far shorter.
static constexpr int kMaxLineBytes = 1024;

// Password database records are short; a longer one falls back to $USER.
static constexpr std::size_t kPasswordBufferBytes = 16384;

QzComponent QzSysInfo::m_component;

void QzSysInfo::Initialise()
{
    if (!m_component.Initialise("QzSysInfo", QZ_COMPONENT_INFO))
        return;
    QzSysError::Initialise();
    QzString::Initialise();
}

void QzSysInfo::Terminate()
{
    if (!m_component.Terminate())
        return;
    QzString::Terminate();
    QzSysError::Terminate();
}

int QzSysInfo::IsInitialised()
{
    return m_component.IsInitialised();
}

QzComponent *QzSysInfo::GetComponent()
{
    return &m_component;
}

// The host name, or false. `name` holds HOST_NAME_MAX + 1 bytes.
static bool ReadHostName(char (&name)[HOST_NAME_MAX + 1])
{
    if (gethostname(name, sizeof name) != 0)
        return false;
    name[HOST_NAME_MAX] = 0;  // a cut name is not always terminated
    return name[0] != 0;
}

// Sets `out` from UTF-8 text, or empties it; the answer for a text found.
template <typename Buffer>
static int AnswerUtf8(char const *text, Buffer *out);

template <>
int AnswerUtf8(char const *text, QzWideStringBuffer *out)
{
    if (text == nullptr) {
        out->SetEmptyString();
        return 0;
    }
    (void)out->SetFromUTF8String(text);  // a bad byte shows as U+FFFD
    return 1;
}

template <>
int AnswerUtf8(char const *text, QzStringBuffer *out)
{
    out->SetString(text != nullptr ? text : "");
    return text != nullptr ? 1 : 0;
}

int QzSysInfo::GetHostNameW(QzWideStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    char name[HOST_NAME_MAX + 1];
    return AnswerUtf8(ReadHostName(name) ? name : nullptr, out);
}

int QzSysInfo::GetMachineName(QzStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    char name[HOST_NAME_MAX + 1];
    if (!ReadHostName(name))
        return AnswerUtf8(nullptr, out);
    char *dot = std::strchr(name, '.');
    if (dot != nullptr)
        *dot = 0;
    return AnswerUtf8(name, out);
}

int QzSysInfo::GetUserNameW(QzWideStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    passwd entry;
    passwd *found = nullptr;
    char buffer[kPasswordBufferBytes];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr &&
        found->pw_name != nullptr && found->pw_name[0] != 0)
        return AnswerUtf8(found->pw_name, out);
    char const *user = std::getenv("USER");
    return AnswerUtf8(user != nullptr && user[0] != 0 ? user : nullptr, out);
}

// The value of an os-release assignment line "KEY=value" for `key`, with
// its shell quoting undone, into `value` (at least kMaxLineBytes). False if
// the line assigns another key.
static bool ReadOsReleaseValue(char const *line, char const *key, char *value)
{
    std::size_t key_length = std::strlen(key);
    if (std::strncmp(line, key, key_length) != 0 || line[key_length] != '=')
        return false;
    char const *from = line + key_length + 1;
    char quote = (*from == '"' || *from == '\'') ? *from++ : 0;
    std::size_t length = 0;
    for (; *from != 0 && *from != '\n' && *from != quote; ++from) {
        // Inside double quotes a backslash escapes the next character.
        if (quote == '"' && *from == '\\' && from[1] != 0 && from[1] != '\n')
            ++from;
        value[length++] = *from;
    }
    value[length] = 0;
    return true;
}

// PRETTY_NAME of the distribution into `value`, or false. The system's
// file in /etc wins over the vendor's default in /usr/lib.
static bool ReadPrettyName(char *value)
{
    static char const *const kPaths[] = {"/etc/os-release", "/usr/lib/os-release"};
    for (char const *path : kPaths) {
        std::FILE *file = std::fopen(path, "r");
        if (file == nullptr)
            continue;
        char line[kMaxLineBytes];
        bool is_found = false;
        while (!is_found && std::fgets(line, sizeof line, file) != nullptr)
            is_found = ReadOsReleaseValue(line, "PRETTY_NAME", value) && value[0] != 0;
        (void)std::fclose(file);  // read only: nothing to lose
        return is_found;
    }
    return false;
}

int QzSysInfo::GetOSDescription(QzStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    utsname names;
    if (uname(&names) != 0)
        return AnswerUtf8(nullptr, out);
    out->Format("Linux %s %s", names.release, names.machine);
    char pretty[kMaxLineBytes];
    if (ReadPrettyName(pretty)) {
        out->Append(", ");
        out->Append(pretty);
    }
    return 1;
}

int QzSysInfo::GetMachineGenerationNum()
{
    return 0;
}

// --- QzSysCPU ---

int QzSysCPU::GetNumProcessors()
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) {
        int count = CPU_COUNT(&allowed);
        if (count > 0)
            return count;
    }
    // More processors than a cpu_set_t holds, or no affinity support.
    LtInt64 online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 && online < INT_MAX ? static_cast<int>(online) : 1;
}

// The value of `key` in processor `cpu`'s block of /proc/cpuinfo (lines
// "key<tabs>: value") into `value` (kMaxLineBytes), or false.
static bool ReadCpuInfoField(int cpu, char const *key, char *value)
{
    std::FILE *file = std::fopen("/proc/cpuinfo", "r");
    if (file == nullptr)
        return false;
    std::size_t key_length = std::strlen(key);
    int current = -1;  // the processor whose block is being read
    bool is_found = false;
    char line[kMaxLineBytes];
    while (!is_found && std::fgets(line, sizeof line, file) != nullptr) {
        char *colon = std::strchr(line, ':');
        if (colon == nullptr)
            continue;
        char *name_end = colon;
        while (name_end > line && (name_end[-1] == ' ' || name_end[-1] == '\t'))
            --name_end;
        std::size_t name_length = static_cast<std::size_t>(name_end - line);
        char const *text = colon[1] == ' ' ? colon + 2 : colon + 1;
        if (name_length == 9 && std::strncmp(line, "processor", 9) == 0) {
            current = std::atoi(text);
        } else if (current == cpu && name_length == key_length &&
                   std::strncmp(line, key, key_length) == 0) {
            std::size_t length = std::strcspn(text, "\n");
            std::memcpy(value, text, length);
            value[length] = 0;
            is_found = true;
        }
    }
    (void)std::fclose(file);  // read only: nothing to lose
    return is_found;
}

int QzSysCPU::GetCPUDescription(int cpu, QzStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    char first[kMaxLineBytes];
#if defined(__x86_64__)
    if (cpu < 0 || !ReadCpuInfoField(cpu, "model name", first))
        return AnswerUtf8(nullptr, out);
    return AnswerUtf8(first, out);
#else
    char second[kMaxLineBytes];
    if (cpu < 0 || !ReadCpuInfoField(cpu, "CPU implementer", first) ||
        !ReadCpuInfoField(cpu, "CPU part", second))
        return AnswerUtf8(nullptr, out);
    out->Format("implementer %s part %s", first, second);
    return 1;
#endif
}

// Reads a decimal number at the start of `text`, rounding away a fraction
// by its first digit; strtod is not used, as it follows the thread's locale.
static int ReadRoundedNumber(char const *text)
{
    char *end = nullptr;
    LtInt64 whole = std::strtoll(text, &end, 10);
    if (end == text || whole < 0 || whole >= INT_MAX)
        return 0;
    int value = static_cast<int>(whole);
    if (*end == '.' && end[1] >= '5' && end[1] <= '9')
        ++value;
    return value;
}

int QzSysCPU::GetCPUSpeed(int cpu)
{
    if (cpu < 0)
        return 0;
    char path[96];
    (void)QzSysString::Sprintf(path, sizeof path,
                               "/sys/devices/system/cpu/cpu%d/cpufreq/cpuinfo_max_freq", cpu);
    char text[kMaxLineBytes];
    std::FILE *file = std::fopen(path, "r");
    if (file != nullptr) {
        bool is_read = std::fgets(text, sizeof text, file) != nullptr;
        (void)std::fclose(file);  // read only: nothing to lose
        int khz = is_read ? ReadRoundedNumber(text) : 0;
        if (khz > 0)
            return (khz + 500) / 1000;
    }
    return ReadCpuInfoField(cpu, "cpu MHz", text) ? ReadRoundedNumber(text) : 0;
}

bool QzSysCPU::SupportsSSE2()
{
#if defined(__x86_64__)
    __builtin_cpu_init();
    return __builtin_cpu_supports("sse2") != 0;
#else
    return false;
#endif
}

bool QzSysCPU::SupportsSSE4()
{
#if defined(__x86_64__)
    __builtin_cpu_init();
    return __builtin_cpu_supports("sse4.2") != 0;
#else
    return false;
#endif
}

bool QzSysCPU::SupportsNEON()
{
#if defined(__aarch64__)
    return true;  // Advanced SIMD is part of every arm64 core
#else
    return false;
#endif
}

// --- QzSysFP ---

// The library's bits with fenv's for the five exceptions of C; denormal
// operands are not among them and are handled apart.
struct FPBit {
    unsigned m_library;
    int m_fenv;
};

static FPBit const kStandardBits[] = {
    {QzSysFP::eINVALID, FE_INVALID},   {QzSysFP::eZERO_DIVIDE, FE_DIVBYZERO},
    {QzSysFP::eOVERFLOW, FE_OVERFLOW}, {QzSysFP::eUNDERFLOW, FE_UNDERFLOW},
    {QzSysFP::eINEXACT, FE_INEXACT},
};

static int ToFenvBits(unsigned library)
{
    int fenv = 0;
    for (FPBit const &bit : kStandardBits) {
        if ((library & bit.m_library) != 0)
            fenv |= bit.m_fenv;
    }
    return fenv;
}

static unsigned ToLibraryBits(int fenv)
{
    unsigned library = 0;
    for (FPBit const &bit : kStandardBits) {
        if ((fenv & bit.m_fenv) != 0)
            library |= bit.m_library;
    }
    return library;
}

#if defined(__x86_64__)
// glibc's fe*except calls leave the denormal bit alone, so it is set in the
// saved environment: the x87 control word and the SSE control register
// (MXCSR, whose mask bits sit 7 above the flags) both carry a mask bit for
// it, set meaning "masked", that is not trapping.
static constexpr unsigned kMxcsrMaskShift = 7;

static bool IsDenormalTrapEnabled()
{
    fenv_t state;
    (void)fegetenv(&state);  // cannot fail on x86-64
    return (state.__control_word & __FE_DENORM) == 0;
}

static bool SetDenormalTrap(bool is_enabled)
{
    fenv_t state;
    if (fegetenv(&state) != 0)
        return false;
    unsigned short control_bit = __FE_DENORM;
    unsigned mxcsr_bit = unsigned{__FE_DENORM} << kMxcsrMaskShift;
    if (is_enabled) {
        state.__control_word = static_cast<unsigned short>(state.__control_word & ~control_bit);
        state.__mxcsr &= ~mxcsr_bit;
    } else {
        state.__control_word = static_cast<unsigned short>(state.__control_word | control_bit);
        state.__mxcsr |= mxcsr_bit;
    }
    return fesetenv(&state) == 0;
}

static void ClearDenormalFlag()
{
    fenv_t state;
    if (fegetenv(&state) != 0)
        return;
    state.__status_word = static_cast<unsigned short>(state.__status_word & ~__FE_DENORM);
    state.__mxcsr &= ~unsigned{__FE_DENORM};
    (void)fesetenv(&state);  // the state just read: cannot be refused
}
#else
// glibc offers no denormal trap on arm64: it cannot be enabled.
static bool IsDenormalTrapEnabled()
{
    return false;
}

static bool SetDenormalTrap(bool is_enabled)
{
    return !is_enabled;
}

static void ClearDenormalFlag()
{}
#endif

unsigned QzSysFP::GetEnabledExceptions()
{
    int fenv = fegetexcept();
    unsigned library = fenv > 0 ? ToLibraryBits(fenv) : 0;
    return IsDenormalTrapEnabled() ? library | eDENORMAL : library;
}

// Makes exactly `mask` (library bits within eALL) trap; false if a part
// was refused, which may leave the traps half changed.
static bool ApplyEnabledExceptions(unsigned mask)
{
    int enable = ToFenvBits(mask);
    bool is_ok = fedisableexcept(FE_ALL_EXCEPT & ~enable) != -1;
    is_ok = SetDenormalTrap((mask & QzSysFP::eDENORMAL) != 0) && is_ok;
    // On cores that cannot trap, glibc answers -1 and enables nothing.
    return (enable == 0 || feenableexcept(enable) != -1) && is_ok;
}

bool QzSysFP::SetEnabledExceptions(unsigned mask)
{
    unsigned previous = GetEnabledExceptions();
    if (ApplyEnabledExceptions(mask & eALL))
        return true;
    (void)ApplyEnabledExceptions(previous);  // it held before: it can be set again
    return false;
}

void QzSysFP::ClearExceptions()
{
    (void)feclearexcept(FE_ALL_EXCEPT);  // fails only for bits outside FE_ALL_EXCEPT
    ClearDenormalFlag();
}
