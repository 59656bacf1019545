// QzSysInfoTest.cpp: host, user and system facts, and the processor
// queries, against what the system itself reports.
#include "qzutil/sys/QzSysInfo.h"

#include <pwd.h>
#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/sys/QzSysCPU.h"

#include "support/QzTestSupport.h"

namespace {

class QzSysInfoTest : public ::testing::Test {
protected:
    void SetUp() override { QzSysInfo::Initialise(); }
    void TearDown() override { QzSysInfo::Terminate(); }
};

// The first line that a shell command prints, without its line end; empty
// if it prints nothing.
std::string ShellLine(char const *command)
{
    std::string line;
    std::FILE *pipe = popen(command, "r");
    if (pipe == nullptr)
        return line;
    char buffer[1024];
    if (std::fgets(buffer, sizeof buffer, pipe) != nullptr)
        line = buffer;
    pclose(pipe);
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    return line;
}

std::string HostName()
{
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

// The component is registered and brings up the string classes it needs.
TEST_F(QzSysInfoTest, ComponentBringsUpItsDependencies)
{
    EXPECT_EQ(1, QzSysInfo::IsInitialised());
    EXPECT_NE(nullptr, QzSysError::FindComponent("QzSysInfo"));
    EXPECT_NE(nullptr, QzSysError::FindComponent("QzString"));
}

TEST_F(QzSysInfoTest, NamesMatchTheSystem)
{
    QzWideStringBuffer wide;
    ASSERT_EQ(1, QzSysInfo::GetHostNameW(&wide));
    std::string host = HostName();
    EXPECT_EQ(host, ToUtf8(ToU16(wide.GetString())));

    QzStringBuffer machine;
    ASSERT_EQ(1, QzSysInfo::GetMachineName(&machine));
    EXPECT_EQ(host.substr(0, host.find('.')), machine.GetString());

    ASSERT_EQ(1, QzSysInfo::GetUserNameW(&wide));
    passwd const *entry = getpwuid(getuid());
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(std::string(entry->pw_name), ToUtf8(ToU16(wide.GetString())));

    EXPECT_EQ(0, QzSysInfo::GetHostNameW(nullptr));
    EXPECT_EQ(0, QzSysInfo::GetMachineName(nullptr));
    EXPECT_EQ(0, QzSysInfo::GetUserNameW(nullptr));
    EXPECT_EQ(0, QzSysInfo::GetMachineGenerationNum());
}

// "Linux <release> <machine>", then the distribution's name as the shell
// reads os-release (so quoting is undone by an independent reader).
TEST_F(QzSysInfoTest, OSDescriptionNamesKernelAndDistribution)
{
    utsname names;
    ASSERT_EQ(0, uname(&names));
    std::string expected = std::string("Linux ") + names.release + " " + names.machine;
    std::string pretty = ShellLine("sh -c '. /etc/os-release 2>/dev/null || "
                                   ". /usr/lib/os-release; printf \"%s\\n\" \"$PRETTY_NAME\"'");
    if (!pretty.empty())
        expected += ", " + pretty;
    QzStringBuffer description;
    ASSERT_EQ(1, QzSysInfo::GetOSDescription(&description));
    EXPECT_EQ(expected, description.GetString());
    EXPECT_EQ(0, QzSysInfo::GetOSDescription(nullptr));
}

int AffinityCount()
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    return sched_getaffinity(0, sizeof allowed, &allowed) == 0 ? CPU_COUNT(&allowed) : -1;
}

TEST(QzSysCPUTest, ProcessorsAreThoseOfTheAffinityMask)
{
    EXPECT_EQ(AffinityCount(), QzSysCPU::GetNumProcessors());
}

// Restricted to one processor (as taskset does), the process counts one.
TEST(QzSysCPUDeathTest, ProcessorsFollowARestrictedMask)
{
    EXPECT_EXIT(
        {
            DisableCoreDumps();
            cpu_set_t allowed;
            CPU_ZERO(&allowed);
            sched_getaffinity(0, sizeof allowed, &allowed);
            std::size_t first = 0;
            while (!CPU_ISSET(first, &allowed))
                ++first;
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(first, &one);
            if (sched_setaffinity(0, sizeof one, &one) != 0)
                _exit(2);
            _exit(QzSysCPU::GetNumProcessors() == 1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(QzSysCPUTest, DescriptionAndSpeedOfTheFirstProcessor)
{
    QzString::Initialise();
    QzStringBuffer description;
    int first_cpu = std::stoi("0" + ShellLine("awk '/^processor/ {print $3; exit}' "
                                              "/proc/cpuinfo"));
#if defined(__x86_64__)
    std::string model = ShellLine("awk -F ': ' '/^model name/ {print $2; exit}' /proc/cpuinfo");
    if (!model.empty()) {
        EXPECT_EQ(1, QzSysCPU::GetCPUDescription(first_cpu, &description));
        EXPECT_EQ(model, description.GetString());
    }
#endif
    EXPECT_EQ(0, QzSysCPU::GetCPUDescription(-1, &description));
    EXPECT_STREQ("", description.GetString());
    EXPECT_EQ(0, QzSysCPU::GetCPUDescription(1 << 20, &description));
    EXPECT_EQ(0, QzSysCPU::GetCPUDescription(first_cpu, nullptr));

    // The driver's maximum (kHz) where there is one, else the kernel's MHz.
    std::string max_khz = ShellLine("cat /sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq "
                                    "2>/dev/null");
    std::string mhz = ShellLine("awk -F ': ' '/^cpu MHz/ {printf \"%.0f\\n\", $2; exit}' "
                                "/proc/cpuinfo");
    if (!max_khz.empty()) {
        EXPECT_EQ((std::stoi(max_khz) + 500) / 1000, QzSysCPU::GetCPUSpeed(0));
    } else if (!mhz.empty() && first_cpu == 0) {
        EXPECT_EQ(std::stoi(mhz), QzSysCPU::GetCPUSpeed(0));
    }
    EXPECT_EQ(0, QzSysCPU::GetCPUSpeed(-1));
    EXPECT_EQ(0, QzSysCPU::GetCPUSpeed(1 << 20));
    QzString::Terminate();
}

// The instruction sets against the kernel's list of processor flags.
TEST(QzSysCPUTest, InstructionSetsMatchTheKernelsFlags)
{
#if defined(__x86_64__)
    EXPECT_TRUE(QzSysCPU::SupportsSSE2());  // part of the x86-64 baseline
    std::string sse42 = ShellLine("grep -m1 -ow sse4_2 /proc/cpuinfo");
    EXPECT_EQ(!sse42.empty(), QzSysCPU::SupportsSSE4());
    EXPECT_FALSE(QzSysCPU::SupportsNEON());
#else
    EXPECT_FALSE(QzSysCPU::SupportsSSE2());
    EXPECT_FALSE(QzSysCPU::SupportsSSE4());
    EXPECT_TRUE(QzSysCPU::SupportsNEON());
#endif
}

}  // namespace
