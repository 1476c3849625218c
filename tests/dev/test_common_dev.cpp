// The device access layer and the LED, key commands against the simulated
// board's nodes: the records as the journal decodes them, each node's success
// test, the messages, which descriptors stay open, the LED flash cycle with
// its "off" hand-shake, and the power-key poll that no board installs. Each
// case has a state directory of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <pthread.h>
#include <sstream>
#include <string>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "sim_helpers.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using Lines = std::vector<std::string>;

// The simulator's fixture, with the journal read in steps.
class EquDevice : public BoardTest {
  protected:
    // Journal lines written since the last call; peek() leaves them unread.
    Lines peek()
    {
        std::istringstream in(BoardTest::journal());
        Lines v;
        size_t n = 0;
        for (std::string s; std::getline(in, s); n++) {
            if (n >= nSeen) {
                v.push_back(s);
            }
        }
        nNow = n;
        return v;
    }
    Lines journal()
    {
        Lines v = peek();
        nSeen = nNow;
        return v;
    }
    // Waits (up to 5 s) for that many unread LED value requests.
    void wait_led_writes(size_t n);
    size_t nSeen = 0, nNow = 0;
};

namespace {

// Descriptors of the node that the journal shows opened and not closed.
std::vector<int> left_open(const Lines &v, const std::string &strNode)
{
    std::vector<int> vFds;
    for (const std::string &s : v) {
        size_t pos = s.find(" fd=");
        if (pos != std::string::npos && s.find(" " + strNode + " ") != std::string::npos) {
            int fd = std::stoi(s.substr(pos + 4));
            s[0] == 'o' ? vFds.push_back(fd) : (void)std::erase(vFds, fd);
        }
    }
    return vFds;
}

Lines grep(const Lines &v, const std::string &strPrefix)
{
    Lines r;
    std::copy_if(v.begin(), v.end(), std::back_inserter(r),
                 [&](const std::string &s) { return s.rfind(strPrefix, 0) == 0; });
    return r;
}

// A typed line through the engine; output is captured unless the caller already does.
std::string type_line(const char *pcLine, bool bCapture = true)
{
    char acLine[CLI_LINE_BUF_LEN];
    snprintf(acLine, sizeof(acLine), "%s", pcLine);
    if (bCapture) {
        CaptureStdout();
    }
    CLI_MainProcess(acLine, 1);
    return bCapture ? GetCapturedStdout() : "";
}

}  // namespace

TEST_F(EquDevice, NvramRoundTripAndFailureKeepsTheRecord)
{
    EQU_ENV_S stEnv{"memtest", "on 3"};
    EXPECT_EQ(0u, EQU_SetEnvToFlash(&stEnv));
    EQU_ENV_S stRead{"memtest", ""};
    EXPECT_EQ(0u, EQU_GetEnvFromFlash(&stRead));
    EXPECT_STREQ("on 3", stRead.szValue);
    Lines v = journal();
    EXPECT_EQ("ioctl /dev/hal_nvram 0x40615 name=\"memtest\" value=\"on 3\" -> 0", v.at(1));
    EXPECT_EQ("ioctl /dev/hal_nvram 0x40614 name=\"memtest\" value=\"on 3\" -> 0", v.at(4));

    put("fail/ioctl./dev/hal_nvram", "errno=ENOSPC\n");
    EQU_ENV_S stFail{"rtcdate", ""};
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GetEnvFromFlash(&stFail));
    EXPECT_STREQ("", stFail.szValue);
    EXPECT_EQ(200u, EQU_SetEnvToFlash(&stEnv));
    EXPECT_EQ("\r\nFailed to get nvram valuee of rtcdate, errno(No space left on device)\n"
              "\r\nFailed to set nvram value(on 3) of memtest, errno(No space left on device)\n",
              GetCapturedStdout());
    EXPECT_TRUE(left_open(journal(), "/dev/hal_nvram").empty());
}

// MII and I2C fail only on a negative result, the other nodes on any non-zero one.
TEST_F(EquDevice, SuccessTestDependsOnTheNode)
{
    for (const char *pcReq : {"misc.0x40608", "misc.0x40609", "misc.0x70106", "gpio.0x40611",
                              "gpio.0x40610", "gpio.0x4061f", "rmc.0x40113"}) {
        put(std::string("fail/ioctl./dev/hal_") + pcReq, "ret=1\n");
    }
    uint32_t u32Val = 7;
    CaptureStdout();
    EXPECT_EQ(0u, EQU_I2C_Read(1, 0x48, 0, 1, &u32Val));
    EXPECT_EQ(0u, EQU_I2C_Write(1, 0x48, 0, 5));
    EXPECT_EQ("", GetCapturedStdout());
    u32Val = 7;
    CaptureStdout();
    EXPECT_EQ(200, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(200u, EQU_GPIO_ReadByte(4, 7, &u32Val));
    EXPECT_EQ(200u, EQU_GPIO_WriteByte(3, 22, 0));
    EXPECT_EQ(200u, EQU_GPIO_SetMode(4, 9, 0));
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    EXPECT_EQ("\r\nread cpu reg failed, uiRegAddr 0x1000"
              "\r\nget gpio value failed, GpioIdx 4, BitIdx 7"
              "\r\nset gpio value failed, GpioIdx 3, BitIdx 22,  Value 0"
              "\r\nset gpio mode failed, GpioIdx 4, BitIdx 9,  SetMode 0"
              "\r\nFailed to set rmc to equtest mode",
              GetCapturedStdout());
    EXPECT_EQ(7u, u32Val);
    EXPECT_TRUE(left_open(journal(), "/dev/hal_gpio").empty());
}

// Each caller's own wording when its node does not open; the reset key's
// names the remote-control node although the GPIO node is the one opened.
TEST_F(EquDevice, OpenFailureMessages)
{
    for (const char *pcNode : {"nvram", "misc", "gpio", "rmc"}) {
        put(std::string("fail/open./dev/hal_") + pcNode, "");
    }
    EQU_BOARD_DESC_S stDesc{};
    stDesc.ucResetKey = 1;
    EQU_BOARD_DESC_S *pstSaved = gpstEquBoardDesc;
    gpstEquBoardDesc = &stDesc;
    EQU_Cmd_Button();
    gpstEquBoardDesc = pstSaved;
    EQU_ENV_S stEnv{"memtest", ""};
    uint32_t u32Val = 0;
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GetEnvFromFlash(&stEnv));
    EXPECT_EQ(200u, EQU_I2C_Read(1, 0x48, 0, 1, &u32Val));
    EXPECT_EQ(-1, EQU_CPUReg_Write(0x1000, 1));
    EXPECT_EQ(200u, EQU_GPIO_SetModeAndWrite(3, 22, 1, 1));
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    type_line("test reset button", false);
    EXPECT_EQ("\r\nopen /dev/hal_nvram\n"
              "\r\n\r\n Failed to open /dev/hal_misc file \r\n"
              "\r\nopen /dev/hal_misc failed\n"
              "\r\nopen /dev/hal_gpio failed\n"
              "\r\nFailed to open /dev/hal_rmc file"
              "\r\n@\r\nFailed to open /dev/hal_rmc file\r\ntest result:fail\r\n$$",
              GetCapturedStdout());
}

TEST_F(EquDevice, RecordsAsTheDriversSeeThem)
{
    put("i2c/2/0x48/0x00", "0x1a2b\n");
    put("gpio/4.7", "1\n");
    uint32_t u32I2c = 0, u32Gpio = 0;
    EXPECT_EQ(0u, EQU_I2C_Read(2, 0x48, 0, 1, &u32I2c));
    EXPECT_EQ(0u, EQU_I2C_Write(2, 0x48, 3, 0x4140));
    EXPECT_EQ(0u, EQU_GPIO_SetMode(4, 7, 0));
    EXPECT_EQ(0u, EQU_GPIO_ReadByte(4, 7, &u32Gpio));
    EXPECT_EQ(0u, EQU_GPIO_WriteByte(0, 21, 1));
    EXPECT_EQ(0u, EQU_SetRmcTestMode(1));
    EXPECT_EQ(0x1a2bu, u32I2c);
    EXPECT_EQ(1u, u32Gpio);
    Lines v = journal();
    EXPECT_EQ((Lines{"ioctl /dev/hal_misc 0x40608 bus=2 addr=0x48 reg=0x0 len=1 data=0x1a2b -> 0",
                     "ioctl /dev/hal_misc 0x40609 bus=2 addr=0x48 reg=0x3 data=0x4140 len=1 -> 0",
                     "ioctl /dev/hal_gpio 0x4061f group=4 bit=7 mode=0 -> 0",
                     "ioctl /dev/hal_gpio 0x40611 group=4 bit=7 value=1 -> 0",
                     "ioctl /dev/hal_gpio 0x40610 group=0 bit=21 value=1 -> 0",
                     "ioctl /dev/hal_rmc 0x40113 mode=1 pad=0 -> 0"}),
              grep(v, "ioctl "));
    for (const char *pcNode : {"/dev/hal_misc", "/dev/hal_gpio", "/dev/hal_rmc"}) {
        EXPECT_TRUE(left_open(v, pcNode).empty()) << pcNode;
    }
}

// CPU register calls keep the node open on success; an I2C write on failure.
TEST_F(EquDevice, DeliberatelyOpenDescriptors)
{
    uint32_t u32Val = 0;
    EXPECT_EQ(0, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(0, EQU_CPUReg_Write(0x2000, 0x55));
    EXPECT_EQ("0x00000055\n", read("cpureg/0x00002000"));
    CaptureStdout();
    EXPECT_EQ(200u, EQU_I2C_Read(2, 0x50, 1, 1, &u32Val));  // nothing answers at 0x50
    EXPECT_EQ(200u, EQU_I2C_Write(2, 0x50, 3, 1));
    put("fail/ioctl./dev/hal_misc.0x70107", "");
    EXPECT_EQ(200, EQU_CPUReg_Write(0x1000, 2));
    EXPECT_EQ("\r\nFailed to read i2c device:50:1 No such device or address\n"
              "\r\n\r\nFailed to write i2c device:50:3 No such device or address"
              "\r\nread cpu reg failed, uiRegAddr 0x1000, uiRegVal 0x2",
              GetCapturedStdout());
    std::vector<int> vOpen = left_open(journal(), "/dev/hal_misc");
    ASSERT_EQ(3u, vOpen.size());  // read, write, failed I2C write
    for (int fd : vOpen) {
        EXPECT_NE(-1, fcntl(fd, F_GETFD));
        close(fd);
    }
}

// ---- LED and keys, typed through the engine ----

namespace {

using Writes = std::vector<std::pair<int, int>>;

// The LED commands and one worker per process, as in the tool.
void start_led(void)
{
    static bool bStarted = [] {
        EQU_Cmd_Led();
        pthread_t tid;
        return pthread_create(&tid, nullptr, EQU_CmdProc_LedFlick, nullptr) == 0 &&
               pthread_detach(tid) == 0;
    }();
    ASSERT_TRUE(bStarted);
}

// (bit, value) of each LED value request in the lines.
Writes led_writes(const Lines &v)
{
    Writes w;
    int iBit = 0, iVal = 0;
    for (const std::string &s : v) {
        if (sscanf(s.c_str(), "ioctl /dev/hal_gpio 0x40610 group=3 bit=%d value=%d", &iBit,
                   &iVal) == 2) {
            w.emplace_back(iBit, iVal);
        }
    }
    return w;
}

double cpu_seconds(void)
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

const Writes kAllOff = {{23, 1}, {25, 1}, {27, 1}, {29, 1}, {22, 1}, {24, 1}, {26, 1}, {28, 1}};
const std::string kPass = "\r\n@\r\ntest result:pass\r\n$$";

}  // namespace

void EquDevice::wait_led_writes(size_t n)
{
    for (int i = 0; i < 500 && led_writes(peek()).size() < n; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// The cycle's order is checked in the box; here: no spinning, "off" waits out
// a cycle, and every value request follows a mode request on its own open.
TEST_F(EquDevice, LedOffWaitsOutTheCycleWithoutSpinning)
{
    start_led();
    double dCpu = cpu_seconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(cpu_seconds() - dCpu, 0.05);
    EXPECT_EQ(kPass, type_line("test led on"));
    wait_led_writes(20);
    dCpu = cpu_seconds();
    EXPECT_EQ(kPass, type_line("test led off"));
    EXPECT_LT(cpu_seconds() - dCpu, 0.2);
    Lines v = journal();
    Writes w = led_writes(v);
    ASSERT_EQ(28u, w.size());
    EXPECT_EQ(kAllOff, Writes(w.begin() + 20, w.end()));
    for (size_t i = 0; i + 3 < v.size(); i += 4) {
        EXPECT_EQ(0u, v[i].find("open /dev/hal_gpio"));
        std::string strMode = "group=3 bit=" + std::to_string(w[i / 4].first) + " mode=1 -> 0";
        EXPECT_NE(std::string::npos, v[i + 1].find(" 0x4061f " + strMode));
        EXPECT_EQ(0u, v[i + 3].find("close /dev/hal_gpio"));
    }
}

// "off" typed just after "on" must not race the worker's first cycle.
TEST_F(EquDevice, LedOffRightAfterOnEndsAllOff)
{
    start_led();
    for (int iDelayMs : {0, 50}) {
        EXPECT_EQ(kPass, type_line("test led on"));
        std::this_thread::sleep_for(std::chrono::milliseconds(iDelayMs));
        EXPECT_EQ(kPass, type_line("test led off"));
        Writes w = led_writes(journal());
        EXPECT_TRUE(w == kAllOff || (w.size() == 28 && Writes(w.begin() + 20, w.end()) == kAllOff));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(led_writes(journal()).empty());
}

// Runs after the other LED cases: it ends the process's worker for good.
TEST_F(EquDevice, LedWorkerEndsOnAFailedCycleAndOffStillWorks)
{
    start_led();
    put("fail/ioctl./dev/hal_gpio.0x40610", "skip=9\ntimes=1\n");
    CaptureStdout();
    type_line("test led on", false);
    wait_led_writes(20);
    type_line("test led off", false);  // waits for the failed cycle to end
    EXPECT_EQ(kPass + "\r\nset gpio value failed, GpioIdx 3, BitIdx 24,  Value 0\r\n@"
                      "\r\nsomething wrong with led thread!\r\ntest result:pass\r\n$$",
              GetCapturedStdout());
    EXPECT_EQ(28u, led_writes(journal()).size());  // the failed cycle ran to its end
    EXPECT_EQ(kPass, type_line("test led on"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(led_writes(journal()).empty());
}

// No board has a power key; a board record with one installs its commands.
TEST_F(EquDevice, PowerKeyPollsKey21UpToTheTypedSeconds)
{
    EQU_BOARD_DESC_S stDesc{};
    stDesc.ucPowerKey = 1;
    EQU_BOARD_DESC_S *pstSaved = gpstEquBoardDesc;
    gpstEquBoardDesc = &stDesc;
    EQU_Cmd_Button();
    gpstEquBoardDesc = pstSaved;
    EXPECT_EQ("\r\n@\r\nerror:no press key!\r\ntest result:fail\r\n$$",
              type_line("test powerkey button 2"));
    put("keys/21", "pressed\n");
    EXPECT_EQ(kPass, type_line("test powerkey button"));
    Lines j = journal(), v = grep(j, "ioctl ");
    ASSERT_EQ(3u, v.size());
    EXPECT_EQ("ioctl /dev/hal_rmc 0x4010d key=21 state=1 -> 0", v[0]);
    EXPECT_EQ("ioctl /dev/hal_rmc 0x4010d key=21 state=0 -> 0", v[2]);
    EXPECT_TRUE(left_open(j, "/dev/hal_rmc").empty());
}
