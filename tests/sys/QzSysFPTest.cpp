// QzSysFPTest.cpp: the trap mask against fenv's own view and the hardware
// control register, traps that really end a child process, the guards, and
// clearing of raised flags.
#include "qzutil/sys/QzSysFP.h"

#include <unistd.h>

#include <cfenv>
#include <csignal>

#include <gtest/gtest.h>
#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include "support/QzTestSupport.h"

namespace {

// Values kept from the optimiser, so each operation runs at run time.
volatile double g_zero = 0.0;
volatile double g_one = 1.0;
volatile double g_subnormal = 1e-310;  // below DBL_MIN (2.2e-308)
volatile double g_result;

class QzSysFPTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzSysFP::Reset();
        // Traps need a processor that has them; arm64 cores as a rule do not.
        if (!QzSysFP::EnableExceptions(QzSysFP::eZERO_DIVIDE))
            GTEST_SKIP() << "this processor does not trap floating-point exceptions";
        QzSysFP::Reset();
    }

    void TearDown() override { QzSysFP::Reset(); }
};

using QzSysFPDeathTest = QzSysFPTest;

// Runs `operation` in a child with the `mask` traps enabled: the child dies
// by SIGFPE if the operation trapped and exits with 0 if it did not.
template <typename Operation>
void RunTrapped(unsigned mask, Operation const &operation)
{
    DisableCoreDumps();
    std::signal(SIGFPE, SIG_DFL);  // no handler of a test runtime in between
    if (!QzSysFP::EnableExceptions(mask))
        _exit(2);
    operation();
    _exit(0);
}

#if defined(__x86_64__)
// The SSE control register: mask bit (1 = not trapping) of the denormal
// exception and its raised flag, from the processor manual.
constexpr unsigned kMxcsrDenormalMask = 0x100;
constexpr unsigned kMxcsrDenormalFlag = 0x02;
#endif

struct BitRow {
    char const *name;
    unsigned library_bit;
    int fenv_bit;  // 0: no fenv counterpart
};

// Each bit set alone, read back, and seen by fenv (or the hardware) too.
TEST_F(QzSysFPTest, EachBitEnablesItsException)
{
    BitRow const rows[] = {
        {"invalid", 0x01, FE_INVALID},          {"denormal", 0x02, 0},
        {"divide by zero", 0x04, FE_DIVBYZERO}, {"overflow", 0x08, FE_OVERFLOW},
        {"underflow", 0x10, FE_UNDERFLOW},      {"inexact", 0x20, FE_INEXACT},
    };
    for (BitRow const &row : rows) {
        ASSERT_TRUE(QzSysFP::SetEnabledExceptions(row.library_bit)) << row.name;
        EXPECT_EQ(row.library_bit, QzSysFP::GetEnabledExceptions()) << row.name;
        EXPECT_EQ(row.fenv_bit, fegetexcept()) << row.name;
#if defined(__x86_64__)
        EXPECT_EQ(row.fenv_bit == 0, (_mm_getcsr() & kMxcsrDenormalMask) == 0) << row.name;
#endif
        ASSERT_TRUE(QzSysFP::DisableExceptions(row.library_bit)) << row.name;
        EXPECT_EQ(0u, QzSysFP::GetEnabledExceptions()) << row.name;
    }
}

TEST_F(QzSysFPTest, EnableAndDisableAddAndRemove)
{
    EXPECT_TRUE(QzSysFP::SetEnabledExceptions(0x40 | QzSysFP::eINVALID));  // 0x40 is no bit
    EXPECT_EQ(unsigned{QzSysFP::eINVALID}, QzSysFP::GetEnabledExceptions());
    EXPECT_TRUE(QzSysFP::EnableExceptions(QzSysFP::eOVERFLOW | QzSysFP::eDENORMAL));
    EXPECT_EQ(0x0Bu, QzSysFP::GetEnabledExceptions());
    EXPECT_TRUE(QzSysFP::DisableExceptions(QzSysFP::eINVALID));
    EXPECT_EQ(0x0Au, QzSysFP::GetEnabledExceptions());
    EXPECT_TRUE(QzSysFP::SetEnabledExceptions(QzSysFP::eALL));
    EXPECT_EQ(0x3Fu, QzSysFP::GetEnabledExceptions());
    QzSysFP::Reset();
    EXPECT_EQ(0u, QzSysFP::GetEnabledExceptions());
    EXPECT_EQ(0, fegetexcept());
}

TEST_F(QzSysFPDeathTest, DivisionByZeroTrapsWhenEnabled)
{
    EXPECT_EXIT(RunTrapped(QzSysFP::eZERO_DIVIDE, [] { g_result = g_one / g_zero; }),
                ::testing::KilledBySignal(SIGFPE), "");
    // The same division without the trap runs on to infinity.
    EXPECT_EXIT(RunTrapped(QzSysFP::eOVERFLOW, [] { g_result = g_one / g_zero; }),
                ::testing::ExitedWithCode(0), "");
}

#if defined(__x86_64__)
TEST_F(QzSysFPDeathTest, SubnormalOperandTrapsWhenDenormalIsEnabled)
{
    EXPECT_EXIT(RunTrapped(QzSysFP::eDENORMAL, [] { g_result = g_subnormal * g_one; }),
                ::testing::KilledBySignal(SIGFPE), "");
}
#endif

// Raised flags are cleared, the denormal flag that fenv does not know too.
TEST_F(QzSysFPTest, ClearExceptionsClearsRaisedFlags)
{
    g_result = g_one / g_zero;  // no trap: raises divide-by-zero
    EXPECT_NE(0, fetestexcept(FE_DIVBYZERO));
    ASSERT_EQ(0, feraiseexcept(FE_OVERFLOW | FE_INEXACT | FE_INVALID | FE_UNDERFLOW));
    QzSysFP::ClearExceptions();
    EXPECT_EQ(0, fetestexcept(FE_ALL_EXCEPT));
#if defined(__x86_64__)
    g_result = g_subnormal * g_one;
    EXPECT_NE(0u, _mm_getcsr() & kMxcsrDenormalFlag);
    QzSysFP::ClearExceptions();
    EXPECT_EQ(0u, _mm_getcsr() & kMxcsrDenormalFlag);
#endif
}

// Each guard changes the traps for its scope and puts them back, nested too.
TEST_F(QzSysFPTest, GuardsRestoreTheMask)
{
    unsigned const outer = QzSysFP::eZERO_DIVIDE | QzSysFP::eOVERFLOW;
    ASSERT_TRUE(QzSysFP::SetEnabledExceptions(outer));
    {
        QzFPExceptionDisabler quiet(QzSysFP::eZERO_DIVIDE);
        EXPECT_TRUE(quiet.IsApplied());
        EXPECT_EQ(unsigned{QzSysFP::eOVERFLOW}, QzSysFP::GetEnabledExceptions());
        g_result = g_one / g_zero;  // would trap outside the guard
        EXPECT_NE(0, fetestexcept(FE_DIVBYZERO));
        {
            QzFPExceptionModifier exact(QzSysFP::eINVALID, QzFPExceptionModifier::eSET);
            EXPECT_EQ(unsigned{QzSysFP::eINVALID}, QzSysFP::GetEnabledExceptions());
            QzFPExceptionModifier more(QzSysFP::eUNDERFLOW, QzFPExceptionModifier::eENABLE);
            EXPECT_EQ(0x11u, QzSysFP::GetEnabledExceptions());
        }
        EXPECT_EQ(unsigned{QzSysFP::eOVERFLOW}, QzSysFP::GetEnabledExceptions());
    }
    EXPECT_EQ(outer, QzSysFP::GetEnabledExceptions());
    // The flag raised inside is gone, so it cannot pass for a later exception.
    EXPECT_EQ(0, fetestexcept(FE_DIVBYZERO));

    QzFPExceptionModifier unknown(QzSysFP::eINVALID,
                                  static_cast<QzFPExceptionModifier::ModificationMode>(9));
    EXPECT_FALSE(unknown.IsApplied());
    EXPECT_EQ(outer, QzSysFP::GetEnabledExceptions());
}

}  // namespace
