// The device access layer, the LED worker and the reset-key and watchdog
// commands against the simulated board's nodes (/dev/hal_nvram,
// /dev/hal_misc, /dev/hal_gpio, /dev/hal_rmc, /dev/hal_watchdog,
// /proc/watchdog_status): the records each call sends as the journal decodes
// them, the success test of each node, the messages, which descriptors stay
// open, and the LED flash cycle and its "off" hand-shake. Each case works in a state directory of its
// own under DEV_STATE_DIR.
#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <pthread.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

class Board : public testing::Test {
protected:
    void SetUp() override
    {
        const testing::TestInfo *pInfo = testing::UnitTest::GetInstance()->current_test_info();
        strDir = std::string(DEV_STATE_DIR) + "/common/" + pInfo->test_suite_name() + "." +
                 pInfo->name();
        ASSERT_EQ(0, system(("rm -rf '" + strDir + "' && mkdir -p '" + strDir + "'").c_str()));
        setenv("BOARDSIM_STATE", strDir.c_str(), 1);
    }

    // Lines of the journal written since the last call, in order.
    std::vector<std::string> journal()
    {
        std::ifstream in(strDir + "/journal");
        std::vector<std::string> vLines;
        for (std::string s; std::getline(in, s);) {
            vLines.push_back(s);
        }
        std::vector<std::string> vNew(vLines.begin() + static_cast<long>(std::min(nSeen, vLines.size())),
                                      vLines.end());
        nSeen = vLines.size();
        return vNew;
    }

    void put(const std::string &strRel, const std::string &strText)
    {
        std::string strPath = strDir + "/" + strRel;
        ASSERT_EQ(0, system(("mkdir -p \"$(dirname '" + strPath + "')\"").c_str()));
        std::ofstream(strPath) << strText;
    }

    std::string get(const std::string &strRel)
    {
        std::ifstream in(strDir + "/" + strRel);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

    void fail(const std::string &strTarget, const std::string &strSpec = "errno=EIO")
    {
        put("fail/" + strTarget, strSpec + "\n");
    }

    std::string strDir;
    size_t nSeen = 0;
};

// Journal lines for the node, with the result (" -> ...") cut off when asked.
std::vector<std::string> lines(const std::vector<std::string> &vAll, const std::string &strPrefix)
{
    std::vector<std::string> v;
    for (const std::string &s : vAll) {
        if (s.rfind(strPrefix, 0) == 0) {
            v.push_back(s);
        }
    }
    return v;
}

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

// Descriptor numbers the journal shows opened and not closed again.
std::vector<int> leftOpen(const std::vector<std::string> &vAll, const std::string &strNode)
{
    std::vector<int> vFds;
    for (const std::string &s : vAll) {
        size_t pos = s.find(" fd=");
        if (pos == std::string::npos || s.find(" " + strNode + " ") == std::string::npos) {
            continue;
        }
        int fd = std::stoi(s.substr(pos + 4));
        if (s.rfind("open ", 0) == 0) {
            vFds.push_back(fd);
        } else if (s.rfind("close ", 0) == 0) {
            std::erase(vFds, fd);
        }
    }
    return vFds;
}

double cpuSeconds(void)
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

TEST_F(Board, NvramRoundTrip)
{
    EQU_ENV_S stEnv{};
    snprintf(stEnv.szName, sizeof(stEnv.szName), "memtest");
    snprintf(stEnv.szValue, sizeof(stEnv.szValue), "on 3");
    EXPECT_EQ(0u, EQU_SetEnvToFlash(&stEnv));
    EQU_ENV_S stRead{};
    snprintf(stRead.szName, sizeof(stRead.szName), "memtest");
    EXPECT_EQ(0u, EQU_GetEnvFromFlash(&stRead));
    EXPECT_STREQ("on 3", stRead.szValue);
    EXPECT_EQ("on 3\n", get("nvram/memtest"));
    auto v = journal();
    ASSERT_EQ(6u, v.size());
    EXPECT_EQ(0u, v[1].find("ioctl /dev/hal_nvram 0x40615 name=\"memtest\" value=\"on 3\" -> 0"));
    EXPECT_EQ(0u, v[4].find("ioctl /dev/hal_nvram 0x40614 name=\"memtest\" value=\"on 3\" -> 0"));
    EXPECT_TRUE(leftOpen(v, "/dev/hal_nvram").empty());
}

TEST_F(Board, NvramFailuresKeepTheRecordAndSayWhy)
{
    EQU_ENV_S stEnv{};
    snprintf(stEnv.szName, sizeof(stEnv.szName), "rtcdate");
    fail("ioctl./dev/hal_nvram.0x40614");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GetEnvFromFlash(&stEnv));
    EXPECT_EQ("\r\nFailed to get nvram valuee of rtcdate, errno(Input/output error)\n",
              GetCapturedStdout());
    EXPECT_STREQ("rtcdate", stEnv.szName);
    EXPECT_STREQ("", stEnv.szValue);

    snprintf(stEnv.szValue, sizeof(stEnv.szValue), "2024-01-02");
    fail("ioctl./dev/hal_nvram.0x40615", "errno=ENOSPC");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_SetEnvToFlash(&stEnv));
    EXPECT_EQ("\r\nFailed to set nvram value(2024-01-02) of rtcdate, errno(No space left on device)\n",
              GetCapturedStdout());

    fail("open./dev/hal_nvram");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GetEnvFromFlash(&stEnv));
    EXPECT_EQ(200u, EQU_SetEnvToFlash(&stEnv));
    EXPECT_EQ("\r\nopen /dev/hal_nvram\n\r\nopen /dev/hal_nvram\n", GetCapturedStdout());
    EXPECT_TRUE(leftOpen(journal(), "/dev/hal_nvram").empty());
}

// I2C (and MII) fail only on a negative result; the other nodes on any non-zero one.
TEST_F(Board, SuccessTestDependsOnTheNode)
{
    fail("ioctl./dev/hal_misc.0x40608", "ret=1");
    fail("ioctl./dev/hal_misc.0x40609", "ret=1");
    fail("ioctl./dev/hal_misc.0x70106", "ret=1");
    fail("ioctl./dev/hal_gpio.0x40611", "ret=1");
    fail("ioctl./dev/hal_rmc.0x40113", "ret=1");
    uint32_t u32Val = 7;
    CaptureStdout();
    EXPECT_EQ(0u, EQU_I2C_Read(1, 0x48, 0, 1, &u32Val));
    EXPECT_EQ(0u, EQU_I2C_Write(1, 0x48, 0, 5));
    EXPECT_EQ("", GetCapturedStdout());
    u32Val = 7;
    CaptureStdout();
    EXPECT_EQ(200, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(200u, EQU_GPIO_ReadByte(4, 7, &u32Val));
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    GetCapturedStdout();
    EXPECT_EQ(7u, u32Val);
}

TEST_F(Board, I2cRecordsAndTheWriteLeak)
{
    put("i2c/2/0x48/0x00", "0x1a2b\n");
    uint32_t u32Val = 0;
    EXPECT_EQ(0u, EQU_I2C_Read(2, 0x48, 0, 1, &u32Val));
    EXPECT_EQ(0x1a2bu, u32Val);
    EXPECT_EQ(0u, EQU_I2C_Write(2, 0x48, 3, 0x4140));
    EXPECT_EQ("0x00004140\n", get("i2c/2/0x48/0x03"));
    auto v = journal();
    auto vReq = lines(v, "ioctl /dev/hal_misc");
    ASSERT_EQ(2u, vReq.size());
    EXPECT_EQ("ioctl /dev/hal_misc 0x40608 bus=2 addr=0x48 reg=0x0 len=1 data=0x1a2b -> 0", vReq[0]);
    EXPECT_EQ("ioctl /dev/hal_misc 0x40609 bus=2 addr=0x48 reg=0x3 data=0x4140 len=1 -> 0", vReq[1]);
    EXPECT_TRUE(leftOpen(v, "/dev/hal_misc").empty());

    // nothing answers at 0x50: the failed write keeps its descriptor, the read does not
    CaptureStdout();
    EXPECT_EQ(200u, EQU_I2C_Read(2, 0x50, 1, 1, &u32Val));
    EXPECT_EQ(200u, EQU_I2C_Write(2, 0x50, 3, 1));
    EXPECT_EQ("\r\nFailed to read i2c device:50:1 No such device or address\n"
              "\r\n\r\nFailed to write i2c device:50:3 No such device or address",
              GetCapturedStdout());
    auto vOpen = leftOpen(journal(), "/dev/hal_misc");
    ASSERT_EQ(1u, vOpen.size());
    EXPECT_TRUE(isOpen(vOpen[0]));
    close(vOpen[0]);
}

TEST_F(Board, CpuRegistersKeepTheNodeOpenOnSuccess)
{
    put("cpureg/0x00001000", "0xdeadbeef\n");
    uint32_t u32Val = 0;
    EXPECT_EQ(0, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(0xdeadbeefu, u32Val);
    EXPECT_EQ(0, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(0, EQU_CPUReg_Write(0x2000, 0x55));
    EXPECT_EQ("0x00000055\n", get("cpureg/0x00002000"));
    auto vOpen = leftOpen(journal(), "/dev/hal_misc");
    ASSERT_EQ(3u, vOpen.size());
    for (int fd : vOpen) {
        EXPECT_TRUE(isOpen(fd));
        close(fd);
    }

    fail("ioctl./dev/hal_misc.0x70106");
    fail("ioctl./dev/hal_misc.0x70107");
    CaptureStdout();
    EXPECT_EQ(200, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(200, EQU_CPUReg_Write(0x2000, 0x66));
    fail("open./dev/hal_misc");
    EXPECT_EQ(-1, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(-1, EQU_CPUReg_Write(0x1000, 1));
    EXPECT_EQ("\r\nread cpu reg failed, uiRegAddr 0x1000"
              "\r\nread cpu reg failed, uiRegAddr 0x2000, uiRegVal 0x66"
              "\r\nopen /dev/hal_misc failed\n\r\nopen /dev/hal_misc failed\n",
              GetCapturedStdout());
    EXPECT_TRUE(leftOpen(journal(), "/dev/hal_misc").empty());
}

TEST_F(Board, GpioRecordsAndMessages)
{
    put("gpio/4.7", "1\n");
    uint32_t u32Val = 9;
    EXPECT_EQ(0u, EQU_GPIO_SetMode(4, 7, 0));
    EXPECT_EQ(0u, EQU_GPIO_ReadByte(4, 7, &u32Val));
    EXPECT_EQ(1u, u32Val);
    EXPECT_EQ(0u, EQU_GPIO_WriteByte(0, 21, 1));
    EXPECT_EQ("1\n", get("gpio/0.21"));
    auto v = journal();
    auto vReq = lines(v, "ioctl ");
    ASSERT_EQ(3u, vReq.size());
    EXPECT_EQ("ioctl /dev/hal_gpio 0x4061f group=4 bit=7 mode=0 -> 0", vReq[0]);
    EXPECT_EQ("ioctl /dev/hal_gpio 0x40611 group=4 bit=7 value=1 -> 0", vReq[1]);
    EXPECT_EQ("ioctl /dev/hal_gpio 0x40610 group=0 bit=21 value=1 -> 0", vReq[2]);
    EXPECT_EQ(3u, lines(v, "open /dev/hal_gpio").size());
    EXPECT_TRUE(leftOpen(v, "/dev/hal_gpio").empty());

    fail("ioctl./dev/hal_gpio");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GPIO_SetMode(4, 9, 0));
    EXPECT_EQ(200u, EQU_GPIO_ReadByte(4, 9, &u32Val));
    EXPECT_EQ(200u, EQU_GPIO_WriteByte(3, 22, 0));
    fail("open./dev/hal_gpio");
    EXPECT_EQ(200u, EQU_GPIO_WriteByte(3, 22, 0));
    EXPECT_EQ("\r\nset gpio mode failed, GpioIdx 4, BitIdx 9,  SetMode 0"
              "\r\nget gpio value failed, GpioIdx 4, BitIdx 9"
              "\r\nset gpio value failed, GpioIdx 3, BitIdx 22,  Value 0"
              "\r\nopen /dev/hal_gpio failed\n",
              GetCapturedStdout());
    EXPECT_EQ(1u, u32Val);
    EXPECT_TRUE(leftOpen(journal(), "/dev/hal_gpio").empty());
}

TEST_F(Board, RemoteControlMode)
{
    EXPECT_EQ(0u, EQU_SetRmcTestMode(1));
    EXPECT_EQ("1\n", get("rmc/mode"));
    EXPECT_EQ(0u, EQU_SetRmcTestMode(0));
    auto v = journal();
    auto vReq = lines(v, "ioctl ");
    ASSERT_EQ(2u, vReq.size());
    EXPECT_EQ("ioctl /dev/hal_rmc 0x40113 mode=1 pad=0 -> 0", vReq[0]);
    EXPECT_EQ("ioctl /dev/hal_rmc 0x40113 mode=0 pad=0 -> 0", vReq[1]);
    EXPECT_TRUE(leftOpen(v, "/dev/hal_rmc").empty());

    fail("ioctl./dev/hal_rmc.0x40113");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    fail("open./dev/hal_rmc");
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    EXPECT_EQ("\r\nFailed to set rmc to equtest mode\r\nFailed to open /dev/hal_rmc file",
              GetCapturedStdout());
    EXPECT_TRUE(leftOpen(journal(), "/dev/hal_rmc").empty());
}

// ---- LED ----

namespace {

// One worker per process, as in the tool.
void startLedWorker(void)
{
    static bool bStarted = [] {
        pthread_t tid;
        return pthread_create(&tid, nullptr, EQU_CmdProc_LedFlick, nullptr) == 0 &&
               pthread_detach(tid) == 0;
    }();
    ASSERT_TRUE(bStarted);
}

using Writes = std::vector<std::pair<int, int>>;

// (bit, value) of each LED value request, in order.
Writes ledWrites(const std::vector<std::string> &vAll)
{
    Writes v;
    int iBit = 0, iVal = 0;
    for (const std::string &s : lines(vAll, "ioctl /dev/hal_gpio 0x40610 group=3 ")) {
        if (sscanf(s.c_str(), "ioctl /dev/hal_gpio 0x40610 group=3 bit=%d value=%d", &iBit, &iVal) == 2) {
            v.emplace_back(iBit, iVal);
        }
    }
    return v;
}

bool waitFor(uint32_t u32Want, std::chrono::seconds secs)
{
    auto end = std::chrono::steady_clock::now() + secs;
    while (gbequledrun.load() != u32Want) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

const Writes kCycle = {
    {22, 1}, {24, 1}, {26, 1}, {28, 1}, {23, 1}, {25, 1}, {27, 1}, {29, 1},
    {22, 0}, {24, 0}, {26, 0}, {28, 0},
    {22, 1}, {24, 1}, {26, 1}, {28, 1}, {23, 0}, {25, 0}, {27, 0}, {29, 0}};
const Writes kAllOff = {
    {23, 1}, {25, 1}, {27, 1}, {29, 1}, {22, 1}, {24, 1}, {26, 1}, {28, 1}};

}  // namespace

TEST_F(Board, LedControlSetsModeThenValueOnOneDescriptor)
{
    EXPECT_EQ(0u, EQU_LedGpioControl(3, 25, 1, 0));
    auto v = journal();
    ASSERT_EQ(4u, v.size());
    EXPECT_EQ(0u, v[0].find("open /dev/hal_gpio fd="));
    EXPECT_EQ("ioctl /dev/hal_gpio 0x4061f group=3 bit=25 mode=1 -> 0", v[1]);
    EXPECT_EQ("ioctl /dev/hal_gpio 0x40610 group=3 bit=25 value=0 -> 0", v[2]);
    EXPECT_EQ(0u, v[3].find("close /dev/hal_gpio fd="));

    fail("ioctl./dev/hal_gpio.0x4061f");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_LedGpioControl(3, 25, 1, 0));
    EXPECT_EQ("\r\nset gpio mode failed, GpioIdx 3, BitIdx 25,  SetMode 1", GetCapturedStdout());
    v = journal();
    EXPECT_TRUE(lines(v, "ioctl /dev/hal_gpio 0x40610").empty());
    EXPECT_TRUE(leftOpen(v, "/dev/hal_gpio").empty());
}

TEST_F(Board, LedOffBeforeAnyFlashingReturnsAtOnce)
{
    startLedWorker();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(0u, EQU_CmdProc_LedOffAll(nullptr));
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
    EXPECT_EQ(kAllOff, ledWrites(journal()));
}

TEST_F(Board, LedFlashCycleAndOffLeaveEverythingOff)
{
    startLedWorker();
    // the idle worker sleeps on its flag
    double dCpu = cpuSeconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(cpuSeconds() - dCpu, 0.05);

    EXPECT_EQ(0u, EQU_CmdProc_LedOnAll(nullptr));
    ASSERT_TRUE(waitFor(1, std::chrono::seconds(5)));
    // "off" in the second half of the cycle waits for it without spinning
    dCpu = cpuSeconds();
    EXPECT_EQ(0u, EQU_CmdProc_LedOffAll(nullptr));
    EXPECT_LT(cpuSeconds() - dCpu, 0.2);
    EXPECT_EQ(0u, gbequledrun.load());

    auto v = ledWrites(journal());
    ASSERT_GE(v.size(), kCycle.size() + kAllOff.size());
    EXPECT_EQ(kCycle, Writes(v.begin(), v.begin() + 20));
    EXPECT_EQ(kAllOff, Writes(v.end() - 8, v.end()));
    EXPECT_EQ(0u, (v.size() - kAllOff.size()) % kCycle.size());
    for (int iBit = 22; iBit <= 29; iBit++) {
        EXPECT_EQ("1\n", get("gpio/3." + std::to_string(iBit))) << iBit;
        EXPECT_EQ("1\n", get("gpio/3." + std::to_string(iBit) + ".mode")) << iBit;
    }
}

// "off" typed just after "on" must not race the worker's first cycle.
TEST_F(Board, LedOffRightAfterOnEndsAllOff)
{
    startLedWorker();
    for (int iDelayMs : {0, 50}) {
        EXPECT_EQ(0u, EQU_CmdProc_LedOnAll(nullptr));
        std::this_thread::sleep_for(std::chrono::milliseconds(iDelayMs));
        EXPECT_EQ(0u, EQU_CmdProc_LedOffAll(nullptr));
        auto v = ledWrites(journal());
        ASSERT_GE(v.size(), kAllOff.size());
        EXPECT_EQ(kAllOff, Writes(v.end() - 8, v.end()));
        EXPECT_TRUE(v.size() == 8 || v.size() == 28) << v.size();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(ledWrites(journal()).empty());
}

// Runs after the other LED cases: it ends the process's worker for good.
TEST_F(Board, LedWorkerEndsOnAFailedCycleAndOffStillReturns)
{
    startLedWorker();
    fail("ioctl./dev/hal_gpio.0x40610", "errno=EIO\nskip=9\ntimes=1");
    CaptureStdout();
    EXPECT_EQ(0u, EQU_CmdProc_LedOnAll(nullptr));
    ASSERT_TRUE(waitFor(1, std::chrono::seconds(5)));
    ASSERT_TRUE(waitFor(0, std::chrono::seconds(5)));
    EXPECT_EQ(0u, EQU_CmdProc_LedOffAll(nullptr));
    std::string strOut = GetCapturedStdout();
    EXPECT_EQ("\r\nset gpio value failed, GpioIdx 3, BitIdx 24,  Value 0"
              "\r\nsomething wrong with led thread!",
              strOut);
    // the failed cycle still ran to its end; then only "off" wrote
    auto v = ledWrites(journal());
    ASSERT_EQ(20u + 8u, v.size());
    EXPECT_EQ(kAllOff, Writes(v.end() - 8, v.end()));
    EXPECT_EQ(0u, EQU_CmdProc_LedOnAll(nullptr));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(ledWrites(journal()).empty());
    EXPECT_EQ(0u, EQU_CmdProc_LedOffAll(nullptr));
}

// ---- reset key and watchdog, through their commands ----

namespace {

void installKeyAndWatchdog(void)
{
    static bool bDone = [] {
        EQU_BOARD_DESC_S stDesc{};
        stDesc.ucResetKey = 1;
        EQU_BOARD_DESC_S *pstSaved = gpstEquBoardDesc;
        gpstEquBoardDesc = &stDesc;
        EQU_Cmd_Button();
        EQU_Cmd_Watchdog();
        gpstEquBoardDesc = pstSaved;
        return true;
    }();
    ASSERT_TRUE(bDone);
}

std::string run(const char *pcLine)
{
    char acLine[CLI_LINE_BUF_LEN];
    snprintf(acLine, sizeof(acLine), "%s", pcLine);
    CaptureStdout();
    CLI_MainProcess(acLine, 1);
    return GetCapturedStdout();
}

const std::string kPass = "\r\ntest result:pass\r\n$$";
const std::string kFail = "\r\ntest result:fail\r\n$$";

}  // namespace

TEST_F(Board, ResetKeyRequestCarriesThePlainNumber15)
{
    installKeyAndWatchdog();
    put("keys/reset", "pressed\n");
    EXPECT_EQ("\r\n@" + kPass, run("test reset button"));
    EXPECT_EQ("\r\n@" + kPass, run("test reset button 200"));
    put("keys/reset", "released\n");
    EXPECT_EQ("\r\n@\r\nerror: reset button isn't pressed" + kFail, run("test reset button 3"));
    auto v = journal();
    auto vReq = lines(v, "ioctl ");
    ASSERT_EQ(3u, vReq.size());
    EXPECT_EQ("ioctl /dev/hal_gpio 0x40636 arg=15 -> 0", vReq[0]);
    EXPECT_EQ("ioctl /dev/hal_gpio 0x40636 arg=15 -> 0", vReq[1]);
    EXPECT_EQ(0u, vReq[2].find("ioctl /dev/hal_gpio 0x40636 arg=15 -> -1"));
    EXPECT_TRUE(leftOpen(v, "/dev/hal_gpio").empty());

    fail("open./dev/hal_gpio");
    EXPECT_EQ("\r\n@\r\nFailed to open /dev/hal_rmc file" + kFail, run("test reset button"));
}

TEST_F(Board, WatchdogStaysArmedAfterAPass)
{
    installKeyAndWatchdog();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ("\r\n@" + kPass, run("test watchdog"));
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
    auto v = journal();
    auto vReq = lines(v, "ioctl ");
    ASSERT_EQ(1u, vReq.size());
    EXPECT_EQ("ioctl /dev/hal_watchdog 0x70108 mode=1 rest=00,00,00,00,00,00,00,00 -> 0", vReq[0]);
    auto vDrv = lines(v, "drv DRV_PerpCtl 0x1628");
    ASSERT_EQ(1u, vDrv.size());
    EXPECT_NE(std::string::npos, vDrv[0].find("bytes=00,07,ff -> 0"));
    auto vOpen = leftOpen(v, "/dev/hal_watchdog");
    ASSERT_EQ(1u, vOpen.size());
    EXPECT_TRUE(isOpen(vOpen[0]));
    EXPECT_TRUE(leftOpen(v, "/proc/watchdog_status").empty());
    close(vOpen[0]);
}
