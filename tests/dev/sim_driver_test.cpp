// Our libdriver.so answered from the state directory, with the request codes
// as the board spells them, and fault injection through fail/<target> on
// driver calls and ioctls (ret, errno, skip, times, counted across processes).
#include "drv_api.h"
#include "equ_common.h"
#include "sim_helpers.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

TEST_F(BoardTest, DriverAnswersFromStateAndJournals)
{
    uint32_t id = 0;
    ASSERT_EQ(DRV_SysCtl(0x1400, &id), 0);
    EXPECT_EQ(id, 0x44130109u);
    EXPECT_TRUE(logged("drv DRV_SysCtl 0x1400 uninit=1 board_id=0x44130109 -> 0"));

    uint8_t link[16] = {5, 6};  // byte 1 picks the port
    put("link/5", "down\n");
    ASSERT_EQ(DRV_PerpCtl(0x1605, link), 0);
    EXPECT_EQ(link[2], 1);

    ASSERT_EQ(DRV_GPS_SetBaudRate(115200), 0);
    EXPECT_EQ(read("gps/baud"), "115200\n");
    EXPECT_NE(DRV_GPS_SetBaudRate(1234), 0);
}

TEST_F(BoardTest, PortModeLayoutsAndDevicesDeletedFromTheState)
{
    // Net-mode layout (byte 0 = 1) sets the group's mode; 0x1601 reads it.
    uint8_t set[4] = {1, 2, 7, 2};
    ASSERT_EQ(DRV_PerpCtl(0x1600, set), 0);
    uint8_t get[24] = {0, 2, 0, 2};
    ASSERT_EQ(DRV_PerpCtl(0x1601, get), 0);
    EXPECT_EQ(get[2], 7);
    // Loopback layout: a 3-byte record, never read past its end.
    auto *loop = new uint8_t[3]{0, 2, 9};
    ASSERT_EQ(DRV_PerpCtl(0x1600, loop), 0);
    delete[] loop;
    EXPECT_TRUE(logged("drv DRV_PerpCtl 0x1600 uninit=1 layout=0 port=2 code=9 -> 0"));

    // Once alarm/ is in the state it says which ports exist.
    uint8_t out[8] = {1, 0, 0, 0, 1};
    ASSERT_EQ(DRV_PerpCtl(0x1619, out), 0);
    EXPECT_EQ(read("alarm/out.1"), "on\n");
    std::filesystem::remove(dir_ + "/alarm/out.1");
    EXPECT_NE(DRV_PerpCtl(0x1619, out), 0);
    uint8_t in[8] = {0, 0, 0, 0, 9};
    ASSERT_EQ(DRV_PerpCtl(0x1618, in), 0);
    EXPECT_EQ(in[4], 0);
}

TEST_F(BoardTest, FaultRetErrnoSkipTimesAcrossProcesses)
{
    put("fail/ioctl./dev/hal_gpio.0x40610", "errno=EBUSY\nskip=1\ntimes=2\n");
    pid_t child = fork();
    if (child == 0)
        _exit(EQU_GPIO_WriteByte(3, 22, 1) == EQU_OK ? 0 : 1);  // the skipped call
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);

    int fd = open("/dev/hal_gpio", O_RDWR);
    ASSERT_GE(fd, 0);
    uint32_t rec[3] = {3, 22, 0};
    errno = 0;
    EXPECT_EQ(ioctl(fd, 0x40610, rec), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(ioctl(fd, 0x40610, rec), -1);
    EXPECT_EQ(ioctl(fd, 0x40610, rec), 0);
    close(fd);
    EXPECT_EQ(read("gpio/3.22"), "0\n");  // failed writes changed nothing
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x40610 group=3 bit=22 value=0 -> -1 errno=EBUSY"));

    // A bare driver-call target fails every request, with -1.
    put("fail/DRV_PerpCtl", "");
    int64_t t = 0;
    EXPECT_EQ(DRV_PerpCtl(0x160E, &t), -1);
}

TEST_F(BoardTest, DriverWithoutStateDirectoryUsesDefaultsAndMemory)
{
    unsetenv("BOARDSIM_STATE");
    uint32_t id = 0;
    ASSERT_EQ(DRV_SysCtl(0x1400, &id), 0);
    EXPECT_EQ(id, 0x44130109u);
    char zone[40] = {};
    std::strcpy(zone + 8, "GMT+3");
    ASSERT_EQ(DRV_PerpCtl(0x1610, zone), 0);
    char back[40] = {};
    ASSERT_EQ(DRV_PerpCtl(0x1611, back), 0);  // kept in this process's memory
    EXPECT_STREQ(back + 8, "GMT+3");
    EXPECT_FALSE(std::filesystem::exists(dir_ + "/journal"));
}
