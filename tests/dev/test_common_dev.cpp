// The device access layer and the LED and key commands against the simulated
// board's nodes: records as the journal decodes them, each node's success
// test and messages, which descriptors stay open, the LED worker's "off"
// hand-shake and the power-key poll that no board installs.
#include <gtest/gtest.h>

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
using Writes = std::vector<std::pair<int, int>>;

namespace {

// Journal lines starting with the prefix, without the time each ends with.
Lines grep(const std::string &strJournal, const std::string &strPrefix)
{
    std::istringstream in(strJournal);
    Lines v;
    for (std::string s; std::getline(in, s);) {
        if (s.rfind(strPrefix, 0) == 0) {
            v.push_back(s.substr(0, s.rfind(" at=")));
        }
    }
    return v;
}

// Descriptors of the node that the journal shows opened and not closed.
std::vector<int> left_open(const std::string &strJournal, const std::string &strNode)
{
    std::vector<int> vFds;
    for (const std::string &s : grep(strJournal, "")) {
        size_t pos = s.find(" fd=");
        if (pos != std::string::npos && s.find(" " + strNode + " ") != std::string::npos) {
            int fd = std::stoi(s.substr(pos + 4));
            s[0] == 'o' ? vFds.push_back(fd) : (void)std::erase(vFds, fd);
        }
    }
    return vFds;
}

// (bit, value) of each LED value request.
Writes led_writes(const std::string &strJournal)
{
    Writes w;
    for (const std::string &s : grep(strJournal, "ioctl /dev/hal_gpio 0x40610 group=3 ")) {
        w.emplace_back(std::stoi(s.substr(s.find("bit=") + 4)),
                       std::stoi(s.substr(s.find("value=") + 6)));
    }
    return w;
}

// A line typed at the tool; its output unless the caller captures it already.
std::string typed(const char *pcLine, bool bCapture = true)
{
    char acLine[CLI_LINE_BUF_LEN];
    snprintf(acLine, sizeof(acLine), "%s", pcLine);
    bCapture ? CaptureStdout() : void();
    CLI_MainProcess(acLine, 1);
    return bCapture ? GetCapturedStdout() : "";
}

// Registers the button commands as a board with these keys would.
void register_keys(uint8_t ucReset, uint8_t ucPower)
{
    EQU_BOARD_DESC_S stDesc{};
    stDesc.ucResetKey = ucReset;
    stDesc.ucPowerKey = ucPower;
    EQU_BOARD_DESC_S *pstSaved = gpstEquBoardDesc;
    gpstEquBoardDesc = &stDesc;
    EQU_Cmd_Button();
    gpstEquBoardDesc = pstSaved;
}

const std::string kPass = "\r\n@\r\ntest result:pass\r\n$$";

}  // namespace

class EquDevice : public BoardTest {};

TEST_F(EquDevice, RecordsAsTheDriversSeeThem)
{
    put("i2c/2/0x48/0x00", "0x1a2b\n");
    put("gpio/4.7", "1\n");
    uint32_t u32I2c = 0, u32Gpio = 0;
    EQU_ENV_S stEnv{"memtest", "on 3"}, stRead{"memtest", ""};
    EXPECT_EQ(0u, EQU_SetEnvToFlash(&stEnv));
    EXPECT_EQ(0u, EQU_GetEnvFromFlash(&stRead));
    EXPECT_STREQ("on 3", stRead.szValue);
    EXPECT_EQ(0u, EQU_I2C_Read(2, 0x48, 0, 1, &u32I2c));
    EXPECT_EQ(0u, EQU_I2C_Write(2, 0x48, 3, 0x4140));
    EXPECT_EQ(0u, EQU_GPIO_SetMode(4, 7, 0));
    EXPECT_EQ(0u, EQU_GPIO_ReadByte(4, 7, &u32Gpio));
    EXPECT_EQ(0u, EQU_GPIO_WriteByte(0, 21, 1));
    EXPECT_EQ(0u, EQU_SetRmcTestMode(1));
    EXPECT_EQ(0x1a2bu, u32I2c);
    EXPECT_EQ(1u, u32Gpio);
    std::string j = journal();
    EXPECT_EQ((Lines{"ioctl /dev/hal_nvram 0x40615 name=\"memtest\" value=\"on 3\" -> 0",
                     "ioctl /dev/hal_nvram 0x40614 name=\"memtest\" value=\"on 3\" -> 0",
                     "ioctl /dev/hal_misc 0x40608 bus=2 addr=0x48 reg=0x0 len=1 data=0x1a2b -> 0",
                     "ioctl /dev/hal_misc 0x40609 bus=2 addr=0x48 reg=0x3 data=0x4140 len=1 -> 0",
                     "ioctl /dev/hal_gpio 0x4061f group=4 bit=7 mode=0 -> 0",
                     "ioctl /dev/hal_gpio 0x40611 group=4 bit=7 value=1 -> 0",
                     "ioctl /dev/hal_gpio 0x40610 group=0 bit=21 value=1 -> 0",
                     "ioctl /dev/hal_rmc 0x40113 mode=1 pad=0 -> 0"}),
              grep(j, "ioctl "));
    for (const char *pcNode :
         {"/dev/hal_nvram", "/dev/hal_misc", "/dev/hal_gpio", "/dev/hal_rmc"}) {
        EXPECT_TRUE(left_open(j, pcNode).empty()) << pcNode;
    }
}

// MII and I2C fail only on a negative result, the other nodes on any non-zero
// one; a failed nvram read leaves the caller's record as it was.
TEST_F(EquDevice, SuccessTestsAndFailureMessages)
{
    put("fail/ioctl./dev/hal_nvram", "errno=ENOSPC\n");
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
    EQU_ENV_S stEnv{"rtcdate", ""};
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GetEnvFromFlash(&stEnv));
    EXPECT_STREQ("", stEnv.szValue);
    stEnv.szValue[0] = 'x';
    EXPECT_EQ(200u, EQU_SetEnvToFlash(&stEnv));
    EXPECT_EQ(200, EQU_CPUReg_Read(0x1000, &u32Val));
    EXPECT_EQ(200u, EQU_GPIO_ReadByte(4, 7, &u32Val));
    EXPECT_EQ(200u, EQU_GPIO_SetModeAndWrite(3, 22, 1, 0));
    EXPECT_EQ(200u, EQU_GPIO_WriteByte(3, 22, 0));
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    EXPECT_EQ("\r\nFailed to get nvram valuee of rtcdate, errno(No space left on device)\n"
              "\r\nFailed to set nvram value(x) of rtcdate, errno(No space left on device)\n"
              "\r\nread cpu reg failed, uiRegAddr 0x1000"
              "\r\nget gpio value failed, GpioIdx 4, BitIdx 7"
              "\r\nset gpio mode failed, GpioIdx 3, BitIdx 22,  SetMode 1"
              "\r\nset gpio value failed, GpioIdx 3, BitIdx 22,  Value 0"
              "\r\nFailed to set rmc to equtest mode",
              GetCapturedStdout());
    EXPECT_EQ(7u, u32Val);
    std::string j = journal();
    // Only WriteByte's value request: set-mode-and-write stops at the failed mode.
    EXPECT_EQ(1u, grep(j, "ioctl /dev/hal_gpio 0x40610 ").size());
    EXPECT_TRUE(left_open(j, "/dev/hal_gpio").empty() && left_open(j, "/dev/hal_nvram").empty());
}

// Each caller's own wording; the reset key's names the remote-control node
// although the GPIO node is the one opened.
TEST_F(EquDevice, OpenFailureMessages)
{
    for (const char *pcNode : {"nvram", "misc", "gpio", "rmc"}) {
        put(std::string("fail/open./dev/hal_") + pcNode, "");
    }
    register_keys(1, 0);
    EQU_ENV_S stEnv{"memtest", ""};
    uint32_t u32Val = 0;
    CaptureStdout();
    EXPECT_EQ(200u, EQU_GetEnvFromFlash(&stEnv));
    EXPECT_EQ(200u, EQU_I2C_Read(1, 0x48, 0, 1, &u32Val));
    EXPECT_EQ(-1, EQU_CPUReg_Write(0x1000, 1));
    EXPECT_EQ(200u, EQU_GPIO_SetModeAndWrite(3, 22, 1, 1));
    EXPECT_EQ(200u, EQU_SetRmcTestMode(1));
    typed("test reset button", false);
    EXPECT_EQ("\r\nopen /dev/hal_nvram\n\r\n\r\n Failed to open /dev/hal_misc file \r\n"
              "\r\nopen /dev/hal_misc failed\n\r\nopen /dev/hal_gpio failed\n"
              "\r\nFailed to open /dev/hal_rmc file"
              "\r\n@\r\nFailed to open /dev/hal_rmc file\r\ntest result:fail\r\n$$",
              GetCapturedStdout());
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

// ---- LED worker, steered by commands typed through the engine ----

class LedTest : public BoardTest {
  protected:
    void SetUp() override
    {
        BoardTest::SetUp();
        static bool bStarted = [] {  // one worker per process, as in the tool
            EQU_Cmd_Led();
            pthread_t tid;
            return pthread_create(&tid, nullptr, EQU_CmdProc_LedFlick, nullptr) == 0 &&
                   pthread_detach(tid) == 0;
        }();
        ASSERT_TRUE(bStarted);
    }
    // LED writes since the last call; waits (up to 5 s) until there are n.
    Writes writes(size_t n = 0)
    {
        Writes w;
        for (int i = 0; i < 500 && (w = led_writes(journal())).size() - nSeen < n; i++) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        Writes r(w.begin() + static_cast<long>(nSeen), w.end());
        nSeen = w.size();
        return r;
    }
    size_t nSeen = 0;
};

namespace {

double cpu_seconds(void)
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

const Writes kAllOff = {{23, 1}, {25, 1}, {27, 1}, {29, 1}, {22, 1}, {24, 1}, {26, 1}, {28, 1}};

}  // namespace

// "off" waits out the running cycle without spinning and ends all off, also
// when typed right after "on"; each write has its own open and mode request.
TEST_F(LedTest, OffWaitsOutTheCycleAndEndsAllOff)
{
    double dCpu = cpu_seconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the idle worker sleeps too
    EXPECT_EQ(kPass, typed("test led on"));
    ASSERT_EQ(20u, writes(20).size());
    EXPECT_EQ(kPass, typed("test led off"));
    EXPECT_LT(cpu_seconds() - dCpu, 0.2);
    EXPECT_EQ(kAllOff, writes());
    EXPECT_EQ(28u, grep(journal(), "open /dev/hal_gpio").size());
    EXPECT_EQ(28u, grep(journal(), "ioctl /dev/hal_gpio 0x4061f group=3").size());
    for (int iDelayMs : {0, 50}) {
        EXPECT_EQ(kPass, typed("test led on"));
        std::this_thread::sleep_for(std::chrono::milliseconds(iDelayMs));
        EXPECT_EQ(kPass, typed("test led off"));
        Writes w = writes();
        EXPECT_TRUE(w == kAllOff || (w.size() == 28 && Writes(w.begin() + 20, w.end()) == kAllOff));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(writes().empty());
}

// After a failed cycle the worker is gone: "on" does nothing, "off" still works.
TEST_F(LedTest, WorkerEndsOnAFailedCycle)
{
    put("fail/ioctl./dev/hal_gpio.0x40610", "skip=9\ntimes=1\n");
    CaptureStdout();
    typed("test led on", false);
    writes(20);
    typed("test led off", false);  // returns once the failed cycle has ended
    EXPECT_EQ(kPass + "\r\nset gpio value failed, GpioIdx 3, BitIdx 24,  Value 0\r\n@"
                      "\r\nsomething wrong with led thread!\r\ntest result:pass\r\n$$",
              GetCapturedStdout());
    EXPECT_EQ(kAllOff, writes());
    EXPECT_EQ(kPass, typed("test led on"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(writes().empty());
}

// No board has a power key; a board record with one installs its commands.
TEST_F(EquDevice, PowerKeyPollsKey21UpToTheTypedSeconds)
{
    register_keys(0, 1);
    EXPECT_EQ("\r\n@\r\nerror:no press key!\r\ntest result:fail\r\n$$",
              typed("test powerkey button 2"));
    put("keys/21", "pressed\n");
    EXPECT_EQ(kPass, typed("test powerkey button"));
    std::string j = journal();
    EXPECT_EQ((Lines{"ioctl /dev/hal_rmc 0x4010d key=21 state=1 -> 0",
                     "ioctl /dev/hal_rmc 0x4010d key=21 state=1 -> 0",
                     "ioctl /dev/hal_rmc 0x4010d key=21 state=0 -> 0"}),
              grep(j, "ioctl "));
    EXPECT_TRUE(left_open(j, "/dev/hal_rmc").empty());
}
